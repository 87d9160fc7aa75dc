// Where an item lies in a registry tree, and how a plain value there is read.
//
// The last backslash of an item's name separates a key path, below a base key, from a value name. The same layout holds
// below the local key, its defaults and a user's policy key.
#pragma once

#include <orvantis/ServerInfo.h>

#include "Platform.h"
#include "diagnostics/TraceScope.h"
#include "module/RegistryKey.h"

inline constexpr LPCWSTR kLocalPolicyKey = W("SOFTWARE\\Orvantis\\Policies");
inline constexpr LPCWSTR kDefaultPolicyKey = W("SOFTWARE\\Orvantis\\Policies\\Default");

// What a policy key is opened with for writing.
inline constexpr REGSAM kPolicyWriteAccess = KEY_READ | KEY_SET_VALUE | KEY_CREATE_SUB_KEY;

// Opens the key in which `name` lies, and moves `name` on to its value name, a part of the same text. For writing, a
// key that is missing is made. A Win32 error, 0 for success. Raises std::bad_alloc for a path too long for its buffer.
LONG OpenPolicyKey(CRegistryKey& key, HKEY root, LPCWSTR basePath, LPCWSTR& name, bool readOnly);

// Reads one plain value of an open key into the record's value: REG_DWORD as type 4, REG_SZ and REG_EXPAND_SZ as type 2
// (a CoTaskMem string, unexpanded), REG_QWORD and REG_BINARY of 8 bytes as type 10. 0; 0x8007000D for every other
// registry type; 0x80070002 when there is no such value or it is damaged. Writes what it read, under the item's whole
// name, to the trace. Raises 0x8007000E.
HRESULT ReadPlainValue(const CRegistryKey& key, LPCWSTR valueName, LPCWSTR itemName, OV_SERVER_VALUE& value,
                       OVTraceNS::CTraceScope& scope);
