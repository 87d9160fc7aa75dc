#include "svinfo/TraceReader.h"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cstring>
#include <filesystem>

#include "diagnostics/TraceCipher.h"
#include "diagnostics/TraceHeader.h"
#include "diagnostics/TraceRecords.h"
#include "svinfo/Failure.h"
#include "svinfo/Text.h"

namespace {

constexpr std::size_t kBlock = 256 * 1024;
constexpr std::size_t kRecordHead = sizeof(OVTraceNS::TraceRecord);
constexpr std::size_t kLongestHead = 64 * 1024;

std::filesystem::path PathOf(const std::string& path) {
    return std::u8string(path.begin(), path.end());
}

// `digits` decimal digits; -1 when they are none.
int Number(const char* text, int digits) noexcept {
    int number = 0;
    for (int i = 0; i < digits; ++i) {
        if (text[i] < '0' || text[i] > '9') return -1;
        number = number * 10 + (text[i] - '0');
    }
    return number;
}

// "20:31:12.763"; -1 for anything else.
TraceTime ClockOf(const char* text) noexcept {
    const int hour = Number(text, 2), minute = Number(text + 3, 2), second = Number(text + 6, 2),
              milliseconds = Number(text + 9, 3);
    const bool good = text[2] == ':' && text[5] == ':' && text[8] == '.' && hour >= 0 && hour < 24 && minute >= 0 &&
                      minute < 60 && second >= 0 && second < 61 && milliseconds >= 0;
    return good ? ((hour * 60LL + minute) * 60 + second) * 1000 + milliseconds : -1;
}

// The longest text of a tag; nothing for a letter that is none.
int LongestText(char tag) noexcept {
    switch (static_cast<OVTraceNS::TraceTag>(tag)) {
        case OVTraceNS::TraceTag::kDate:
            return OVTraceNS::kDateText;
        case OVTraceNS::TraceTag::kTime:
            return OVTraceNS::kTimeText;
        case OVTraceNS::TraceTag::kEnter:
            return OVTraceNS::kMaxNameText;
        case OVTraceNS::TraceTag::kLeave:
            return 0;
        case OVTraceNS::TraceTag::kMessage:
            return OVTraceNS::kMaxMessageText;
        case OVTraceNS::TraceTag::kResult:
            return OVTraceNS::kMaxResultText;
        case OVTraceNS::TraceTag::kReopened:
            return OVTraceNS::kReopenedText;
    }
    return -1;
}

void PutDigits(char* out, int digits, unsigned number) noexcept {
    for (; digits > 0; number /= 10) out[--digits] = static_cast<char>('0' + number % 10);
}

}  // namespace

TraceTime TraceDay(int year, int month, int day) noexcept {
    using namespace std::chrono;
    const year_month_day date(std::chrono::year(year), std::chrono::month(static_cast<unsigned>(month)),
                              std::chrono::day(static_cast<unsigned>(day)));
    return month < 0 || day < 0 || year < 0 || !date.ok() ? kNoTime : sys_days(date).time_since_epoch().count() * kDay;
}

void PutTraceDate(TraceTime time, char* out) noexcept {
    using namespace std::chrono;
    const TraceTime day = time >= 0 ? time / kDay : (time - kDay + 1) / kDay;
    const year_month_day date{sys_days{days{day}}};
    PutDigits(out, 4, static_cast<unsigned>(static_cast<int>(date.year())));
    out[4] = out[7] = '-';
    PutDigits(out + 5, 2, static_cast<unsigned>(date.month()));
    PutDigits(out + 8, 2, static_cast<unsigned>(date.day()));
}

void PutTraceClock(TraceTime time, char* out) noexcept {
    const auto rest = static_cast<unsigned>(((time % kDay) + kDay) % kDay);
    PutDigits(out, 2, rest / 3600000);
    PutDigits(out + 3, 2, rest / 60000 % 60);
    PutDigits(out + 6, 2, rest / 1000 % 60);
    PutDigits(out + 9, 3, rest % 1000);
    out[2] = out[5] = ':';
    out[8] = '.';
}

CTraceReader::CTraceReader(const std::string& path) : m_path(path), m_file(PathOf(path), std::ios::binary) {
    std::error_code error;
    if (std::filesystem::is_directory(PathOf(path), error)) error = std::make_error_code(std::errc::is_a_directory);
    if (!m_file && !error) error = std::error_code(errno ? errno : EIO, std::generic_category());
    if (error) {
        throw CCommandFailure(ExitCode::BadInput, EscapeControls(path) + ": " + ResultText(ResultOfError(error)));
    }
    ReadHead();
}

// Makes so many bytes follow the place, if the file has them.
bool CTraceReader::Fill(std::size_t wanted) {
    if (Left() >= wanted) return true;
    const std::size_t left = Left();
    m_block.erase(m_block.begin(), m_block.begin() + static_cast<std::ptrdiff_t>(m_at));
    m_blockStart += m_at;
    m_at = 0;
    m_block.resize(std::max(kBlock, left + wanted));
    if (m_file.eof()) {  // moved there again, or a C library that remembers the end would not look for more
        m_file.clear();
        m_file.seekg(static_cast<std::streamoff>(m_blockStart + left));
    }
    m_file.read(m_block.data() + left, static_cast<std::streamsize>(m_block.size() - left));
    m_block.resize(left + static_cast<std::size_t>(m_file.gcount()));
    return m_block.size() >= wanted;
}

void CTraceReader::ReadHead() {
    const std::string where = EscapeControls(m_path) + ":1:1: found ";
    Fill(kLongestHead);
    std::string_view rest(m_block.data(), std::min(m_block.size(), kLongestHead));
    if (!rest.starts_with(OVTraceNS::kTraceMagic)) {
        throw CCommandFailure(ExitCode::BadInput, where + "no trace file, expected one that begins with 'trace3'");
    }
    for (;;) {
        const std::size_t end = rest.find("\r\n");
        if (end == rest.npos) {
            throw CCommandFailure(ExitCode::BadInput, where + "a head that does not end, expected a line with a point");
        }
        const std::string line(rest.substr(0, end));
        rest.remove_prefix(end + 2);
        if (line == ".") break;
        m_head.push_back(line);
    }
    m_at = static_cast<std::size_t>(rest.data() - m_block.data());
    // Its last line: "11/23/2026 20:31:12.763".
    const std::string& last = m_head.back();
    if (last.size() != 23 || last[2] != '/' || last[5] != '/' || last[10] != ' ') return;
    const TraceTime day = TraceDay(Number(&last[6], 4), Number(&last[0], 2), Number(&last[3], 2));
    const TraceTime clock = ClockOf(&last[11]);
    if (day != kNoTime && clock >= 0) m_begun = day + clock;
}

bool CTraceReader::Fail(const std::string& found, const char* expected) {
    m_fault = "at byte " + std::to_string(Offset()) + ": found " + found + ", expected " + expected;
    return false;
}

// Days are told with two digits of the year: those of this century.
bool CTraceReader::TakeTime(char tag, std::string_view text) {
    if (tag == 'T') {
        const TraceTime clock = text.size() == OVTraceNS::kTimeText ? ClockOf(text.data()) : -1;
        if (clock < 0) return false;
        if (m_day != kNoTime) m_time = m_day + clock;
        return true;
    }
    if (text.size() != OVTraceNS::kDateText || text[2] != '/' || text[5] != '/') return false;
    const int year = Number(&text[6], 2);
    const TraceTime day = year < 0 ? kNoTime : TraceDay(2000 + year, Number(&text[0], 2), Number(&text[3], 2));
    if (day == kNoTime) return false;
    m_day = day;
    m_time = std::max(m_time, day);
    return true;
}

bool CTraceReader::Next(CTraceRecord& record) {
    while (m_fault.empty()) {
        if (!Fill(kRecordHead)) return false;
        OVTraceNS::TraceRecord head;
        std::memcpy(&head, m_block.data() + m_at, sizeof head);
        const char tag = static_cast<char>(head.tag);
        const int longest = LongestText(tag);
        if (longest < 0) return Fail("the tag " + HexText(reinterpret_cast<const BYTE*>(&tag), 1), "one of tT><UEN");
        if (head.length > longest) {
            return Fail("a text of " + std::to_string(head.length) + " bytes",
                        ("at most " + std::to_string(longest)).c_str());
        }
        if (!Fill(kRecordHead + head.length)) return false;
        char* const text = m_block.data() + m_at + kRecordHead;
        OVTraceNS::DecipherTraceText(text, head.length);
        const std::string_view view(text, head.length);
        if (tag == 't' || tag == 'T') {
            if (!TakeTime(tag, view)) return Fail("a time that is none", "a date or a time of day");
            m_at += kRecordHead + head.length;
            continue;
        }
        m_at += kRecordHead + head.length;
        record = {head.threadId, tag, view, m_time};
        return true;
    }
    return false;
}

std::string CTraceReader::CutFault() const {
    if (!m_fault.empty() || Left() == 0) return m_fault;
    return "at byte " + std::to_string(Offset()) + ": found " + CountText(Left(), "byte", "bytes") +
           " and the end, expected a whole record";
}

bool CTraceReader::WasBegunAnew() const {
    std::error_code error;
    const auto size = std::filesystem::file_size(PathOf(m_path), error);
    return !error && size < m_blockStart + m_block.size();
}
