// What the last load of an object came to: for those who look after a computer, not for the rules of the store.
#pragma once

#include "Platform.h"

enum class LoadCause { kNone, kFirstQuery, kPolicyChange, kReload };

struct CLoadReport {
    DWORD number = 0;  // of the loads of this object; 0 before the first
    LoadCause cause = LoadCause::kNone;
    SYSTEMTIME begun = {};   // local time
    DWORD milliseconds = 0;  // how long it took
    DWORD items = 0;         // in the store behind it
    DWORD created = 0;
    DWORD deleted = 0;
    DWORD changed = 0;
};
