#include "svinfo/Main.h"

#include <cstdio>

#include "Version.h"

int OvMain(const std::vector<std::string>& args) {
    if (args.size() != 1 || (args[0] != "version" && args[0] != "--version")) return OvRunVerbs(args);
    return std::puts(kVersion) >= 0 && std::fflush(stdout) == 0 ? 0 : 5;
}
