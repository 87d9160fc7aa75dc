// Paths.
#pragma once

#include "win/types.h"

// Puts `more` behind `path`, a buffer of MAX_PATH units, with one backslash between, and resolves "." and "..". What
// begins with a drive or two backslashes takes the place of `path`. FALSE for a null `more`, and, with `path` emptied,
// for a joined text of 260 units or more.
OVLAYER_API BOOL WINAPI PathAppendW(LPWSTR path, LPCWSTR more);

// Files and folders. A backslash separates like a slash. The last error says why not.
OVLAYER_API BOOL WINAPI PathFileExistsW(LPCWSTR path);
