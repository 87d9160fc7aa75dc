// The records of the trace stream, as bytes.
//
//   4  thread id, unsigned
//   1  tag, one of TraceTag
//   2  length of the text in bytes, 0 allowed
//   n  text, without a terminator; the file output enciphers it
//
// Numbers are little-endian, nothing is aligned. Time is told by records of its own, which hold for all records behind
// them until the next one.
#pragma once

#include <cstddef>

#include "Platform.h"

namespace OVTraceNS {

enum class TraceTag : char {
    kDate = 't',
    kTime = 'T',
    kEnter = '>',
    kLeave = '<',
    kMessage = 'U',  // UTF-8
    kResult = 'E',
    kReopened = 'N',  // a file that is gone on with
};

#pragma pack(push, 1)
struct TraceRecord {
    DWORD threadId;
    TraceTag tag;
    WORD length;
};
#pragma pack(pop)
static_assert(sizeof(TraceRecord) == 7);

// The longest texts: a message is the longest of them.
inline constexpr std::size_t kMaxNameText = 99;
inline constexpr std::size_t kMaxMessageText = 399;
inline constexpr std::size_t kMaxResultText = 260;

// A record with room for any text.
struct TraceRecordBuffer {
    TraceRecord record;
    char text[kMaxMessageText];

    // Fills the record for this thread; gives its size. `length` is at most kMaxMessageText.
    DWORD Fill(TraceTag tag, const char* bytes, std::size_t length) noexcept;
};
static_assert(offsetof(TraceRecordBuffer, text) == sizeof(TraceRecord));

// Which time records must stand before the next record, when the last one bore the time `last`.
enum class TimeStamp { kNone, kTime, kDateAndTime };
TimeStamp TimeStampNeeded(const SYSTEMTIME& last, const SYSTEMTIME& now) noexcept;

// "02/20/14" and "13:04:54.007", without NUL.
inline constexpr std::size_t kDateText = 8;
inline constexpr std::size_t kTimeText = 12;
void PutDate(const SYSTEMTIME& time, char (&out)[kDateText]) noexcept;
void PutTime(const SYSTEMTIME& time, char (&out)[kTimeText]) noexcept;

// "02-20-2014", without NUL.
inline constexpr std::size_t kReopenedText = 10;
void PutLongDate(const SYSTEMTIME& time, char (&out)[kReopenedText]) noexcept;

// "-2147024891 " and the text, cut at the end of the buffer; gives the length. A null text is empty.
std::size_t PutResult(HRESULT hr, const char* text, char (&out)[kMaxResultText]) noexcept;

}  // namespace OVTraceNS
