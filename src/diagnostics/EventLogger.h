// IOVEventLogger, a component of the suite outside of this module, which keeps the audit events.
#pragma once

#include "Platform.h"

inline constexpr CLSID CLSID_EventLogger = {
    0x337779A6, 0x4848, 0x428E, {0xBE, 0x47, 0x5C, 0x1C, 0x95, 0x17, 0x94, 0xA7}};
inline constexpr IID IID_IOVEventLogger = {
    0xC5DF1BE2, 0x095B, 0x43A1, {0xAC, 0xE6, 0x0E, 0x45, 0x33, 0xE1, 0x44, 0x8C}};

struct IOVEventLogger : public IUnknown {
    // One event. `strings` are `count` texts that the message of that id takes in order, null for none; all pointers
    // stay the caller's.
    STDMETHOD(LogEvent)
    (LPCWSTR application, DWORD level, DWORD type, DWORD category, DWORD id, DWORD count, const LPCWSTR* strings,
     DWORD dataSize, const void* data) = 0;
};

// The events of this module. The two upper bits are the severity of a message id; the strings are the item's name, the
// old and, but for a deletion, the new value, domain and account of whoever did it, and the failure's text.
inline constexpr DWORD kEventValueSet = 0x0110040B;
inline constexpr DWORD kEventValueSetFailed = 0x8110040A;
inline constexpr DWORD kEventItemDeleted = 0x01100409;
inline constexpr DWORD kEventItemDeleteFailed = 0x81100408;
