// How the items of a map stand in the registry, and which of them do.
#pragma once

#include <string>

#include "Platform.h"
#include "store/PolicyValue.h"

// The registry copy that an object leaves at its end, below HKEY_LOCAL_MACHINE.
inline constexpr LPCWSTR kCachedInfoKey = W("SOFTWARE\\Orvantis\\Applications\\Logon\\CachedInfo");

// Which authentication domains are disabled is a matter of each computer: the item is never saved.
bool IsNeverSaved(LPCWSTR itemName) noexcept;

// A plain item's registry type and data.
struct CRegistryForm {
    DWORD type = REG_NONE;
    std::string bytes;

    bool operator==(const CRegistryForm&) const = default;
};

// 0x80004001 for an array, 0x8007000D for a string without text, 0x80020008 for every other type that is not saved.
HRESULT RegistryFormOf(const CPolicyValue& value, CRegistryForm& form);
