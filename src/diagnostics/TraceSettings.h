// Where the trace settings lie. diagnostics/TraceConfig.h says what they mean.
#pragma once

#include "Platform.h"
#include "module/RegistryKey.h"

namespace OVTraceNS {

inline constexpr LPCWSTR kTracingKey = W("SOFTWARE\\Orvantis\\Tracing");

// A module of either width finds the settings of a computer that has them in the 32-bit view only.
inline bool OpenTracingKey(CRegistryKey& key) noexcept {
    return key.Open(HKEY_LOCAL_MACHINE, kTracingKey, KEY_READ) == ERROR_SUCCESS ||
           key.Open(HKEY_LOCAL_MACHINE, kTracingKey, KEY_READ | KEY_WOW64_32KEY) == ERROR_SUCCESS;
}

}  // namespace OVTraceNS
