// Which version of the system this is.
#pragma once

#include "Platform.h"

// Of the NT family, at least of that major version: 6 brought integrity levels, and classes of events.
inline bool IsSystemOfVersion(DWORD major) noexcept {
    OSVERSIONINFOW version = {};
    version.dwOSVersionInfoSize = sizeof version;
    return GetVersionExW(&version) && version.dwPlatformId == VER_PLATFORM_WIN32_NT && version.dwMajorVersion >= major;
}
