#include "svinfo/Main.h"

#include <cstdio>

#include "Version.h"

int OvMain(const std::vector<std::string>& args) {
    if (args.size() != 1 || (args[0] != "version" && args[0] != "--version")) return OvRunVerbs(args);
    if (std::puts(kVersion) >= 0 && std::fflush(stdout) == 0) return 0;
    std::fputs("svinfo: write to standard output: 0x8007001D it cannot be written\n", stderr);
    return 5;
}
