// Files of strings that stand behind module handles.
#pragma once

#include "win/types.h"

// Whether it was the handle of one, which is gone now.
bool FreeStringTable(HMODULE module) noexcept;
