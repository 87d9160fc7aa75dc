// The access lists of files, as owner and mode.
#pragma once

#include <sys/types.h>

#include "win/types.h"

// The mode that a new file of this process gets. 1307 for an owner that the process cannot give it, 1338 and 1336 for a
// descriptor or a list that is none. Raises std::bad_alloc.
DWORD ModeOfNewFile(const SECURITY_ATTRIBUTES* security, mode_t& mode);
