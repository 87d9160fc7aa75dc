// Trace records as bytes, and which time records stand before one.
#include "diagnostics/TraceRecords.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

namespace {

using namespace OVTraceNS;

TEST(TraceRecords, LayOutTheirFieldsWithoutGaps) {
    TraceRecordBuffer buffer;
    ASSERT_EQ(buffer.Fill(TraceTag::kEnter, "abc", 3), 10u);
    EXPECT_EQ(buffer.record.threadId, GetCurrentThreadId());
    buffer.record.threadId = 0x1234;
    EXPECT_EQ(std::memcmp(&buffer, "\x34\x12\x00\x00\x3E\x03\x00\x61\x62\x63", 10), 0);
    EXPECT_EQ(buffer.Fill(TraceTag::kLeave, nullptr, 0), 7u);
}

TEST(TraceRecords, StampsSayWhatIsNew) {
    // Year, month, day of the week, day, hour, minute, second, millisecond.
    constexpr SYSTEMTIME kNone = {};
    constexpr SYSTEMTIME kLast = {2014, 2, 4, 20, 23, 59, 59, 999};
    const struct {
        const char* why;
        SYSTEMTIME last;
        SYSTEMTIME now;
        TimeStamp expected;
    } kRows[] = {
        {"the first record of a process", kNone, kLast, TimeStamp::kDateAndTime},
        {"the same millisecond", kLast, kLast, TimeStamp::kNone},
        {"a millisecond later", {2014, 2, 4, 20, 23, 59, 59, 998}, kLast, TimeStamp::kTime},
        {"the millisecond agrees, the second does not", {2014, 2, 4, 20, 23, 59, 58, 999}, kLast, TimeStamp::kTime},
        {"only the minute", {2014, 2, 4, 20, 23, 58, 59, 999}, kLast, TimeStamp::kTime},
        {"only the hour", {2014, 2, 4, 20, 22, 59, 59, 999}, kLast, TimeStamp::kTime},
        {"the next day at the same time", kLast, {2014, 2, 5, 21, 23, 59, 59, 999}, TimeStamp::kDateAndTime},
        {"the next month at the same time", kLast, {2014, 3, 4, 20, 23, 59, 59, 999}, TimeStamp::kDateAndTime},
        {"the next year at the same time", kLast, {2015, 2, 4, 20, 23, 59, 59, 999}, TimeStamp::kDateAndTime},
        {"the day of the week is not compared", kLast, {2014, 2, 5, 20, 23, 59, 59, 999}, TimeStamp::kNone},
    };
    for (const auto& row : kRows) EXPECT_EQ(TimeStampNeeded(row.last, row.now), row.expected) << row.why;
}

TEST(TraceRecords, WriteDateAndTime) {
    const struct {
        SYSTEMTIME time;
        const char* date;
        const char* clock;
    } kRows[] = {
        {{2014, 2, 4, 20, 13, 4, 54, 7}, "02/20/14", "13:04:54.007"},
        {{2005, 12, 6, 31, 0, 0, 0, 0}, "12/31/05", "00:00:00.000"},
        {{2000, 1, 6, 1, 23, 59, 59, 999}, "01/01/00", "23:59:59.999"},
    };
    for (const auto& row : kRows) {
        char date[kDateText];
        char clock[kTimeText];
        PutDate(row.time, date);
        PutTime(row.time, clock);
        EXPECT_EQ(std::string(date, kDateText), row.date);
        EXPECT_EQ(std::string(clock, kTimeText), row.clock);
    }
}

TEST(TraceRecords, ResultsAreCutAt260Bytes) {
    char out[kMaxResultText];
    EXPECT_EQ(std::string(out, PutResult(1, std::string(300, 'x').c_str(), out)), "1 " + std::string(258, 'x'));
}

}  // namespace
