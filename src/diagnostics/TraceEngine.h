// What the trace engine owns. For the units of the engine only.
#pragma once

#include <memory>

#include "Platform.h"
#include "diagnostics/TraceOutput.h"

namespace OVTraceNS {

// The full path of a module.
struct ModulePath {
    WCHAR text[1024];
};

// Made before DllMain runs and gone after it.
class CTraceEngine {
  public:
    CTraceEngine() noexcept;
    ~CTraceEngine();
    CTraceEngine(const CTraceEngine&) = delete;
    CTraceEngine& operator=(const CTraceEngine&) = delete;

    void Enter() noexcept { EnterCriticalSection(&m_lock); }
    void Leave() noexcept { LeaveCriticalSection(&m_lock); }

    // All of these are guarded by TraceLock. The module is the program until it is told.
    const ModulePath& Module() noexcept;
    const ModulePath& Process() noexcept;
    void SetPaths(const ModulePath& module, const ModulePath& process) noexcept {
        m_module = module;
        m_process = process;
    }
    std::unique_ptr<COutput> m_output;
    SYSTEMTIME m_lastStamp = {};  // of the last time record; all zero before the first

  private:
    CRITICAL_SECTION m_lock;  // TraceLock
    HANDLE m_processMutex;    // named by the process id; that it exists is all it says
    ModulePath m_module = {};
    ModulePath m_process = {};
};

CTraceEngine& TheTraceEngine() noexcept;

// Holds TraceLock, and leaves the thread's last error as it was: a traced function may still ask for it.
class CTraceLockGuard {
  public:
    CTraceLockGuard() noexcept : m_lastError(GetLastError()) { TheTraceEngine().Enter(); }
    ~CTraceLockGuard() {
        TheTraceEngine().Leave();
        SetLastError(m_lastError);
    }
    CTraceLockGuard(const CTraceLockGuard&) = delete;
    CTraceLockGuard& operator=(const CTraceLockGuard&) = delete;

  private:
    DWORD m_lastError;
};

}  // namespace OVTraceNS
