// Accounts: security identifiers and the names that go with them.
#pragma once

#include "win/types.h"

struct SID_IDENTIFIER_AUTHORITY {
    BYTE Value[6];
};
struct SID {
    BYTE Revision;
    BYTE SubAuthorityCount;
    SID_IDENTIFIER_AUTHORITY IdentifierAuthority;
    DWORD SubAuthority[1];  // as many as the count says
};
using PSID = void*;
#define SID_REVISION 1
#define SID_MAX_SUB_AUTHORITIES 15
#define SECURITY_MAX_SID_SIZE 68

enum SID_NAME_USE {
    SidTypeUser = 1,
    SidTypeGroup,
    SidTypeDomain,
    SidTypeAlias,
    SidTypeWellKnownGroup,
    SidTypeDeletedAccount,
    SidTypeInvalid,
    SidTypeUnknown,
};

// An account of this computer, as the name service knows it: S-1-5-18 for uid 0, S-1-22-1-<uid> for every other user,
// S-1-22-2-<gid> for a group; else one of those that every computer has, under its own name, as Administrators. A
// domain in front is not looked at. The sizes are told and the answer is 122 when one is too small; 1332 for a name
// that nobody has; 87 for a system's name. The domain is empty for users and groups: there is none.
OVLAYER_API BOOL WINAPI LookupAccountNameW(LPCWSTR system, LPCWSTR account, PSID sid, DWORD* sidSize, LPWSTR domain,
                                           DWORD* domainSize, SID_NAME_USE* use);

// A text for LocalFree. 1337 for what is no SID.
OVLAYER_API BOOL WINAPI ConvertSidToStringSidW(PSID sid, LPWSTR* text);

// Null: blocks of the layer's own are freed at once.
#define LMEM_FIXED 0
OVLAYER_API void* WINAPI LocalAlloc(UINT flags, SIZE_T size);  // LMEM_FIXED alone; null without memory
OVLAYER_API void* WINAPI LocalFree(void* block);
