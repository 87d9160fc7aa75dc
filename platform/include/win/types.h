// The scalar types, structures, results and error numbers of Win32, with Win32's widths.
//
// Only what this tree uses stands here. Names and numbers are the platform's own, so that code, traces and clients see
// the same ones in both homes.
#pragma once

#include <cstddef>
#include <cstdint>

#define OVLAYER_API extern "C" __attribute__((visibility("default")))

// Literals of 16-bit text. The other home spells this L"...".
#define OV_W2(text) u##text
#define W(text) OV_W2(text)

#define WINAPI
#define CALLBACK
#define APIENTRY
#define STDMETHODCALLTYPE
#define STDAPICALLTYPE
// What a module exports; its version script says which of them hosts see.
#define STDAPI extern "C" __attribute__((visibility("default"))) HRESULT STDAPICALLTYPE
#define STDMETHOD(method) virtual HRESULT STDMETHODCALLTYPE method
#define STDMETHOD_(type, method) virtual type STDMETHODCALLTYPE method
#define STDMETHODIMP HRESULT STDMETHODCALLTYPE
#define STDMETHODIMP_(type) type STDMETHODCALLTYPE
#define PURE = 0

using BYTE = std::uint8_t;
using CHAR = char;
using UCHAR = unsigned char;
using WCHAR = char16_t;
using SHORT = std::int16_t;
using USHORT = std::uint16_t;
using WORD = std::uint16_t;
using INT = std::int32_t;
using UINT = std::uint32_t;
using LONG = std::int32_t;
using ULONG = std::uint32_t;
using DWORD = std::uint32_t;
using LONGLONG = long long;
using ULONGLONG = unsigned long long;
using DWORD64 = unsigned long long;
using LONG_PTR = std::intptr_t;
using UINT_PTR = std::uintptr_t;
using ULONG_PTR = std::uintptr_t;
using SIZE_T = std::size_t;
using BOOL = std::int32_t;
using BOOLEAN = std::uint8_t;
using HRESULT = std::int32_t;
using NTSTATUS = std::int32_t;
using LSTATUS = std::int32_t;

static_assert(sizeof(WCHAR) == 2 && sizeof(LONG) == 4 && sizeof(DWORD) == 4 && sizeof(HRESULT) == 4);
static_assert(sizeof(ULONGLONG) == 8 && sizeof(ULONG_PTR) == sizeof(void*));

using PVOID = void*;
using LPVOID = void*;
using LPCVOID = const void*;
using LPBYTE = BYTE*;
using LPDWORD = DWORD*;
using PDWORD = DWORD*;
using PLONG = LONG*;
using LPSTR = char*;
using LPCSTR = const char*;
using LPWSTR = WCHAR*;
using PWSTR = WCHAR*;
using LPCWSTR = const WCHAR*;
using PCWSTR = const WCHAR*;
using LPOLESTR = WCHAR*;
using LPCOLESTR = const WCHAR*;
using LPBOOL = BOOL*;

using HANDLE = void*;
struct HKEY__;
using HKEY = HKEY__*;
using PHKEY = HKEY*;
struct HINSTANCE__;
using HINSTANCE = HINSTANCE__*;
using HMODULE = HINSTANCE;
using FARPROC = LONG_PTR (*)();
using REGSAM = DWORD;

#define INVALID_HANDLE_VALUE (reinterpret_cast<HANDLE>(static_cast<LONG_PTR>(-1)))

#ifndef TRUE
#define TRUE 1
#define FALSE 0
#endif
#define MAX_PATH 260

struct GUID {
    std::uint32_t Data1;
    std::uint16_t Data2;
    std::uint16_t Data3;
    std::uint8_t Data4[8];
};
using IID = GUID;
using CLSID = GUID;
using REFGUID = const GUID&;
using REFIID = const IID&;
using REFCLSID = const CLSID&;
using LPCLSID = CLSID*;

inline bool operator==(const GUID& a, const GUID& b) noexcept {
    return __builtin_memcmp(&a, &b, sizeof(GUID)) == 0;
}
inline bool operator!=(const GUID& a, const GUID& b) noexcept {
    return !(a == b);
}
inline bool InlineIsEqualGUID(REFGUID a, REFGUID b) noexcept {
    return a == b;
}
#define IsEqualGUID(a, b) ((a) == (b))
#define IsEqualIID(a, b) ((a) == (b))
#define IsEqualCLSID(a, b) ((a) == (b))

struct FILETIME {
    DWORD dwLowDateTime;
    DWORD dwHighDateTime;
};
using PFILETIME = FILETIME*;

struct SYSTEMTIME {
    WORD wYear;
    WORD wMonth;
    WORD wDayOfWeek;
    WORD wDay;
    WORD wHour;
    WORD wMinute;
    WORD wSecond;
    WORD wMilliseconds;
};

#define GENERIC_READ 0x80000000u
#define GENERIC_WRITE 0x40000000u
#define GENERIC_EXECUTE 0x20000000u
#define GENERIC_ALL 0x10000000u

// Of files alone (win/file.h). Every other call takes only null here: what a new object's security is, its own rules
// say.
struct SECURITY_ATTRIBUTES {
    DWORD nLength;
    LPVOID lpSecurityDescriptor;
    BOOL bInheritHandle;
};
using LPSECURITY_ATTRIBUTES = SECURITY_ATTRIBUTES*;

// Results. The casts keep them signed, as the platform has them.
#define OV_HR(code) (static_cast<HRESULT>(code##u))
#define S_OK (static_cast<HRESULT>(0))
#define S_FALSE (static_cast<HRESULT>(1))
#define E_NOTIMPL OV_HR(0x80004001)
#define E_NOINTERFACE OV_HR(0x80004002)
#define E_POINTER OV_HR(0x80004003)
#define E_FAIL OV_HR(0x80004005)
#define E_UNEXPECTED OV_HR(0x8000FFFF)
#define E_ACCESSDENIED OV_HR(0x80070005)
#define E_OUTOFMEMORY OV_HR(0x8007000E)
#define E_INVALIDARG OV_HR(0x80070057)
#define CLASS_E_NOAGGREGATION OV_HR(0x80040110)
#define CLASS_E_CLASSNOTAVAILABLE OV_HR(0x80040111)
#define RPC_E_CHANGED_MODE OV_HR(0x80010106)
#define REGDB_E_CLASSNOTREG OV_HR(0x80040154)
#define CO_E_CLASSSTRING OV_HR(0x800401F3)
#define SUCCEEDED(hr) (static_cast<HRESULT>(hr) >= 0)
#define FAILED(hr) (static_cast<HRESULT>(hr) < 0)
#define FACILITY_WIN32 7

inline constexpr HRESULT HRESULT_FROM_WIN32(DWORD error) noexcept {
    return static_cast<HRESULT>(error) <= 0 ? static_cast<HRESULT>(error)
                                            : static_cast<HRESULT>((error & 0xFFFFu) | 0x80070000u);
}

using errno_win32 = DWORD;
#define NO_ERROR 0
#define ERROR_SUCCESS 0
#define ERROR_INVALID_FUNCTION 1
#define ERROR_FILE_NOT_FOUND 2
#define ERROR_PATH_NOT_FOUND 3
#define ERROR_ACCESS_DENIED 5
#define ERROR_INVALID_HANDLE 6
#define ERROR_NOT_ENOUGH_MEMORY 8
#define ERROR_INVALID_DATA 13
#define ERROR_OUTOFMEMORY 14
#define ERROR_WRITE_FAULT 29
#define ERROR_GEN_FAILURE 31
#define ERROR_SHARING_VIOLATION 32
#define ERROR_NOT_SUPPORTED 50
#define ERROR_INVALID_PARAMETER 87
#define ERROR_DISK_FULL 112
#define ERROR_CALL_NOT_IMPLEMENTED 120
#define ERROR_INSUFFICIENT_BUFFER 122
#define ERROR_MOD_NOT_FOUND 126
#define ERROR_PROC_NOT_FOUND 127
#define ERROR_BAD_PATHNAME 161
#define ERROR_BUSY 170
#define ERROR_ALREADY_EXISTS 183
#define ERROR_BAD_EXE_FORMAT 193
#define ERROR_MORE_DATA 234
#define ERROR_NO_MORE_ITEMS 259
#define ERROR_DIRECTORY 267
#define ERROR_IO_PENDING 997
#define ERROR_NOACCESS 998
#define ERROR_INVALID_FLAGS 1004
#define ERROR_BADDB 1009
#define ERROR_CANTOPEN 1011
#define ERROR_CANTREAD 1012
#define ERROR_CANTWRITE 1013
#define ERROR_REGISTRY_CORRUPT 1015
#define ERROR_REGISTRY_IO_FAILED 1016
#define ERROR_KEY_DELETED 1018
#define ERROR_NONE_MAPPED 1332
#define ERROR_INVALID_SID 1337
#define ERROR_CHILD_MUST_BE_VOLATILE 1021
#define ERROR_NO_UNICODE_TRANSLATION 1113

OVLAYER_API DWORD WINAPI GetLastError();
OVLAYER_API void WINAPI SetLastError(DWORD error);
