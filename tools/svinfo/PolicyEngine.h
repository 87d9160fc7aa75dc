// CPolicyEngine: the system's policy functions. Not every system has all of them.
#pragma once

#include "Platform.h"
#include "module/Library.h"

class CPolicyEngine {
  public:
    // Waits until nobody reads or applies policy, and keeps others waiting as long as the engine lives.
    explicit CPolicyEngine(BOOL machine) : m_machine(machine) {
        const auto enter = Find<HANDLE(WINAPI*)(BOOL)>("EnterCriticalPolicySection");
        if (enter) m_section = enter(machine);
    }
    ~CPolicyEngine() {
        Leave();
        if (m_library) FreeLibrary(m_library);
    }
    CPolicyEngine(const CPolicyEngine&) = delete;
    CPolicyEngine& operator=(const CPolicyEngine&) = delete;

    // Gives the section back, since those who are told want to read. A Win32 error.
    DWORD Signal() {
        Leave();
        const auto refresh = Find<BOOL(WINAPI*)(BOOL, DWORD)>("RefreshPolicyEx");
        if (!refresh) return ERROR_PROC_NOT_FOUND;
        return refresh(m_machine, 0) ? ERROR_SUCCESS : GetLastError();
    }

  private:
    template <class Proc>
    Proc Find(const char* name) const noexcept {
        return FindExport<Proc>(m_library, name);
    }
    void Leave() noexcept {
        const auto leave = Find<BOOL(WINAPI*)(HANDLE)>("LeaveCriticalPolicySection");
        if (m_section && leave) leave(m_section);
        m_section = nullptr;
    }

    BOOL m_machine;
    HMODULE m_library = LoadLibraryW(W("Userenv.dll"));
    HANDLE m_section = nullptr;
};
