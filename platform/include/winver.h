// The version of a module's file. Callers bind these by name from "Version.dll".
#pragma once

#include "win/types.h"

struct VS_FIXEDFILEINFO {
    DWORD dwSignature;
    DWORD dwStrucVersion;
    DWORD dwFileVersionMS;
    DWORD dwFileVersionLS;
    DWORD dwProductVersionMS;
    DWORD dwProductVersionLS;
    DWORD dwFileFlagsMask;
    DWORD dwFileFlags;
    DWORD dwFileOS;
    DWORD dwFileType;
    DWORD dwFileSubtype;
    DWORD dwFileDateMS;
    DWORD dwFileDateLS;
};
#define VS_FFI_SIGNATURE 0xFEEF04BDu
#define VS_FFI_STRUCVERSION 0x10000u
#define VFT_DLL 2u

// The note of a shared object that holds its VS_FIXEDFILEINFO.
#define OV_VERSION_NOTE_OWNER "Orvantis"
#define OV_VERSION_NOTE_TYPE 1u

// The last error is 1812 for what is no shared object of this system, 1813 for one without a version.
OVLAYER_API DWORD WINAPI GetFileVersionInfoSizeA(LPCSTR file, DWORD* handle);
OVLAYER_API BOOL WINAPI GetFileVersionInfoA(LPCSTR file, DWORD handle, DWORD room, LPVOID block);
// Of a block only the numbers, "\\"; there are no strings: 1813.
OVLAYER_API BOOL WINAPI VerQueryValueA(LPCVOID block, LPCSTR path, LPVOID* found, UINT* size);
