// CSid: a security identifier that is its own memory.
#pragma once

#include <initializer_list>

#include "Platform.h"

class CSid {
  public:
    CSid() noexcept = default;  // none
    // Of the NT authority (5) unless another is given.
    explicit CSid(std::initializer_list<DWORD> subAuthorities, BYTE authority = 5) noexcept;

    // Null for none. Good as long as this object is.
    PSID Get() const noexcept { return m_size != 0 ? const_cast<BYTE*>(m_bytes) : nullptr; }
    explicit operator bool() const noexcept { return m_size != 0; }
    bool operator==(const CSid& other) const noexcept;

    // A copy; none for what is not valid.
    void Assign(PSID sid) noexcept;

    // "S-1-5-18"; empty for none. Raises the system's failure.
    wstr Text() const;
    // Looked up on this computer when they are first wanted; both empty for a SID that nobody has.
    const wstr& AccountName() const;
    const wstr& Domain() const;

  private:
    void LookUp() const;

    alignas(DWORD) BYTE m_bytes[SECURITY_MAX_SID_SIZE] = {};
    DWORD m_size = 0;
    mutable bool m_lookedUp = false;
    mutable wstr m_account;
    mutable wstr m_domain;
};

// From its text. Raises the system's failure for a text that is none.
class CStringSid : public CSid {
  public:
    explicit CStringSid(LPCWSTR text);
};

// Well-known ones.
const CSid& LocalSystemSid() noexcept;     // S-1-5-18
const CSid& AdministratorsSid() noexcept;  // S-1-5-32-544
const CSid& UsersSid() noexcept;           // S-1-5-32-545
const CSid& EveryoneSid() noexcept;        // S-1-1-0
