// Locks, threads and kernel handles.
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

OVLAYER_API DWORD WINAPI GetCurrentThreadId();
OVLAYER_API DWORD WINAPI GetCurrentProcessId();

// Named mutexes are seen inside the process only: their existence is all that this tree asks of them. Opening one that
// exists succeeds with the last error ERROR_ALREADY_EXISTS.
OVLAYER_API HANDLE WINAPI CreateMutexW(LPSECURITY_ATTRIBUTES security, BOOL initialOwner, LPCWSTR name);
OVLAYER_API BOOL WINAPI CloseHandle(HANDLE handle);

#define INFINITE 0xFFFFFFFFu
#define WAIT_OBJECT_0 0u
#define WAIT_TIMEOUT 258u
#define WAIT_FAILED 0xFFFFFFFFu

// Events without a name: a name gives null and ERROR_NOT_SUPPORTED.
OVLAYER_API HANDLE WINAPI CreateEventW(LPSECURITY_ATTRIBUTES security, BOOL manualReset, BOOL initialState,
                                       LPCWSTR name);
OVLAYER_API BOOL WINAPI SetEvent(HANDLE event);
OVLAYER_API BOOL WINAPI ResetEvent(HANDLE event);
// Events only. `milliseconds` may be INFINITE.
OVLAYER_API DWORD WINAPI WaitForSingleObject(HANDLE event, DWORD milliseconds);

// The wait pool: `callback` runs on a thread of it each time the event is signalled, several at once when signals come
// faster than they are dealt with. Served: INFINITE, and the flags WT_EXECUTEDEFAULT, WT_EXECUTELONGFUNCTION and
// WT_EXECUTEONLYONCE.
using WAITORTIMERCALLBACK = void(CALLBACK*)(PVOID context, BOOLEAN timedOut);
#define WT_EXECUTEDEFAULT 0x00u
#define WT_EXECUTEONLYONCE 0x08u
#define WT_EXECUTELONGFUNCTION 0x10u
OVLAYER_API BOOL WINAPI RegisterWaitForSingleObject(HANDLE* wait, HANDLE event, WAITORTIMERCALLBACK callback,
                                                    PVOID context, ULONG milliseconds, ULONG flags);
// From its return on no new callback begins. `completion` INVALID_HANDLE_VALUE: and none is running any more. Null: one
// that has begun goes on, and the answer is FALSE with ERROR_IO_PENDING (997). An event is not served.
OVLAYER_API BOOL WINAPI UnregisterWaitEx(HANDLE wait, HANDLE completion);
