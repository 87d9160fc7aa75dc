// 16-bit text: measuring, comparing, numbers and code pages.
//
// The C names are overloads for 16-bit units: on this home the C library's own take 32-bit wchar_t.
#pragma once

// First: the C++ library must have taken the C names over before they get overloads.
#include <cwchar>
#include <string>

#include "win/types.h"

#define CP_ACP 0
#define CP_THREAD_ACP 3
#define CP_UTF8 65001
#define MB_ERR_INVALID_CHARS 8
#define WC_ERR_INVALID_CHARS 0x80

// Code pages served: 0 and 3 (both are 1252), 1252 and 65001. Errors as the last error: 87 for a length of 0, 122 for
// an output that is too small, 1113 for bad input under MB_ERR_INVALID_CHARS or WC_ERR_INVALID_CHARS.
OVLAYER_API int WINAPI MultiByteToWideChar(UINT codePage, DWORD flags, LPCSTR text, int length, LPWSTR out, int room);
OVLAYER_API int WINAPI WideCharToMultiByte(UINT codePage, DWORD flags, LPCWSTR text, int length, LPSTR out, int room,
                                           LPCSTR defaultChar, LPBOOL usedDefault);

__attribute__((visibility("default"))) std::size_t wcslen(const WCHAR* text) noexcept;

// Folds the 52 ASCII letters and nothing else, to lower case, so that '_' sorts before the letters.
__attribute__((visibility("default"))) int _wcsicmp(const WCHAR* a, const WCHAR* b) noexcept;

// Lowers the units in place, by the inverse of the upcase of names. Gives `length`.
OVLAYER_API DWORD WINAPI CharLowerBuffW(LPWSTR text, DWORD length);

// Base 2 to 36, or 0. Blanks and digits of ASCII only: other blanks end the number, and other decimal digits are no
// digits, where the platform knows some. Overflow gives all bits set (1 behind a minus sign) and errno ERANGE. wcstoul
// has 32 bits.
__attribute__((visibility("default"))) ULONG wcstoul(const WCHAR* text, WCHAR** end, int base) noexcept;
__attribute__((visibility("default"))) unsigned long long wcstoull(const WCHAR* text, WCHAR** end, int base) noexcept;
