// How a policy change reaches an object: the functions of Userenv.dll, the event that the policy engine signals, and
// the wait that turns each signal into one refresh on a thread of the wait pool.
//
// A refresh never outlives its object. Between the wait and the object stands a gate: the wait knows the gate by a
// number, the gate knows the object until it is closed, and closing it waits for the refreshes that are under way, but
// for the very one on whose thread it is closed.
//
// Threads  a gate looks after itself. The handles belong to the object and are guarded by its m_lock; the gate is
//          closed outside m_lock, since a refresh needs that lock to finish.
#pragma once

#include "Platform.h"
#include "module/Failure.h"
#include "module/Lock.h"

// The Group Policy functions of Userenv.dll, bound when they are first needed. Each stays null where the library does
// not have it, and every use asks.
struct gpoPointers {
    using RegisterProc = BOOL(WINAPI*)(HANDLE event, BOOL machine);
    using UnregisterProc = BOOL(WINAPI*)(HANDLE event);
    using EnterProc = HANDLE(WINAPI*)(BOOL machine);
    using LeaveProc = BOOL(WINAPI*)(HANDLE section);

    gpoPointers() noexcept = default;
    ~gpoPointers();
    gpoPointers(const gpoPointers&) = delete;
    gpoPointers& operator=(const gpoPointers&) = delete;

    // True on the one call that has just loaded the library. A failure is tried again at the next call.
    bool LoadLib() noexcept;
    // A new event that the engine signals when the machine's policy has changed, the caller's to close; null where
    // there is no engine. Raises what CreateEventW fails with.
    HANDLE Register() const;

    HMODULE hLib = nullptr;
    EnterProc pEnterCPS = nullptr;
    LeaveProc pLeaveCPS = nullptr;
    RegisterProc pRegister = nullptr;
    UnregisterProc pUnregister = nullptr;
};

// Runs one refresh of the object.
using RefreshProc = void (*)(void* object) noexcept;

// Opens a gate to the object; its number is the context of the wait. Raises std::bad_alloc.
ULONG_PTR OpenRefreshGate(void* object, RefreshProc refresh);
// From its return on no refresh of that object runs, but for one on this very thread, and none will. True when there is
// such a one: the wait must then not be waited for.
bool CloseRefreshGate(ULONG_PTR gate) noexcept;
// Whether a refresh of that object runs on this very thread.
bool IsRefreshedHere(const void* object) noexcept;
// What the wait pool calls at each signal: `context` is a gate's number.
void CALLBACK RefreshWaitCallback(PVOID context, BOOLEAN timedOut);

// The base of an object that is refreshed by T::GPOThreadProc(object).
template <class T>
class CGPNotifyImpl {
  protected:
    CGPNotifyImpl() noexcept = default;
    ~CGPNotifyImpl() { DropNotification(); }

    // Not 0 when the wait stands. The caller holds the object's lock.
    BOOL RegisterGPNotification() {
        OVTraceNS::CTraceScope scope("CGPNotifyImpl::RegisterGPNotification", 0);
        m_event = m_gpo.Register();
        if (!m_event) return FALSE;
        m_gate = OpenRefreshGate(static_cast<T*>(this), &T::GPOThreadProc);
        const BOOL registered = RegisterWaitForSingleObject(
            &m_wait, m_event, &RefreshWaitCallback, reinterpret_cast<PVOID>(m_gate), INFINITE, WT_EXECUTELONGFUNCTION);
        if (!registered) m_wait = nullptr;
        scope.Print("RegisterWaitForSingleObject(GPO) = %d", registered);
        return registered;
    }

    // The engine is told first, so that nothing new is signalled; then the gate is closed and the wait goes; the handle
    // that both of them use goes last. The caller must not hold the object's lock.
    void DropNotification() noexcept {
        if (m_event && m_gpo.pUnregister) m_gpo.pUnregister(m_event);
        const bool fromRefresh = m_gate && CloseRefreshGate(m_gate);
        m_gate = 0;
        if (m_wait) UnregisterWaitEx(m_wait, fromRefresh ? nullptr : INVALID_HANDLE_VALUE);
        m_wait = nullptr;
        if (m_event) CloseHandle(m_event);
        m_event = nullptr;
    }

  private:
    HANDLE m_event = nullptr;  // auto-reset, without a name; null when there is none
    HANDLE m_wait = nullptr;
    ULONG_PTR m_gate = 0;

  protected:
    gpoPointers m_gpo;
};
