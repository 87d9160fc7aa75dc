// The trace settings of the root, as they stand in the registry.
#pragma once

#include <string>

#include "Platform.h"

struct CTracing {
    bool on = false;
    bool toFile = true;
    bool anew = true;  // each process begins its file anew
    DWORD verbosity = 0;
    std::string file;    // the whole name of the one file; empty: a name for each process
    std::string folder;  // of the files; empty: beside the module

    const std::string& Place() const noexcept { return file.empty() ? folder : file; }
};

// Looked for in the 32-bit view as well, as the module does. Without a key tracing is off.
CTracing ReadTracing();
