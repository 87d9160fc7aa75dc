// What lies below a key, as text.
#pragma once

#include <map>
#include <string>

#include "Platform.h"
#include "module/RegistryKey.h"
#include "module/ValueWalk.h"

// A unit beyond ASCII as "{2603}".
inline std::string UnitText(WCHAR unit) {
    if (unit >= 0x20 && unit < 0x7F) return std::string(1, static_cast<char>(unit));
    if (unit == 0) return "|";
    std::string text = "{";
    for (int shift = 12; shift >= 0; shift -= 4) text += "0123456789abcdef"[unit >> shift & 15];
    return text + "}";
}

inline std::string UnitsText(wstr_view units) {
    std::string text;
    for (const WCHAR unit : units) text += UnitText(unit);
    return text;
}

inline void ListTree(const wstr& path, const std::string& name, std::map<std::string, std::string>& lines) {
    CRegistryKey key;
    if (key.Open(HKEY_LOCAL_MACHINE, path.c_str(), KEY_READ)) return;
    lines[name];
    CValueWalk walk(key.Get());
    if (walk.Measure()) return;
    while (walk.Next()) {
        std::string& line = lines[name + UnitsText(walk.Name())];
        line = "=" + std::to_string(walk.Type()) + ":";
        if (walk.Type() == REG_SZ || walk.Type() == REG_MULTI_SZ) {
            line += UnitsText({reinterpret_cast<LPCWSTR>(walk.Data().data()), walk.Data().size() / sizeof(WCHAR)});
        } else {
            for (const BYTE byte : walk.Data())
                line.append(1, "0123456789abcdef"[byte >> 4]).append(1, "0123456789abcdef"[byte & 15]);
        }
    }
    WCHAR child[kLongestKeyName + 1];
    DWORD length = kLongestKeyName + 1;
    for (DWORD i = 0; !RegEnumKeyExW(key.Get(), i, child, &length, nullptr, nullptr, nullptr, nullptr); ++i) {
        ListTree(path + W("\\") + child, name + UnitsText(child) + "\\", lines);
        length = kLongestKeyName + 1;
    }
}

// A line for each key and value below `path`, in the order of their names: "A\B\", "A\B\Number=4:0a000000",
// "A\Text=1:text|". Nothing for a key that is not there.
inline std::string TreeText(LPCWSTR path) {
    std::map<std::string, std::string> lines;
    ListTree(path, "", lines);
    std::string text;
    for (const auto& [name, value] : lines) text += name + value + "\n";
    return text;
}
