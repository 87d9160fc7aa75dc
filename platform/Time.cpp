#include "win/time.h"

#include <ctime>

#include "LocalMinute.h"

DWORD WINAPI GetTickCount() {
    timespec now;
    clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
    return static_cast<DWORD>(now.tv_sec) * 1000u + static_cast<DWORD>(now.tv_nsec) / 1000000u;
}

void WINAPI GetLocalTime(SYSTEMTIME* time) {
    timespec now;
    clock_gettime(CLOCK_REALTIME_COARSE, &now);
    __attribute__((tls_model("initial-exec"))) static thread_local CLocalMinute minute;
    const std::tm local = minute.At(now.tv_sec);
    time->wYear = static_cast<WORD>(local.tm_year + 1900);
    time->wMonth = static_cast<WORD>(local.tm_mon + 1);
    time->wDayOfWeek = static_cast<WORD>(local.tm_wday);
    time->wDay = static_cast<WORD>(local.tm_mday);
    time->wHour = static_cast<WORD>(local.tm_hour);
    time->wMinute = static_cast<WORD>(local.tm_min);
    time->wSecond = static_cast<WORD>(local.tm_sec);
    time->wMilliseconds = static_cast<WORD>(now.tv_nsec / 1000000);
}
