// Short verbs on the registry for fixtures. Each fails the test when the call fails.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <initializer_list>
#include <vector>

#include "Platform.h"
#include "module/RegistryKey.h"

namespace testreg {

inline CRegistryKey Make(LPCWSTR path, REGSAM access = KEY_ALL_ACCESS) {
    CRegistryKey key;
    EXPECT_EQ(key.Create(HKEY_LOCAL_MACHINE, path, nullptr, 0, access, nullptr, nullptr), ERROR_SUCCESS);
    return key;
}

// Exactly these bytes: a NUL that stands behind them in memory could be stored with a text that lacks one.
inline void PutBytes(LPCWSTR path, LPCWSTR name, DWORD type, const void* data, std::size_t size) {
    const CRegistryKey key = Make(path);
    std::vector<BYTE> bytes(size + 2 * sizeof(WCHAR), 0xEE);
    std::copy_n(static_cast<const BYTE*>(data), size, bytes.begin());
    EXPECT_EQ(RegSetValueExW(key.Get(), name, 0, type, bytes.data(), static_cast<DWORD>(size)), ERROR_SUCCESS);
}

inline void PutDword(LPCWSTR path, LPCWSTR name, DWORD value) {
    PutBytes(path, name, REG_DWORD, &value, sizeof value);
}

inline void PutQword(LPCWSTR path, LPCWSTR name, ULONGLONG value) {
    PutBytes(path, name, REG_QWORD, &value, sizeof value);
}

inline void PutString(LPCWSTR path, LPCWSTR name, const wstr& text, DWORD type = REG_SZ) {
    PutBytes(path, name, type, text.c_str(), (text.size() + 1) * sizeof(WCHAR));
}

// `texts` each with its NUL, then the closing one.
inline void PutList(LPCWSTR path, LPCWSTR name, std::initializer_list<LPCWSTR> texts) {
    wstr all;
    for (LPCWSTR text : texts) all.append(text).append(1, WCHAR{0});
    all.append(1, WCHAR{0});
    PutBytes(path, name, REG_MULTI_SZ, all.data(), all.size() * sizeof(WCHAR));
}

struct Value {
    LONG error = 0;
    DWORD type = 0xDEADBEEF;
    std::vector<BYTE> bytes;
};

inline Value Get(LPCWSTR path, LPCWSTR name) {
    Value value;
    CRegistryKey key;
    value.error = key.Open(HKEY_LOCAL_MACHINE, path, KEY_READ);
    DWORD size = 0;
    if (!value.error) value.error = RegQueryValueExW(key.Get(), name, nullptr, &value.type, nullptr, &size);
    if (value.error) return value;
    value.bytes.resize(size);
    value.error = RegQueryValueExW(key.Get(), name, nullptr, &value.type, value.bytes.data(), &size);
    return value;
}

}  // namespace testreg
