// The registry calls. Each returns its Win32 error and leaves the last error alone.
//
// Served    the operations below on HKEY_LOCAL_MACHINE, HKEY_CLASSES_ROOT, HKEY_CURRENT_USER and HKEY_USERS, in the
//           32-bit and the 64-bit view. Class names and security attributes are not: anything but null gives
//           ERROR_INVALID_PARAMETER.
// Names     16-bit units, compared by their simple upcase; a key component has at most 256 units, a value name 16,383.
// Threads   every call may be made from any thread and from several processes at once.
#pragma once

#include "win/types.h"

#define HKEY_CLASSES_ROOT (reinterpret_cast<HKEY>(static_cast<ULONG_PTR>(static_cast<LONG>(0x80000000u))))
#define HKEY_CURRENT_USER (reinterpret_cast<HKEY>(static_cast<ULONG_PTR>(static_cast<LONG>(0x80000001u))))
#define HKEY_LOCAL_MACHINE (reinterpret_cast<HKEY>(static_cast<ULONG_PTR>(static_cast<LONG>(0x80000002u))))
#define HKEY_USERS (reinterpret_cast<HKEY>(static_cast<ULONG_PTR>(static_cast<LONG>(0x80000003u))))

#define DELETE 0x00010000
#define READ_CONTROL 0x00020000
#define WRITE_DAC 0x00040000
#define WRITE_OWNER 0x00080000
#define SYNCHRONIZE 0x00100000
#define MAXIMUM_ALLOWED 0x02000000
#define KEY_QUERY_VALUE 0x0001
#define KEY_SET_VALUE 0x0002
#define KEY_CREATE_SUB_KEY 0x0004
#define KEY_ENUMERATE_SUB_KEYS 0x0008
#define KEY_NOTIFY 0x0010
#define KEY_CREATE_LINK 0x0020
#define KEY_WOW64_64KEY 0x0100
#define KEY_WOW64_32KEY 0x0200
#define KEY_WOW64_RES 0x0300
#define KEY_READ 0x20019
#define KEY_WRITE 0x20006
#define KEY_ALL_ACCESS 0xF003F

#define REG_NONE 0
#define REG_SZ 1
#define REG_EXPAND_SZ 2
#define REG_BINARY 3
#define REG_DWORD 4
#define REG_DWORD_BIG_ENDIAN 5
#define REG_LINK 6
#define REG_MULTI_SZ 7
#define REG_QWORD 11

#define REG_OPTION_NON_VOLATILE 0
#define REG_OPTION_VOLATILE 1
#define REG_CREATED_NEW_KEY 1
#define REG_OPENED_EXISTING_KEY 2

OVLAYER_API LSTATUS WINAPI RegOpenKeyExW(HKEY key, LPCWSTR path, DWORD options, REGSAM access, PHKEY result);
OVLAYER_API LSTATUS WINAPI RegCreateKeyExW(HKEY key, LPCWSTR path, DWORD reserved, LPWSTR keyClass, DWORD options,
                                           REGSAM access, const LPSECURITY_ATTRIBUTES security, PHKEY result,
                                           LPDWORD disposition);
OVLAYER_API LSTATUS WINAPI RegCloseKey(HKEY key);
OVLAYER_API LSTATUS WINAPI RegQueryValueExW(HKEY key, LPCWSTR name, LPDWORD reserved, LPDWORD type, LPBYTE data,
                                            LPDWORD size);
OVLAYER_API LSTATUS WINAPI RegSetValueExW(HKEY key, LPCWSTR name, DWORD reserved, DWORD type, const BYTE* data,
                                          DWORD size);
OVLAYER_API LSTATUS WINAPI RegDeleteValueW(HKEY key, LPCWSTR name);
OVLAYER_API LSTATUS WINAPI RegDeleteKeyW(HKEY key, LPCWSTR path);
OVLAYER_API LSTATUS WINAPI RegDeleteKeyExW(HKEY key, LPCWSTR path, REGSAM view, DWORD reserved);
OVLAYER_API LSTATUS WINAPI RegEnumKeyExW(HKEY key, DWORD index, LPWSTR name, LPDWORD length, LPDWORD reserved,
                                         LPWSTR keyClass, LPDWORD classLength, PFILETIME lastWrite);
OVLAYER_API LSTATUS WINAPI RegEnumValueW(HKEY key, DWORD index, LPWSTR name, LPDWORD length, LPDWORD reserved,
                                         LPDWORD type, LPBYTE data, LPDWORD size);
OVLAYER_API LSTATUS WINAPI RegQueryInfoKeyW(HKEY key, LPWSTR keyClass, LPDWORD classLength, LPDWORD reserved,
                                            LPDWORD subKeys, LPDWORD maxSubKeyLength, LPDWORD maxClassLength,
                                            LPDWORD values, LPDWORD maxValueNameLength, LPDWORD maxValueLength,
                                            LPDWORD securityDescriptorSize, PFILETIME lastWrite);
OVLAYER_API LSTATUS WINAPI RegOpenCurrentUser(REGSAM access, PHKEY result);
