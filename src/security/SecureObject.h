// COVSecureObject: an object with a security descriptor of its own, and the question whether a caller has rights on it.
//
// Threads  a check takes no lock and changes nothing of the object; two threads may check at once.
#pragma once

#include "module/Library.h"
#include "security/AccessToken.h"
#include "security/SecurityDescriptor.h"

class COVSecureObject {
  public:
    virtual ~COVSecureObject() = default;

    // Adds the entries of the class to the descriptor.
    virtual HRESULT CreateDefaultSecurityDescriptor() = 0;

    // Whether the caller of the current call has these rights on the object: 0, 0x80070005 when not, or why it cannot
    // be told. A thread that acts for nobody has no identity that could be asked for rights: 0x80070006. `selfSid` and
    // `objectType` may be null.
    HRESULT AccessCheck2(PSID selfSid, DWORD desiredAccess, const GUID* objectType) noexcept;
    // The same of a token for impersonation, which it may lift from low integrity to medium.
    HRESULT AccessCheck1(const CAccessToken& token, PSID selfSid, DWORD desiredAccess, const GUID* objectType) noexcept;

  protected:
    // With owner and group of whoever makes the object. Raises the failure.
    COVSecureObject();

    CSecurityDescriptor m_security;

  private:
    friend struct StoreDoor;  // tests stand in for a system that lacks the check

    using AccessCheckProc = BOOL(WINAPI*)(PSECURITY_DESCRIPTOR, PSID, HANDLE, DWORD, OBJECT_TYPE_LIST*, DWORD,
                                          GENERIC_MAPPING*, PRIVILEGE_SET*, DWORD*, DWORD*, DWORD*);

    CDLLLoader m_advapi32;
    AccessCheckProc m_accessCheck = nullptr;  // null where the system lacks it: nobody has rights then
};

// What an entry of the descriptor can allow.
inline constexpr DWORD kReadItems = 1;
inline constexpr DWORD kWriteItems = 2;

// Lifts a token of low integrity to medium: 0. 1 when it has another level, or the system no levels; else why not.
HRESULT CheckVistaIntegrityLevel(const CAccessToken& token) noexcept;
