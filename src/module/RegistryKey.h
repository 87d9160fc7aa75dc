// CRegistryKey: an open registry key that closes itself.
//
// It adds three rules to the calls beneath it: the key closes itself, a string is only believed if it is well-formed,
// and a key remembers the view in which it was opened.
//
// Fails    every operation returns its Windows error, 0 for success, and raises nothing. A failed Open or Create leaves
//          the key that was held.
// Threads  an object belongs to one thread.
#pragma once

#include "Platform.h"

// The longest name of a key, in characters without the NUL.
inline constexpr DWORD kLongestKeyName = 256;

class CRegistryKey {
  public:
    CRegistryKey() noexcept = default;
    CRegistryKey(CRegistryKey&& other) noexcept;
    CRegistryKey& operator=(CRegistryKey&& other) noexcept;
    ~CRegistryKey() { Close(); }

    // The handle stays the object's; null when no key is held.
    HKEY Get() const noexcept { return m_key; }
    explicit operator bool() const noexcept { return m_key != nullptr; }

    // On success the key that was held is closed, after the new one is open, and the result is that of the close.
    LONG Open(HKEY parent, LPCWSTR name, REGSAM access) noexcept;
    LONG Create(HKEY parent, LPCWSTR name, LPWSTR keyClass, DWORD options, REGSAM access,
                LPSECURITY_ATTRIBUTES security, DWORD* disposition) noexcept;
    LONG Close() noexcept;

    // `length` in characters: the room on entry, what was read with its NUL on return. ERROR_INVALID_DATA (13) for a
    // value that is no string, of odd size, or without a final NUL. References such as %PATH% stay as they are.
    LONG QueryString(LPCWSTR name, WCHAR* buffer, DWORD& length) const noexcept;
    // ERROR_INVALID_DATA (13) for a value that is no REG_DWORD of 4 bytes; `value` is only written on success.
    LONG QueryDword(LPCWSTR name, DWORD& value) const noexcept;

    LONG SetDword(LPCWSTR name, DWORD value) noexcept;
    LONG SetString(LPCWSTR name, LPCWSTR value, DWORD type = REG_SZ) noexcept;
    // `value` runs to its first empty string, which is written too.
    LONG SetMultiString(LPCWSTR name, LPCWSTR value) noexcept;

    LONG DeleteSubkey(LPCWSTR name) noexcept;
    // The subkey with everything below it. Stops at the first key that cannot be deleted.
    LONG DeleteTree(LPCWSTR name) noexcept;

  private:
    LONG Take(HKEY key, REGSAM access) noexcept;
    LONG DeleteFromTheLeavesUp(LPCWSTR name);

    HKEY m_key = nullptr;
    REGSAM m_view = 0;  // the KEY_WOW64_* bits of the access with which the key was opened
};
