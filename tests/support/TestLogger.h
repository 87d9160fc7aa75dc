// An event log component of the tests' own, in a library as the suite's lies: it hands each event to the test.
#pragma once

#include "Platform.h"

struct TestLoggerHook {
    // Answers the call. What it throws flies out of the component.
    HRESULT(*take)
    (void* context, LPCWSTR application, DWORD level, DWORD type, DWORD category, DWORD id, DWORD count,
     const LPCWSTR* strings);
    void* context;
};

// While HKEY_LOCAL_MACHINE has this key the library throws an exception of its own, whose code goes with it.
inline constexpr LPCWSTR kTestLoggerThrows = W("SOFTWARE\\OvTestLoggerThrows");

// The library's hook, exported as OvTestLoggerHook; null in it: the call is answered with 0.
using TestLoggerHookProc = TestLoggerHook*(WINAPI*)();
