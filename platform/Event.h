// Events, and the waits that are registered on them.
//
// A registered wait takes a signal before a thread that waits does. Its callback runs on the wait pool, one call at a
// time; signals that come meanwhile are one signal, and give one more call behind the running one.
//
// Locks    that of a wait may be taken under that of its event, never the other way round. Callbacks run under neither.
#pragma once

#include <condition_variable>
#include <memory>
#include <mutex>

#include "Handles.h"
#include "win/sync.h"

class CRegisteredWait : public CKernelObject, public std::enable_shared_from_this<CRegisteredWait> {
  public:
    // Raises std::bad_alloc.
    CRegisteredWait(WAITORTIMERCALLBACK callback, PVOID context, bool once);

    ~CRegisteredWait() override { Close(false); }

    // One signal more.
    void Fire() noexcept;
    // No new call begins. False when one is running and was not waited for.
    bool Close(bool waitForCall) noexcept;
    // Runs the callback for what was fired: the pool's threads call it.
    void Run() noexcept;

  private:
    std::mutex m_lock;
    std::condition_variable m_done;
    WAITORTIMERCALLBACK m_callback;
    PVOID m_context;
    bool m_once;
    const void* m_pool;  // that counts it; null when it is closed
    bool m_closed = false;
    bool m_pending = false;  // a signal that no call has begun for
    bool m_running = false;  // the pool has it
};

class CEvent : public CKernelObject {
  public:
    CEvent(bool manualReset, bool signalled) noexcept : m_manualReset(manualReset), m_signalled(signalled) {}

    bool IsManualReset() const noexcept { return m_manualReset; }
    void Set() noexcept;
    void Reset() noexcept;
    // False when the time ran out.
    bool Wait(DWORD milliseconds) noexcept;

    // One wait at a time. False when there is one already.
    bool Attach(const std::shared_ptr<CRegisteredWait>& wait) noexcept;

  private:
    std::mutex m_lock;
    std::condition_variable m_set;
    std::weak_ptr<CRegisteredWait> m_wait;  // the handle of the wait owns it
    const bool m_manualReset;
    bool m_signalled;
};
