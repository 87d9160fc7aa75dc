// Critical sections, and who is running.
//
// Entering a free section is one compare-and-swap, leaving it a plain store: the costly half of the agreement with a
// sleeper is the sleeper's. It says that it waits, then has every running thread of the process pass a memory barrier
// (membarrier), then looks at the owner once more. So a thread that leaves either had its store seen by that look, or
// sees that somebody waits.
#include "win/sync.h"

#include <linux/futex.h>
#include <linux/membarrier.h>
#include <pthread.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <ctime>

namespace {

// Long enough for a holder on another processor that does a lookup, short against a sleep and a wake.
constexpr int kSpins = 100;

// How long a sleeper trusts nobody to wake it where the system has no such barrier.
constexpr timespec kPollWithoutBarrier = {0, 1000000};

// An address that no two living threads share. The child of a fork keeps that of the thread that forked.
std::uint64_t Self() noexcept {
    __attribute__((tls_model("initial-exec"))) static thread_local char mark;
    return reinterpret_cast<std::uint64_t>(&mark);
}

std::atomic_ref<std::uint64_t> Owner(CRITICAL_SECTION& section) noexcept {
    return std::atomic_ref<std::uint64_t>(section.owner);
}

std::atomic_ref<std::uint32_t> Waiting(CRITICAL_SECTION& section) noexcept {
    return std::atomic_ref<std::uint32_t>(section.waiting);
}

bool TakenIfFree(CRITICAL_SECTION& section, std::uint64_t self) noexcept {
    std::uint64_t expected = 0;
    if (!Owner(section).compare_exchange_strong(expected, self, std::memory_order_acquire)) return false;
    section.recursion = 1;
    return true;
}

void Pause() noexcept {
#if defined(__x86_64__) || defined(__i386__)
    __builtin_ia32_pause();
#elif defined(__aarch64__)
    asm volatile("yield");
#endif
}

bool TakenBySpinning(CRITICAL_SECTION& section, std::uint64_t self) noexcept {
    static const int spins = sysconf(_SC_NPROCESSORS_ONLN) > 1 ? kSpins : 0;
    for (int left = spins; left > 0; --left) {
        if (Owner(section).load(std::memory_order_relaxed) == 0 && TakenIfFree(section, self)) return true;
        // Others sleep already: the wait is a long one.
        if (Waiting(section).load(std::memory_order_relaxed) != 0) return false;
        Pause();
    }
    return false;
}

bool BarrierOnAllThreads() noexcept {
    return syscall(SYS_membarrier, MEMBARRIER_CMD_PRIVATE_EXPEDITED, 0, 0) == 0;
}

__attribute__((noinline, cold)) void WaitAndTake(CRITICAL_SECTION& section, std::uint64_t self) noexcept {
    if (TakenBySpinning(section, self)) return;
    const int saved = errno;
    for (;;) {
        Waiting(section).store(1, std::memory_order_seq_cst);
        const bool willBeWoken = BarrierOnAllThreads();
        // Taken with the mark left in place: whoever comes out of the wait cannot know that nobody else waits.
        if (TakenIfFree(section, self)) break;
        syscall(SYS_futex, &section.waiting, FUTEX_WAIT_PRIVATE, 1, willBeWoken ? nullptr : &kPollWithoutBarrier,
                nullptr, 0);
    }
    errno = saved;
}

// The one that is woken sets the mark again.
__attribute__((noinline, cold)) void WakeOne(CRITICAL_SECTION& section) noexcept {
    const int saved = errno;
    Waiting(section).store(0, std::memory_order_seq_cst);
    syscall(SYS_futex, &section.waiting, FUTEX_WAKE_PRIVATE, 1, nullptr, nullptr, 0);
    errno = saved;
}

// The thread's number, asked of the system once. The child of a fork has another one.
__attribute__((tls_model("initial-exec"))) thread_local DWORD threadId = 0;

void RegisterForBarriers() noexcept {
    syscall(SYS_membarrier, MEMBARRIER_CMD_REGISTER_PRIVATE_EXPEDITED, 0, 0);
}

void InChild() noexcept {
    threadId = 0;
    RegisterForBarriers();
}

__attribute__((constructor)) void Start() {
    RegisterForBarriers();
    pthread_atfork(nullptr, nullptr, InChild);
}

}  // namespace

void WINAPI InitializeCriticalSection(LPCRITICAL_SECTION section) {
    *section = {};
}

// The wait adapts itself; the count is a hint that this home does not need.
BOOL WINAPI InitializeCriticalSectionAndSpinCount(LPCRITICAL_SECTION section, DWORD) {
    InitializeCriticalSection(section);
    return TRUE;
}

void WINAPI DeleteCriticalSection(LPCRITICAL_SECTION section) {
    *section = {};
}

void WINAPI EnterCriticalSection(LPCRITICAL_SECTION section) {
    const std::uint64_t self = Self();
    // Only its own value ever equals a thread's identity, so that no order is needed to see it.
    if (Owner(*section).load(std::memory_order_relaxed) == self) {
        ++section->recursion;
    } else if (!TakenIfFree(*section, self)) {
        WaitAndTake(*section, self);
    }
}

void WINAPI LeaveCriticalSection(LPCRITICAL_SECTION section) {
    // Leaving what another thread holds is a fault of the caller; the lock stays whole.
    if (Owner(*section).load(std::memory_order_relaxed) != Self() || --section->recursion != 0) return;
    Owner(*section).store(0, std::memory_order_release);
    std::atomic_signal_fence(std::memory_order_seq_cst);  // the compiler keeps the order; the sleeper sees to the rest
    if (Waiting(*section).load(std::memory_order_relaxed) != 0) WakeOne(*section);
}

DWORD WINAPI GetCurrentThreadId() {
    if (threadId == 0) threadId = static_cast<DWORD>(gettid());
    return threadId;
}

DWORD WINAPI GetCurrentProcessId() {
    return static_cast<DWORD>(getpid());
}
