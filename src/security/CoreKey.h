// The key of the suite's core components, HKEY_LOCAL_MACHINE\SOFTWARE\Orvantis\Core, and the security that it gets when
// this module makes it.
#pragma once

#include "Platform.h"
#include "module/RegistryKey.h"

inline constexpr LPCWSTR kCoreKey = W("SOFTWARE\\Orvantis\\Core");

// Opens the key as it is, or makes it. Raises the error of the making as an HRESULT.
CRegistryKey OpenCoreKey(REGSAM access);

// System and administrators may do everything, users what `usersMask` says, nothing when it is 0. A process that is
// neither changes nothing, and 1 is the result; else the outcome of the change.
HRESULT SetCoreKeySecurity(const CRegistryKey& key, DWORD usersMask) noexcept;
