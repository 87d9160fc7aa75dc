// Who somebody is and what they may do: tokens, impersonation, security identifiers, access lists.
//
// Users     S-1-5-18 is uid 0; every other user is S-1-22-1-<uid>, every group S-1-22-2-<gid>. S-1-1-0 (Everyone) and
//           S-1-5-32-545 (Users) are in every token; S-1-5-32-544 (Administrators) is in that of uid 0 and of the
//           members of the administrator groups: the REG_MULTI_SZ AdministratorGroups of the machine's key
//           SOFTWARE\Orvantis\Platform, else sudo, wheel and admin.
// Errors    BOOL calls say why not by the last error, the others return it.
// Threads   an impersonation belongs to its thread.
#pragma once

#include "win/account.h"
#include "win/types.h"

#define ERROR_BAD_LENGTH 24
#define ERROR_NO_TOKEN 1008
#define ERROR_UNKNOWN_REVISION 1305
#define ERROR_NO_IMPERSONATION_TOKEN 1309
#define ERROR_REVISION_MISMATCH 1306
#define ERROR_PRIVILEGE_NOT_HELD 1314
#define ERROR_NO_SUCH_USER 1317
#define ERROR_INVALID_ACL 1336
#define ERROR_INVALID_SECURITY_DESCR 1338
#define ERROR_ALLOTTED_SPACE_EXCEEDED 1344
#define ERROR_BAD_IMPERSONATION_LEVEL 1346
#define ERROR_CANT_OPEN_ANONYMOUS 1347
#define ERROR_GENERIC_NOT_MAPPED 1360
#define RPC_S_INVALID_BINDING 1702
#define RPC_E_CALL_COMPLETE OV_HR(0x80010117)

// Of the running thread and process; only their own tokens can be asked for. Not to be closed.
OVLAYER_API HANDLE WINAPI GetCurrentThread();
OVLAYER_API HANDLE WINAPI GetCurrentProcess();

// No other right gives anything here, but all that tokens have can be asked for.
#define TOKEN_QUERY 0x0008
#define TOKEN_ADJUST_DEFAULT 0x0080
#define TOKEN_ALL_ACCESS 0xF01FF

enum SECURITY_IMPERSONATION_LEVEL : int {
    SecurityAnonymous,
    SecurityIdentification,
    SecurityImpersonation,
    SecurityDelegation,
};
enum TOKEN_TYPE : int { TokenPrimary = 1, TokenImpersonation };
enum TOKEN_INFORMATION_CLASS : int {
    TokenUser = 1,
    TokenGroups = 2,
    TokenPrimaryGroup = 5,
    TokenType = 8,
    TokenImpersonationLevel = 9,
    TokenSessionId = 12,
    TokenIntegrityLevel = 25,
};

#define SE_GROUP_MANDATORY 0x1u
#define SE_GROUP_ENABLED_BY_DEFAULT 0x2u
#define SE_GROUP_ENABLED 0x4u
#define SE_GROUP_OWNER 0x8u
#define SE_GROUP_USE_FOR_DENY_ONLY 0x10u
#define SE_GROUP_INTEGRITY 0x20u
#define SE_GROUP_INTEGRITY_ENABLED 0x40u

struct SID_AND_ATTRIBUTES {
    PSID Sid;
    DWORD Attributes;
};
struct TOKEN_USER {
    SID_AND_ATTRIBUTES User;
};
struct TOKEN_GROUPS {
    DWORD GroupCount;
    SID_AND_ATTRIBUTES Groups[1];
};
struct TOKEN_PRIMARY_GROUP {
    PSID PrimaryGroup;
};
struct TOKEN_MANDATORY_LABEL {
    SID_AND_ATTRIBUTES Label;
};

// 1008 for a thread that impersonates nobody; 6 for another thread or process than this one. MAXIMUM_ALLOWED is served.
OVLAYER_API BOOL WINAPI OpenThreadToken(HANDLE thread, DWORD access, BOOL asSelf, HANDLE* token);
OVLAYER_API BOOL WINAPI OpenProcessToken(HANDLE process, DWORD access, HANDLE* token);
// Pointers in the answer point into the buffer. 122 with the needed size for a buffer that is missing or too small, 5
// for a token opened without TOKEN_QUERY, 87 for a class that is not served.
OVLAYER_API BOOL WINAPI GetTokenInformation(HANDLE token, TOKEN_INFORMATION_CLASS what, LPVOID buffer, DWORD size,
                                            DWORD* needed);
// TokenIntegrityLevel alone, of a token opened with TOKEN_ADJUST_DEFAULT: of this token object, no other one of the
// same user. Upwards only for uid 0, else 1314; 24 for a buffer that is too small, 1337 for what is no S-1-16-x.
OVLAYER_API BOOL WINAPI SetTokenInformation(HANDLE token, TOKEN_INFORMATION_CLASS what, LPVOID buffer, DWORD size);

// The process's own identity, as it is at that moment.
OVLAYER_API BOOL WINAPI ImpersonateSelf(SECURITY_IMPERSONATION_LEVEL level);
// Nobody's: S-1-5-7, in no group but Everyone.
OVLAYER_API BOOL WINAPI ImpersonateAnonymousToken(HANDLE thread);
OVLAYER_API BOOL WINAPI RevertToSelf();

// The caller that the host has declared (Home.h). 0x80010117 outside of such a call, 0x80070005 for a caller who
// refuses. CoRevertToSelf undoes any number of them.
OVLAYER_API HRESULT WINAPI CoImpersonateClient();
OVLAYER_API HRESULT WINAPI CoRevertToSelf();
// There are no remote procedure calls: 1702.
OVLAYER_API LONG WINAPI RpcImpersonateClient(void* binding);
OVLAYER_API LONG WINAPI RpcRevertToSelf();

// The login session (0 where there is none); 87 for a process that does not exist.
OVLAYER_API BOOL WINAPI ProcessIdToSessionId(DWORD process, DWORD* session);

OVLAYER_API BOOL WINAPI IsValidSid(PSID sid);
OVLAYER_API BOOL WINAPI EqualSid(PSID a, PSID b);
OVLAYER_API DWORD WINAPI GetLengthSid(PSID sid);
OVLAYER_API BOOL WINAPI CopySid(DWORD size, PSID to, PSID from);
OVLAYER_API BOOL WINAPI InitializeSid(PSID sid, SID_IDENTIFIER_AUTHORITY* authority, BYTE subAuthorities);
OVLAYER_API DWORD* WINAPI GetSidSubAuthority(PSID sid, DWORD index);
OVLAYER_API BYTE* WINAPI GetSidSubAuthorityCount(PSID sid);
// A SID for LocalFree. Parts are decimal; the two letters SY, BA, BU, WD, AN stand for theirs. 1337 for what is none,
// 87 for null.
OVLAYER_API BOOL WINAPI ConvertStringSidToSidW(LPCWSTR text, PSID* sid);
// NSS names under the host's name as domain; SYSTEM of NT AUTHORITY, Administrators and Users of BUILTIN, Everyone of
// no domain. 1332 for a SID that nobody has, 122 for a room that is too small. The lengths come back without the NUL;
// who gave no room at all is told the room that is needed.
OVLAYER_API BOOL WINAPI LookupAccountSidW(LPCWSTR system, PSID sid, LPWSTR name, DWORD* nameRoom, LPWSTR domain,
                                          DWORD* domainRoom, SID_NAME_USE* use);

// Access lists, laid out as the platform has them.
struct ACL {
    BYTE AclRevision;
    BYTE Sbz1;
    WORD AclSize;
    WORD AceCount;
    WORD Sbz2;
};
using PACL = ACL*;
#define ACL_REVISION 2
#define ACCESS_ALLOWED_ACE_TYPE 0
#define OBJECT_INHERIT_ACE 1
#define CONTAINER_INHERIT_ACE 2
struct ACE_HEADER {
    BYTE AceType;
    BYTE AceFlags;
    WORD AceSize;
};
struct ACCESS_ALLOWED_ACE {
    ACE_HEADER Header;
    DWORD Mask;
    DWORD SidStart;
};
OVLAYER_API BOOL WINAPI InitializeAcl(PACL acl, DWORD size, DWORD revision);
OVLAYER_API BOOL WINAPI AddAccessAllowedAce(PACL acl, DWORD revision, DWORD mask, PSID sid);
OVLAYER_API BOOL WINAPI AddAccessAllowedAceEx(PACL acl, DWORD revision, DWORD flags, DWORD mask, PSID sid);
// Whole entries, one behind the other, at the end (`index` MAXDWORD).
#define MAXDWORD 0xFFFFFFFFu
OVLAYER_API BOOL WINAPI AddAce(PACL acl, DWORD revision, DWORD index, LPVOID aces, DWORD size);
OVLAYER_API BOOL WINAPI GetAce(PACL acl, DWORD index, LPVOID* ace);

struct SECURITY_DESCRIPTOR {
    BYTE Revision;
    BYTE Sbz1;
    WORD Control;
    PSID Owner;
    PSID Group;
    PACL Sacl;
    PACL Dacl;
};
using PSECURITY_DESCRIPTOR = void*;
#define SECURITY_DESCRIPTOR_REVISION 1
#define SE_OWNER_DEFAULTED 0x0001
#define SE_GROUP_DEFAULTED 0x0002
#define SE_DACL_PRESENT 0x0004
#define SE_DACL_DEFAULTED 0x0008
OVLAYER_API BOOL WINAPI InitializeSecurityDescriptor(PSECURITY_DESCRIPTOR descriptor, DWORD revision);
OVLAYER_API BOOL WINAPI SetSecurityDescriptorOwner(PSECURITY_DESCRIPTOR descriptor, PSID owner, BOOL defaulted);
OVLAYER_API BOOL WINAPI SetSecurityDescriptorGroup(PSECURITY_DESCRIPTOR descriptor, PSID group, BOOL defaulted);
OVLAYER_API BOOL WINAPI SetSecurityDescriptorDacl(PSECURITY_DESCRIPTOR descriptor, BOOL present, PACL dacl,
                                                  BOOL defaulted);

struct GENERIC_MAPPING {
    DWORD GenericRead;
    DWORD GenericWrite;
    DWORD GenericExecute;
    DWORD GenericAll;
};
struct OBJECT_TYPE_LIST {
    WORD Level;
    WORD Sbz;
    GUID* ObjectType;
};
struct LUID_AND_ATTRIBUTES {
    DWORD LowPart;
    LONG HighPart;
    DWORD Attributes;
};
struct PRIVILEGE_SET {
    DWORD PrivilegeCount;
    DWORD Control;
    LUID_AND_ATTRIBUTES Privilege[1];
};
// Generic rights become those that the mapping gives for them.
OVLAYER_API void WINAPI MapGenericMask(DWORD* mask, GENERIC_MAPPING* mapping);
// Of one entry of level 0 and no self. All that is wanted is granted, or nothing is: *status is 0, or 5 then. A token
// below medium integrity is granted nothing that only writing needs. Fails with 6 for what is no token, 1309 for a
// primary one, 1338 for a descriptor without owner or group, 1360 for rights that were not mapped.
OVLAYER_API BOOL WINAPI AccessCheckByTypeResultList(PSECURITY_DESCRIPTOR security, PSID self, HANDLE token,
                                                    DWORD wanted, OBJECT_TYPE_LIST* types, DWORD typeCount,
                                                    GENERIC_MAPPING* mapping, PRIVILEGE_SET* privileges,
                                                    DWORD* privilegesSize, DWORD* granted, DWORD* status);

enum SE_OBJECT_TYPE : int { SE_UNKNOWN_OBJECT_TYPE = 0, SE_FILE_OBJECT = 1, SE_REGISTRY_KEY = 4 };
#define DACL_SECURITY_INFORMATION 0x00000004u
#define PROTECTED_DACL_SECURITY_INFORMATION 0x80000000u
// The list of a registry key, stored with it in the hive; null takes it away. 5 for a handle without WRITE_DAC. Other
// objects, and owner, group or audit list: 87. A list is always the key's own: nothing is inherited. It is kept for
// those who ask for it, and does not itself keep anybody from the key.
OVLAYER_API DWORD WINAPI SetSecurityInfo(HANDLE object, SE_OBJECT_TYPE type, DWORD what, PSID owner, PSID group,
                                         PACL dacl, PACL sacl);
// What was stored; null without one. The descriptor, which holds the list, is for LocalFree. 5 for a handle without
// READ_CONTROL.
OVLAYER_API DWORD WINAPI GetSecurityInfo(HANDLE object, SE_OBJECT_TYPE type, DWORD what, PSID* owner, PSID* group,
                                         PACL* dacl, PACL* sacl, PSECURITY_DESCRIPTOR* descriptor);

enum MULTIPLE_TRUSTEE_OPERATION : int { NO_MULTIPLE_TRUSTEE };
enum TRUSTEE_FORM : int { TRUSTEE_IS_SID, TRUSTEE_IS_NAME };
enum TRUSTEE_TYPE : int { TRUSTEE_IS_UNKNOWN, TRUSTEE_IS_USER, TRUSTEE_IS_GROUP };
struct TRUSTEE_W {
    TRUSTEE_W* pMultipleTrustee;
    MULTIPLE_TRUSTEE_OPERATION MultipleTrusteeOperation;
    TRUSTEE_FORM TrusteeForm;
    TRUSTEE_TYPE TrusteeType;
    LPWSTR ptstrName;
};
OVLAYER_API void WINAPI BuildTrusteeWithNameW(TRUSTEE_W* trustee, LPWSTR name);
// Of an account, named (with or without a domain in front) or by its SID, through all the groups that it is in. 1332
// for nobody's name.
OVLAYER_API DWORD WINAPI GetEffectiveRightsFromAclW(PACL acl, TRUSTEE_W* trustee, DWORD* rights);
