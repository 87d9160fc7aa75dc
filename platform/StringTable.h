// Files of strings that stand behind module handles.
#pragma once

#include <string>

#include "win/types.h"

// Win32 errors as LoadLibraryExW has them. Raises std::bad_alloc.
DWORD LoadStringTable(const std::string& path, HMODULE& module);

// Whether it was the handle of one, which is gone now.
bool FreeStringTable(HMODULE module) noexcept;
