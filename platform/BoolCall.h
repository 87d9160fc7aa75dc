// The rim of the calls that answer by a BOOL: nothing is raised out of one, and the last error says what went wrong.
#pragma once

#include "win/types.h"

// Runs a body that gives a Win32 error; whatever it raises is for want of memory, or of a thread.
template <class Body>
BOOL Succeeds(Body body) noexcept {
    DWORD error = ERROR_NOT_ENOUGH_MEMORY;
    try {
        error = body();
    } catch (...) {
    }
    if (error) SetLastError(error);
    return error == ERROR_SUCCESS;
}
