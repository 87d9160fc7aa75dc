#include "svinfo/Main.h"

#include <cerrno>
#include <cstdio>

#include "Version.h"

int OvMain(const std::vector<std::string>& args) {
    if (args.size() != 1 || (args[0] != "version" && args[0] != "--version")) return OvRunVerbs(args);
    if (std::puts(kVersion) >= 0 && std::fflush(stdout) == 0) return 0;
    const char* result = errno == ENOSPC ? "0x80070070 the disk is full" : "0x8007001D it cannot be written";
    std::fprintf(stderr, "svinfo: write to standard output: %s\n", result);
    return 5;
}
