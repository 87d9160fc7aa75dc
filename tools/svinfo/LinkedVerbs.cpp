#include "svinfo/CommandLine.h"
#include "svinfo/Main.h"

int OvRunVerbs(const std::vector<std::string>& args) {
    return static_cast<int>(RunCommandLine(args, OvIsTerminal(1)));
}
