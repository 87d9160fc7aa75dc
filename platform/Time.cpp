#include "win/time.h"

#include <ctime>

namespace {

// The broken-down time of one second, kept by each thread for the rest of that minute: within it only the seconds
// change, whatever the time zone does.
struct Minute {
    std::time_t from = 0;
    std::time_t until = 0;  // first second that it does not serve
    std::tm parts = {};     // those of `from`
};

// The local time of `second`, without the C library's lock where the minute is known.
std::tm LocalTimeOf(std::time_t second) noexcept {
    __attribute__((tls_model("initial-exec"))) static thread_local Minute minute;
    if (second < minute.from || second >= minute.until) {
        if (!localtime_r(&second, &minute.parts)) minute.parts = {};
        minute.from = second;
        minute.until = second + (minute.parts.tm_sec < 60 ? 60 - minute.parts.tm_sec : 1);
    }
    std::tm parts = minute.parts;
    parts.tm_sec += static_cast<int>(second - minute.from);
    return parts;
}

}  // namespace

DWORD WINAPI GetTickCount() {
    timespec now;
    clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
    return static_cast<DWORD>(now.tv_sec) * 1000u + static_cast<DWORD>(now.tv_nsec) / 1000000u;
}

void WINAPI GetLocalTime(SYSTEMTIME* time) {
    timespec now;
    clock_gettime(CLOCK_REALTIME_COARSE, &now);
    const std::tm local = LocalTimeOf(now.tv_sec);
    time->wYear = static_cast<WORD>(local.tm_year + 1900);
    time->wMonth = static_cast<WORD>(local.tm_mon + 1);
    time->wDayOfWeek = static_cast<WORD>(local.tm_wday);
    time->wDay = static_cast<WORD>(local.tm_mday);
    time->wHour = static_cast<WORD>(local.tm_hour);
    time->wMinute = static_cast<WORD>(local.tm_min);
    time->wSecond = static_cast<WORD>(local.tm_sec);
    time->wMilliseconds = static_cast<WORD>(now.tv_nsec / 1000000);
}
