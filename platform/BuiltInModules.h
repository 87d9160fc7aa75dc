// The layer's own modules: system libraries that callers bind by name at run time.
//
// They are always there and are never unloaded. A new one is a table in BuiltInModules.cpp.
#pragma once

#include <string_view>

#include "win/types.h"

// The handle of the module of that name, with or without ".dll", compared without regard to ASCII case; null if there
// is none, or it is hidden.
HMODULE FindBuiltInModule(std::u16string_view name) noexcept;

// Whether the handle is one of those above.
bool IsBuiltInModule(HMODULE module) noexcept;

// The name with its extension.
std::u16string_view BuiltInModuleName(HMODULE module) noexcept;

// Null if the module has no such export, or it is hidden. Names count with their case.
FARPROC FindBuiltInExport(HMODULE module, std::string_view name) noexcept;
