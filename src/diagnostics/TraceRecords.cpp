#include "diagnostics/TraceRecords.h"

#include <algorithm>
#include <charconv>
#include <cstring>

namespace OVTraceNS {

namespace {

// The last `digits` decimal digits of the number; gives the end.
char* PutDigits(char* out, int digits, unsigned number) noexcept {
    for (int i = digits - 1; i >= 0; --i, number /= 10) out[i] = static_cast<char>('0' + number % 10);
    return out + digits;
}

bool SameDate(const SYSTEMTIME& a, const SYSTEMTIME& b) noexcept {
    return a.wYear == b.wYear && a.wMonth == b.wMonth && a.wDay == b.wDay;
}

bool SameTime(const SYSTEMTIME& a, const SYSTEMTIME& b) noexcept {
    return a.wHour == b.wHour && a.wMinute == b.wMinute && a.wSecond == b.wSecond && a.wMilliseconds == b.wMilliseconds;
}

}  // namespace

DWORD TraceRecordBuffer::Fill(TraceTag tag, const char* bytes, std::size_t length) noexcept {
    record = {GetCurrentThreadId(), tag, static_cast<WORD>(length)};
    if (length != 0) std::memcpy(text, bytes, length);
    return static_cast<DWORD>(sizeof record + length);
}

TimeStamp TimeStampNeeded(const SYSTEMTIME& last, const SYSTEMTIME& now) noexcept {
    if (!SameDate(last, now)) return TimeStamp::kDateAndTime;
    return SameTime(last, now) ? TimeStamp::kNone : TimeStamp::kTime;
}

void PutDate(const SYSTEMTIME& time, char (&out)[kDateText]) noexcept {
    char* at = PutDigits(out, 2, time.wMonth);
    *at++ = '/';
    at = PutDigits(at, 2, time.wDay);
    *at++ = '/';
    PutDigits(at, 2, time.wYear);  // the century is not told
}

void PutLongDate(const SYSTEMTIME& time, char (&out)[kReopenedText]) noexcept {
    char* at = PutDigits(out, 2, time.wMonth);
    *at++ = '-';
    at = PutDigits(at, 2, time.wDay);
    *at++ = '-';
    PutDigits(at, 4, time.wYear);
}

void PutTime(const SYSTEMTIME& time, char (&out)[kTimeText]) noexcept {
    char* at = PutDigits(out, 2, time.wHour);
    *at++ = ':';
    at = PutDigits(at, 2, time.wMinute);
    *at++ = ':';
    at = PutDigits(at, 2, time.wSecond);
    *at++ = '.';
    PutDigits(at, 3, time.wMilliseconds);
}

std::size_t PutResult(HRESULT hr, const char* text, char (&out)[kMaxResultText]) noexcept {
    char* at = std::to_chars(out, out + sizeof out, static_cast<int>(hr)).ptr;
    *at++ = ' ';
    if (text) {
        const std::size_t length = std::min(std::strlen(text), static_cast<std::size_t>(out + sizeof out - at));
        std::memcpy(at, text, length);
        at += length;
    }
    return static_cast<std::size_t>(at - out);
}

}  // namespace OVTraceNS
