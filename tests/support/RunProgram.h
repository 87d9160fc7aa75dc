// Other programs, run to their end.
#pragma once

#include <string>
#include <utility>
#include <vector>

struct CRunResult {
    int exitCode = -1;  // 128 and the signal's number for a program that was ended by one
    std::string output;
    std::string errors;
};

// Runs `command` (a path, or a name to be looked for, and the arguments) with `environment` added to this process's.
// Standard input is empty. Fails the test when the program cannot be started.
CRunResult RunProgram(const std::vector<std::string>& command,
                      const std::vector<std::pair<std::string, std::string>>& environment = {});

// What to put before a command so that it runs as a user without rights. Empty where this process has none to give up.
std::vector<std::string> WithoutRights();
