// What a token handle stands for.
#pragma once

#include <atomic>
#include <optional>
#include <utility>

#include "Handles.h"
#include "Identity.h"
#include "win/security.h"

class CToken : public CKernelObject {
  public:
    // A primary token has no level.
    CToken(CIdentityRef who, std::optional<SECURITY_IMPERSONATION_LEVEL> level, DWORD access) noexcept
        : m_who(std::move(who)), m_level(level), m_access(access), m_integrity(m_who->integrity) {}

    const CIdentity& Who() const noexcept { return *m_who; }
    std::optional<SECURITY_IMPERSONATION_LEVEL> Level() const noexcept { return m_level; }
    bool Allows(DWORD access) const noexcept { return (m_access & access) == access; }
    DWORD Integrity() const noexcept { return m_integrity; }
    void SetIntegrity(DWORD level) noexcept { m_integrity = level; }

  private:
    const CIdentityRef m_who;
    const std::optional<SECURITY_IMPERSONATION_LEVEL> m_level;
    const DWORD m_access;
    std::atomic<DWORD> m_integrity;
};
