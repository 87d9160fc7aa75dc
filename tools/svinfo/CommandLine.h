// The command line: global options, the verb, its arguments.
#pragma once

#include <string>
#include <vector>

#include "svinfo/Failure.h"

// Reads and carries out one command line, without the program's name, in UTF-8. `terminal`: standard output is one.
// Says what went wrong on standard error and raises nothing.
ExitCode RunCommandLine(const std::vector<std::string>& args, bool terminal) noexcept;
