// Entry points found by name.
#pragma once

#include <bit>

#include "Platform.h"

// Null when the module is null or has no such export.
template <class Proc>
Proc FindExport(HMODULE module, LPCSTR name) noexcept {
    return module ? std::bit_cast<Proc>(GetProcAddress(module, name)) : nullptr;
}
