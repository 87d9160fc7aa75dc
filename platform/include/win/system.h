// The computer.
#pragma once

#include "win/types.h"

#define ERROR_BUFFER_OVERFLOW 111

// The host's name. `size` is the room on entry and the length without the NUL on return; 111 for a room that is too
// small, with what is needed.
OVLAYER_API BOOL WINAPI GetComputerNameW(LPWSTR name, DWORD* size);

struct OSVERSIONINFOW {
    DWORD dwOSVersionInfoSize;
    DWORD dwMajorVersion;
    DWORD dwMinorVersion;
    DWORD dwBuildNumber;
    DWORD dwPlatformId;
    WCHAR szCSDVersion[128];
};
struct OSVERSIONINFOEXW {
    DWORD dwOSVersionInfoSize;
    DWORD dwMajorVersion;
    DWORD dwMinorVersion;
    DWORD dwBuildNumber;
    DWORD dwPlatformId;
    WCHAR szCSDVersion[128];
    WORD wServicePackMajor;
    WORD wServicePackMinor;
    WORD wSuiteMask;
    BYTE wProductType;
    BYTE wReserved;
};
#define VER_PLATFORM_WIN32_NT 2
#define VER_NT_WORKSTATION 1
// What this layer stands for: 6.1, the first of the platform's versions that has all it serves. Either form.
OVLAYER_API BOOL WINAPI GetVersionExW(OSVERSIONINFOW* version);
