// Trace files, read record by record: docs/trace-format.md draws them.
//
// A file is read by large blocks, and a record costs no memory of its own. What cannot be a record ends the reading;
// what was before stands. A file that grows may be read on from where it ended.
#pragma once

#include <cstdint>
#include <fstream>
#include <string>
#include <string_view>
#include <vector>

#include "Platform.h"

// Milliseconds of local time since 1970, as the file tells them; kNoTime before the first time record.
using TraceTime = std::int64_t;
inline constexpr TraceTime kNoTime = INT64_MIN;
inline constexpr TraceTime kDay = 24 * 60 * 60 * 1000;

// The beginning of a day; kNoTime for what is none.
TraceTime TraceDay(int year, int month, int day) noexcept;
// "2026-11-23" and "20:31:12.763" into `out`, which has room for them; no NUL.
inline constexpr std::size_t kTraceDateText = 10;
inline constexpr std::size_t kTraceClockText = 12;
void PutTraceDate(TraceTime time, char* out) noexcept;
void PutTraceClock(TraceTime time, char* out) noexcept;

struct CTraceRecord {
    DWORD thread;
    char tag;               // '>', '<', 'U', 'E' or 'N'; times are in `time`
    std::string_view text;  // deciphered; good until the next record
    TraceTime time;
};

class CTraceReader {
  public:
    // Reads the head. Throws CCommandFailure (4) for a file that cannot be read or is no trace file.
    explicit CTraceReader(const std::string& path);

    const std::string& Path() const noexcept { return m_path; }
    // The lines of the head, without their ends, up to the point.
    const std::vector<std::string>& Head() const noexcept { return m_head; }
    // When the file was begun; kNoTime when the head does not say.
    TraceTime Begun() const noexcept { return m_begun; }

    // False at the end, and where the file is damaged: Fault is not empty then. After the end it may be asked again.
    bool Next(CTraceRecord& record);
    // "at byte 123: found ..., expected ...", of a damaged file; of a cut one once nothing more is to come.
    const std::string& Fault() const noexcept { return m_fault; }
    std::string CutFault() const;

    // Whether the file is shorter by now than what was read of it: it was begun anew.
    bool WasBegunAnew() const;

  private:
    std::uint64_t Offset() const noexcept { return m_blockStart + m_at; }
    std::size_t Left() const noexcept { return m_block.size() - m_at; }
    bool Fill(std::size_t wanted);
    void ReadHead();
    bool TakeTime(char tag, std::string_view text);
    bool Fail(const std::string& found, const char* expected);

    std::string m_path;
    std::ifstream m_file;
    std::vector<char> m_block;
    std::uint64_t m_blockStart = 0;  // where in the file the block begins
    std::size_t m_at = 0;            // in the block
    std::vector<std::string> m_head;
    TraceTime m_begun = kNoTime;
    TraceTime m_day = kNoTime;  // of the last date
    TraceTime m_time = kNoTime;
    std::string m_fault;
};
