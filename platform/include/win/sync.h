// Locks, atomic counts, threads and kernel handles.
#pragma once

#include "win/types.h"

// Recursive, owned by a thread. The fields are the layer's own. Delete it when no thread is in any of its calls.
struct CRITICAL_SECTION {
    std::uint64_t owner;      // identity of the holding thread, 0 when free
    std::uint32_t waiting;    // 1 when a thread sleeps, or is about to
    std::uint32_t recursion;  // belongs to the holder
};
using LPCRITICAL_SECTION = CRITICAL_SECTION*;

OVLAYER_API void WINAPI InitializeCriticalSection(LPCRITICAL_SECTION section);
OVLAYER_API BOOL WINAPI InitializeCriticalSectionAndSpinCount(LPCRITICAL_SECTION section, DWORD spinCount);
OVLAYER_API void WINAPI DeleteCriticalSection(LPCRITICAL_SECTION section);
OVLAYER_API void WINAPI EnterCriticalSection(LPCRITICAL_SECTION section);
OVLAYER_API void WINAPI LeaveCriticalSection(LPCRITICAL_SECTION section);

inline LONG InterlockedIncrement(LONG volatile* value) noexcept {
    return __atomic_add_fetch(value, 1, __ATOMIC_SEQ_CST);
}
inline LONG InterlockedDecrement(LONG volatile* value) noexcept {
    return __atomic_sub_fetch(value, 1, __ATOMIC_SEQ_CST);
}
inline LONG InterlockedExchange(LONG volatile* target, LONG value) noexcept {
    return __atomic_exchange_n(target, value, __ATOMIC_SEQ_CST);
}

OVLAYER_API DWORD WINAPI GetCurrentThreadId();
OVLAYER_API DWORD WINAPI GetCurrentProcessId();

// Named mutexes are seen inside the process only: their existence is all that this tree asks of them. Opening one that
// exists succeeds with the last error ERROR_ALREADY_EXISTS.
OVLAYER_API HANDLE WINAPI CreateMutexW(LPSECURITY_ATTRIBUTES security, BOOL initialOwner, LPCWSTR name);
OVLAYER_API BOOL WINAPI CloseHandle(HANDLE handle);
