#include "Event.h"

#include <chrono>
#include <new>
#include <utility>

#include "WaitPool.h"

namespace {

BOOL Failed(DWORD error) noexcept {
    SetLastError(error);
    return FALSE;
}

}  // namespace

CRegisteredWait::CRegisteredWait(WAITORTIMERCALLBACK callback, PVOID context, bool once)
    : m_callback(callback), m_context(context), m_once(once), m_pool(CountWait()) {}

void CRegisteredWait::Fire() noexcept {
    const std::lock_guard lock(m_lock);
    if (m_closed) return;
    m_pending = true;
    if (m_running) return;
    m_running = true;
    // For want of a thread the signal waits for the next one.
    if (!RunOnWaitPool(shared_from_this())) m_running = false;
}

void CRegisteredWait::Run() noexcept {
    std::unique_lock lock(m_lock);
    while (m_pending && !m_closed) {
        m_pending = false;
        m_closed = m_once;
        lock.unlock();
        m_callback(m_context, FALSE);
        lock.lock();
    }
    m_running = false;
    m_done.notify_all();
}

bool CRegisteredWait::Close(bool waitForCall) noexcept {
    std::unique_lock lock(m_lock);
    m_closed = true;
    if (waitForCall) m_done.wait(lock, [this] { return !m_running; });
    const bool done = !m_running;
    const void* pool = std::exchange(m_pool, nullptr);
    lock.unlock();
    if (pool) ForgetWait(pool);
    return done;
}

void CEvent::Set() noexcept {
    const std::lock_guard lock(m_lock);
    if (const std::shared_ptr<CRegisteredWait> wait = m_wait.lock()) {
        wait->Fire();
        return;
    }
    m_signalled = true;
    if (m_manualReset) {
        m_set.notify_all();
    } else {
        m_set.notify_one();
    }
}

void CEvent::Reset() noexcept {
    const std::lock_guard lock(m_lock);
    m_signalled = false;
}

bool CEvent::Wait(DWORD milliseconds) noexcept {
    std::unique_lock lock(m_lock);
    const auto signalled = [this] { return m_signalled; };
    if (milliseconds == INFINITE) {
        m_set.wait(lock, signalled);
    } else if (!m_set.wait_for(lock, std::chrono::milliseconds(milliseconds), signalled)) {
        return false;
    }
    if (!m_manualReset) m_signalled = false;
    return true;
}

bool CEvent::Attach(const std::shared_ptr<CRegisteredWait>& wait) noexcept {
    const std::lock_guard lock(m_lock);
    if (!m_wait.expired()) return false;
    m_wait = wait;
    if (m_signalled) {
        m_signalled = false;
        wait->Fire();
    }
    return true;
}

HANDLE WINAPI CreateEventW(LPSECURITY_ATTRIBUTES security, BOOL manualReset, BOOL initialState, LPCWSTR name) {
    if (security || (name && *name)) {
        SetLastError(ERROR_NOT_SUPPORTED);
        return nullptr;
    }
    try {
        if (HANDLE handle = OpenHandle(std::make_shared<CEvent>(manualReset != FALSE, initialState != FALSE))) {
            return handle;
        }
    } catch (const std::bad_alloc&) {
    }
    SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    return nullptr;
}

BOOL WINAPI SetEvent(HANDLE event) {
    const std::shared_ptr<CEvent> found = ObjectOf<CEvent>(event);
    if (!found) return Failed(ERROR_INVALID_HANDLE);
    found->Set();
    return TRUE;
}

BOOL WINAPI ResetEvent(HANDLE event) {
    const std::shared_ptr<CEvent> found = ObjectOf<CEvent>(event);
    if (!found) return Failed(ERROR_INVALID_HANDLE);
    found->Reset();
    return TRUE;
}

DWORD WINAPI WaitForSingleObject(HANDLE event, DWORD milliseconds) {
    const std::shared_ptr<CEvent> found = ObjectOf<CEvent>(event);
    if (!found) {
        SetLastError(ERROR_INVALID_HANDLE);
        return WAIT_FAILED;
    }
    return found->Wait(milliseconds) ? WAIT_OBJECT_0 : WAIT_TIMEOUT;
}

BOOL WINAPI RegisterWaitForSingleObject(HANDLE* wait, HANDLE event, WAITORTIMERCALLBACK callback, PVOID context,
                                        ULONG milliseconds, ULONG flags) {
    constexpr ULONG kServed = WT_EXECUTEONLYONCE | WT_EXECUTELONGFUNCTION;
    if (wait) *wait = nullptr;
    if (!wait || !callback || milliseconds != INFINITE || (flags & ~kServed) != 0) {
        return Failed(ERROR_INVALID_PARAMETER);
    }
    const std::shared_ptr<CEvent> found = ObjectOf<CEvent>(event);
    if (!found) return Failed(ERROR_INVALID_HANDLE);
    const bool once = (flags & WT_EXECUTEONLYONCE) != 0;
    if (found->IsManualReset() && !once) return Failed(ERROR_INVALID_PARAMETER);  // it would never stop calling
    try {
        const auto made = std::make_shared<CRegisteredWait>(callback, context, once);
        HANDLE handle = OpenHandle(made);
        if (!handle) return Failed(ERROR_NOT_ENOUGH_MEMORY);
        if (!found->Attach(made)) {
            CloseHandle(handle);
            return Failed(ERROR_INVALID_PARAMETER);
        }
        *wait = handle;
        return TRUE;
    } catch (const std::bad_alloc&) {
        return Failed(ERROR_NOT_ENOUGH_MEMORY);
    }
}

BOOL WINAPI UnregisterWaitEx(HANDLE wait, HANDLE completion) {
    if (completion && completion != INVALID_HANDLE_VALUE) return Failed(ERROR_INVALID_PARAMETER);
    const auto found = ObjectOf<CRegisteredWait>(wait);
    if (!found) return Failed(ERROR_INVALID_HANDLE);
    CloseHandle(wait);
    return found->Close(completion == INVALID_HANDLE_VALUE) ? TRUE : Failed(ERROR_IO_PENDING);
}
