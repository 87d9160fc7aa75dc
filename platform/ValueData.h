// How the data of a value is handed out.
#pragma once

#include <cstring>

#include "HiveView.h"
#include "win/registry.h"

// `size` in bytes: the room on entry, which is not looked at without a buffer, and the stored size on return.
// ERROR_MORE_DATA (234) when the buffer is too small; it stays as it is then. Text that was stored without its NUL gets
// one that is not counted, where there is room for it.
inline DWORD CopyValueData(const CValue& value, LPBYTE data, LPDWORD size) noexcept {
    if (!size) return ERROR_SUCCESS;
    const DWORD room = *size;
    *size = value.size;
    if (!data) return ERROR_SUCCESS;
    if (room < value.size) return ERROR_MORE_DATA;
    if (value.size == 0) return ERROR_SUCCESS;
    std::memcpy(data, value.data, value.size);
    const bool isText = value.type == REG_SZ || value.type == REG_EXPAND_SZ || value.type == REG_MULTI_SZ;
    constexpr BYTE kNul[sizeof(WCHAR)] = {};
    if (!isText || room - value.size < sizeof kNul) return ERROR_SUCCESS;
    if (value.size >= sizeof kNul && std::memcmp(data + value.size - sizeof kNul, kNul, sizeof kNul) == 0) {
        return ERROR_SUCCESS;
    }
    std::memcpy(data + value.size, kNul, sizeof kNul);
    return ERROR_SUCCESS;
}
