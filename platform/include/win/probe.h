// Whether memory can be touched, asked before it is.
#pragma once

#include "win/types.h"

// TRUE for null and for memory of which some cannot be read (written; read up to the NUL or `most` units). Nothing is
// changed. What no byte is asked of is never bad. The answer is about this moment: another thread may unmap the memory.
//
// The processor is asked, and its fault is caught (OvGuardFaults in Home.h says how). Where that is turned off, and on
// processors other than x86-64, null alone is bad.
OVLAYER_API BOOL WINAPI IsBadReadPtr(const void* memory, UINT_PTR size);
OVLAYER_API BOOL WINAPI IsBadWritePtr(LPVOID memory, UINT_PTR size);
OVLAYER_API BOOL WINAPI IsBadStringPtrW(LPCWSTR text, UINT_PTR most);
