// The tool's program, which is small: it knows the version, and where the verbs are.
//
// Scripts ask for the version often, and what the verbs stand on may take longer to load than an empty program to run.
#pragma once

#include <string>
#include <vector>

// Runs one command line, without the program's name, in UTF-8. The result is the process's exit code.
int OvMain(const std::vector<std::string>& args);

// Hands the command line to RunCommandLine (CommandLine.h). LinkedVerbs.cpp has it where the verbs are a part of the
// program, the home's entry where they are loaded.
int OvRunVerbs(const std::vector<std::string>& args);

// The entry's: whether the C stream of that number (1 output, 2 errors) is a terminal.
bool OvIsTerminal(int stream);
