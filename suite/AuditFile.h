// The file in which the event logger keeps the audit trail, for the logger and for whoever reads it.
//
//   time <TAB> id <TAB> message <TAB> string <TAB> string ...      one line an event
//
// Time is local, the id "0x" and eight digits. The message is for readers; in the strings backslashes and what steers a
// reader (controls, line separators, marks of direction) are written out as \\ and \uNNNN, tab and line ends as
// \t, \n and \r, so that no value can make up a line.
#pragma once

#include "module/RegistryKey.h"

// AuditFile of SOFTWARE\Orvantis\EventLog; empty when it names none. A relative path counts as none: it would mean
// another file to every process.
inline wstr AuditFilePath() {
    CRegistryKey key;
    WCHAR path[MAX_PATH] = {};
    DWORD length = MAX_PATH;
    if (key.Open(HKEY_LOCAL_MACHINE, W("SOFTWARE\\Orvantis\\EventLog"), KEY_READ) ||
        key.QueryString(W("AuditFile"), path, length)) {
        return {};
    }
    const bool isAbsolute = path[0] == W('/') || path[0] == W('\\') || (path[0] && path[1] == W(':'));
    return isAbsolute ? path : W("");
}

// Whether a unit is written out.
inline bool IsSteering(WCHAR unit) noexcept {
    return unit < 0x20 || (unit >= 0x7F && unit < 0xA0) || unit == 0x200E || unit == 0x200F ||
           (unit >= 0x2028 && unit <= 0x202E) || (unit >= 0x2066 && unit <= 0x2069);
}
