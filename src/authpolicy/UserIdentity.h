// What the decisions need to know about a name or a session.
#pragma once

#include "Platform.h"

// The SID of a user as text. A name of format 8 or 0 is taken as it stands. 0x80070525 when the user service knows no
// SID.
HRESULT TranslateToSID(LPCWSTR userName, DWORD nameFormat, wstr& sid) noexcept;

// Whether a name of format 8 is that of the recovery account: "Recovery", or a SID that bears its mark. Raises the
// failure for a text that is no SID.
bool IsRecoveryUser(LPCWSTR name);

// Whether the product runs in kiosk mode. Asked once in the life of the process.
bool IsKioskProduct() noexcept;
// Whether a session is one of a kiosk; 0xFFFFFFFF is the session of the process.
bool IsKioskSession(DWORD sessionId) noexcept;

// For tests: the next question reads the settings anew.
void ForgetKioskProduct() noexcept;
