#include "win/system.h"

#include <syslog.h>

#include <algorithm>

#include "AccountName.h"
#include "BoolCall.h"
#include "Home.h"

BOOL WINAPI GetComputerNameW(LPWSTR name, DWORD* size) {
    return Succeeds([&]() -> DWORD {
        if (!size) return ERROR_INVALID_PARAMETER;
        const std::u16string host = HostName();
        const bool fits = name && host.size() < *size;
        *size = static_cast<DWORD>(host.size() + (fits ? 0 : 1));
        if (!fits) return ERROR_BUFFER_OVERFLOW;
        std::copy_n(host.c_str(), host.size() + 1, name);
        return ERROR_SUCCESS;
    });
}

BOOL WINAPI GetVersionExW(OSVERSIONINFOW* version) {
    return Succeeds([&]() -> DWORD {
        if (!version || version->dwOSVersionInfoSize < sizeof *version) return ERROR_INSUFFICIENT_BUFFER;
        const DWORD size = version->dwOSVersionInfoSize;
        *version = {size, 6, 1, 0, VER_PLATFORM_WIN32_NT, {}};
        if (size >= sizeof(OSVERSIONINFOEXW)) {
            auto& more = *reinterpret_cast<OSVERSIONINFOEXW*>(version);
            more.wServicePackMajor = more.wServicePackMinor = more.wSuiteMask = 0;
            more.wProductType = VER_NT_WORKSTATION;
            more.wReserved = 0;
        }
        return ERROR_SUCCESS;
    });
}

// The program's own settings of the log stay what they are.
void WINAPI OvSystemLog(const char* line, BOOL failed) {
    constexpr int kLongest = 2000;  // a message that is too long for the log's socket would be lost
    syslog(LOG_AUTHPRIV | (failed ? LOG_WARNING : LOG_NOTICE), "orvantis: %.*s", kLongest, line ? line : "");
}
