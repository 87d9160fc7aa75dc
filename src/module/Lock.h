// Critical sections as objects.
#pragma once

#include "Platform.h"

// Recursive. Whoever owns the section says which locks may be taken under it.
class CCriticalSection {
  public:
    CCriticalSection() noexcept = default;
    ~CCriticalSection() {
        if (m_made) DeleteCriticalSection(&m_section);
    }
    CCriticalSection(const CCriticalSection&) = delete;
    CCriticalSection& operator=(const CCriticalSection&) = delete;

    // Once, before the first Enter. A failure is the system's, as a result.
    HRESULT Init() noexcept {
        if (!InitializeCriticalSectionAndSpinCount(&m_section, 0)) return HRESULT_FROM_WIN32(GetLastError());
        m_made = true;
        return S_OK;
    }

    void Enter() noexcept { EnterCriticalSection(&m_section); }
    void Leave() noexcept { LeaveCriticalSection(&m_section); }

  private:
    CRITICAL_SECTION m_section = {};
    bool m_made = false;
};

// Holds a section for as long as it lives.
class CLockGuard {
  public:
    explicit CLockGuard(CCriticalSection& section) noexcept : m_section(section) { m_section.Enter(); }
    ~CLockGuard() { m_section.Leave(); }
    CLockGuard(const CLockGuard&) = delete;
    CLockGuard& operator=(const CLockGuard&) = delete;

  private:
    CCriticalSection& m_section;
};
