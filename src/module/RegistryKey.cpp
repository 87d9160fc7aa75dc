#include "module/RegistryKey.h"

#include <new>
#include <string>
#include <utility>
#include <vector>

#include "module/Library.h"

namespace {

using DeleteKeyEx = LONG(WINAPI*)(HKEY, LPCWSTR, REGSAM, DWORD);

// Looked up by name: the oldest systems delete without a view.
DeleteKeyEx FindDeleteKeyEx() noexcept {
    static const auto found = FindExport<DeleteKeyEx>(LoadLibraryW(W("Advapi32.dll")), "RegDeleteKeyExW");
    return found;
}

}  // namespace

CRegistryKey::CRegistryKey(CRegistryKey&& other) noexcept
    : m_key(std::exchange(other.m_key, nullptr)), m_view(std::exchange(other.m_view, 0)) {}

CRegistryKey& CRegistryKey::operator=(CRegistryKey&& other) noexcept {
    if (this != &other) {
        Close();
        m_key = std::exchange(other.m_key, nullptr);
        m_view = std::exchange(other.m_view, 0);
    }
    return *this;
}

LONG CRegistryKey::Take(HKEY key, REGSAM access) noexcept {
    const LONG closed = Close();
    m_key = key;
    m_view = access & KEY_WOW64_RES;
    return closed;
}

LONG CRegistryKey::Open(HKEY parent, LPCWSTR name, REGSAM access) noexcept {
    HKEY key = nullptr;
    if (const LONG error = RegOpenKeyExW(parent, name, 0, access, &key)) return error;
    return Take(key, access);
}

LONG CRegistryKey::Create(HKEY parent, LPCWSTR name, LPWSTR keyClass, DWORD options, REGSAM access,
                          LPSECURITY_ATTRIBUTES security, DWORD* disposition) noexcept {
    HKEY key = nullptr;
    DWORD made = 0;
    const LONG error = RegCreateKeyExW(parent, name, 0, keyClass, options, access, security, &key, &made);
    if (disposition) *disposition = made;
    return error ? error : Take(key, access);
}

LONG CRegistryKey::Close() noexcept {
    m_view = 0;
    HKEY key = std::exchange(m_key, nullptr);
    return key ? RegCloseKey(key) : ERROR_SUCCESS;
}

LONG CRegistryKey::QueryString(LPCWSTR name, WCHAR* buffer, DWORD& length) const noexcept {
    DWORD bytes = length * static_cast<DWORD>(sizeof(WCHAR));
    length = 0;
    DWORD type = REG_NONE;
    if (const LONG error = RegQueryValueExW(m_key, name, nullptr, &type, reinterpret_cast<BYTE*>(buffer), &bytes)) {
        return error;
    }
    if (type != REG_SZ && type != REG_EXPAND_SZ) return ERROR_INVALID_DATA;
    if (buffer) {
        if (bytes == 0) {
            buffer[0] = 0;
        } else if (bytes % sizeof(WCHAR) != 0 || buffer[bytes / sizeof(WCHAR) - 1] != 0) {
            return ERROR_INVALID_DATA;
        }
    }
    length = bytes / static_cast<DWORD>(sizeof(WCHAR));
    return ERROR_SUCCESS;
}

LONG CRegistryKey::QueryDword(LPCWSTR name, DWORD& value) const noexcept {
    DWORD type = REG_NONE;
    DWORD data = 0;
    DWORD bytes = sizeof data;
    const LONG error = RegQueryValueExW(m_key, name, nullptr, &type, reinterpret_cast<BYTE*>(&data), &bytes);
    if (error == ERROR_MORE_DATA) return ERROR_INVALID_DATA;
    if (error) return error;
    if (type != REG_DWORD || bytes != sizeof data) return ERROR_INVALID_DATA;
    value = data;
    return ERROR_SUCCESS;
}

LONG CRegistryKey::SetDword(LPCWSTR name, DWORD value) noexcept {
    return RegSetValueExW(m_key, name, 0, REG_DWORD, reinterpret_cast<const BYTE*>(&value), sizeof value);
}

LONG CRegistryKey::SetString(LPCWSTR name, LPCWSTR value, DWORD type) noexcept {
    if (!value) return ERROR_INVALID_DATA;
    const std::size_t bytes = (std::char_traits<WCHAR>::length(value) + 1) * sizeof(WCHAR);
    return RegSetValueExW(m_key, name, 0, type, reinterpret_cast<const BYTE*>(value), static_cast<DWORD>(bytes));
}

LONG CRegistryKey::SetMultiString(LPCWSTR name, LPCWSTR value) noexcept {
    if (!value) return ERROR_INVALID_DATA;
    LPCWSTR end = value;
    while (*end) end += std::char_traits<WCHAR>::length(end) + 1;
    const std::size_t bytes = static_cast<std::size_t>(end + 1 - value) * sizeof(WCHAR);
    return RegSetValueExW(m_key, name, 0, REG_MULTI_SZ, reinterpret_cast<const BYTE*>(value),
                          static_cast<DWORD>(bytes));
}

LONG CRegistryKey::DeleteSubkey(LPCWSTR name) noexcept {
    if (DeleteKeyEx deleteKeyEx = FindDeleteKeyEx()) return deleteKeyEx(m_key, name, m_view, 0);
    return RegDeleteKeyW(m_key, name);
}

LONG CRegistryKey::DeleteTree(LPCWSTR name) noexcept {
    try {
        return DeleteFromTheLeavesUp(name);
    } catch (const std::bad_alloc&) {
        return ERROR_NOT_ENOUGH_MEMORY;
    }
}

// The keys on the way down lie on the heap: a tree may be deeper than the stack.
LONG CRegistryKey::DeleteFromTheLeavesUp(LPCWSTR name) {
    struct Level {
        CRegistryKey key;
        wstr name;  // in the level above
    };
    std::vector<Level> levels;
    wstr next = name ? name : W("");
    for (;;) {
        CRegistryKey& parent = levels.empty() ? *this : levels.back().key;
        CRegistryKey key;
        if (const LONG error = key.Open(parent.m_key, next.c_str(), KEY_READ | KEY_WRITE | m_view)) return error;
        levels.push_back({std::move(key), std::move(next)});
        // Always index 0: each pass removes the first subkey, and one that cannot be removed ends the walk.
        WCHAR child[kLongestKeyName + 1];
        DWORD length = kLongestKeyName + 1;
        while (RegEnumKeyExW(levels.back().key.m_key, 0, child, &length, nullptr, nullptr, nullptr, nullptr)) {
            const wstr leaf = std::move(levels.back().name);
            levels.pop_back();
            CRegistryKey& above = levels.empty() ? *this : levels.back().key;
            if (const LONG error = above.DeleteSubkey(leaf.c_str())) return error;
            if (levels.empty()) return ERROR_SUCCESS;
            length = kLongestKeyName + 1;
        }
        next = child;
    }
}
