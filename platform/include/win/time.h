// Ticks and local time.
#pragma once

#include "win/types.h"

// Milliseconds since the start of the computer, coarse (steps of some milliseconds), wrapping at 2^32.
OVLAYER_API DWORD WINAPI GetTickCount();
OVLAYER_API void WINAPI GetLocalTime(SYSTEMTIME* time);
