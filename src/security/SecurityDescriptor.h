// CSecurityDescriptor: a security descriptor in absolute form that owns its parts. There is never a SACL.
//
// Fails    every operation returns an HRESULT; memory that cannot be had gives 0x8007000E.
#pragma once

#include <memory>

#include "Platform.h"
#include "security/Sid.h"

class CAccessToken;

class CSecurityDescriptor {
  public:
    CSecurityDescriptor() noexcept { Initialize(); }
    // The descriptor points into this object.
    CSecurityDescriptor(const CSecurityDescriptor&) = delete;
    CSecurityDescriptor& operator=(const CSecurityDescriptor&) = delete;

    // A fresh descriptor with the owner and group of the thread's token. `fallBackToProcess`: of the process's token
    // where the thread has none. On a failure it is fresh, without owner and group.
    HRESULT InitializeFromThreadToken(bool defaulted, bool fallBackToProcess) noexcept;
    HRESULT InitializeFromProcessToken(bool defaulted) noexcept;
    // Fresh, without owner and group.
    void Initialize() noexcept;

    // One more entry at the end, which allows. 0x80070057 for what is no SID.
    HRESULT AddAllowedAce(const CSid& sid, DWORD mask, DWORD aceFlags = 0) noexcept;

    SECURITY_DESCRIPTOR* Get() noexcept { return &m_descriptor; }
    // Null before the first entry.
    PACL Dacl() const noexcept { return reinterpret_cast<PACL>(m_dacl.get()); }
    const CSid& Owner() const noexcept { return m_owner; }
    const CSid& Group() const noexcept { return m_group; }

  private:
    HRESULT TakeOwner(const CAccessToken& token, bool defaulted) noexcept;

    SECURITY_DESCRIPTOR m_descriptor = {};
    CSid m_owner;
    CSid m_group;
    std::unique_ptr<BYTE[]> m_dacl;
};
