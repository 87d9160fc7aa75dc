#include "diagnostics/TraceScope.h"

#include <cstdlib>
#include <cstring>

#include "diagnostics/TraceEngine.h"

namespace OVTraceNS {

namespace {

constexpr int kWorkRoom = 400;  // of the format and of the message, in units with the NUL

// Failures, and the codes of facility 9, which count as such though they are not negative.
bool IsWorthARecord(HRESULT hr) noexcept {
    return hr < 0 || (hr & 0x1FFF0000) == 0x00090000;
}

// The format as the formatter takes it: a bare %s or %c means narrow in the messages of this system, so that it gets an
// h. False when it does not fit.
bool WidenFormat(const char* format, WCHAR (&out)[kWorkRoom]) noexcept {
    WCHAR plain[kWorkRoom];
    std::size_t units = 0;
    // ASCII is itself in every code page, and all formats of this system are ASCII.
    while (units < kWorkRoom && static_cast<unsigned char>(format[units]) < 0x80) {
        plain[units] = static_cast<WCHAR>(format[units]);
        if (format[units++] == 0) break;
    }
    const bool whole = units > 0 && plain[units - 1] == 0;
    if (!whole && MultiByteToWideChar(CP_THREAD_ACP, 0, format, -1, plain, kWorkRoom) == 0) return false;
    std::size_t used = 0;
    for (const WCHAR* at = plain; *at; ++at) {
        const bool bare = *at == W('%') && (at[1] == W('s') || at[1] == W('c'));
        if (used + (bare ? 2 : 1) >= kWorkRoom) return false;
        out[used++] = *at;
        if (bare) out[used++] = W('h');
    }
    out[used] = 0;
    return true;
}

// A character that does not fit whole is left out. Gives the length.
std::size_t ToUtf8(const WCHAR* message, char (&out)[kMaxMessageText + 1]) noexcept {
    const auto units = static_cast<int>(std::char_traits<WCHAR>::length(message));
    if (units == 0) return 0;
    const int bytes = WideCharToMultiByte(CP_UTF8, 0, message, units, out, kMaxMessageText, nullptr, nullptr);
    return bytes > 0 ? static_cast<std::size_t>(bytes) : std::strlen(out);
}

}  // namespace

void CTraceScope::Enter(const char* name, LONG level) noexcept {
    CTraceLockGuard lock;
    std::memset(m_name, 0, sizeof m_name);
    std::strncpy(m_name, name ? name : "????", kMaxNameText);
    m_level = level;
    m_entered = true;
    if (!IsWritten()) return;
    WriteTimeStamp();
    WriteRecord(TraceTag::kEnter, m_name, std::strlen(m_name));
}

void CTraceScope::Leave() noexcept {
    CTraceLockGuard lock;
    if (!IsWritten()) return;
    WriteTimeStamp();
    WriteRecord(TraceTag::kLeave, nullptr, 0);
}

void CTraceScope::Write(const char* format, std::span<const OVFormat::CArgument> arguments) noexcept {
    CTraceLockGuard lock;
    if (!IsWritten()) return;
    char text[kMaxMessageText + 1] = {};
    std::size_t length = 0;
    if (format && *format) {
        WCHAR wideFormat[kWorkRoom];
        if (!WidenFormat(format, wideFormat)) return;
        WCHAR message[kWorkRoom];
        OVFormat::FormatCut(message, kWorkRoom, wideFormat, arguments);
        length = ToUtf8(message, text);
    }
    WriteTimeStamp();
    WriteRecord(TraceTag::kMessage, text, length);
}

void CTraceScope::WriteResult(const char* text, HRESULT hr) noexcept {
    if (!IsWorthARecord(hr)) return;
    CTraceLockGuard lock;
    WriteTimeStamp();
    char record[kMaxResultText];
    WriteRecord(TraceTag::kResult, record, PutResult(hr, text, record));
}

bool CTraceScope::IsWritten() const noexcept {
    if (!m_entered || !theTraceState.componentEnabled.load(std::memory_order_relaxed)) return false;
    return std::llabs(m_level) <= theTraceState.verbosity.load(std::memory_order_relaxed);
}

// What the clock says, where it says something new. The stamp is the engine's: a reader keeps one clock for the stream.
void CTraceScope::WriteTimeStamp() noexcept {
    SYSTEMTIME now;
    GetLocalTime(&now);
    SYSTEMTIME& last = TheTraceEngine().m_lastStamp;
    const TimeStamp needed = TimeStampNeeded(last, now);
    if (needed == TimeStamp::kNone) return;
    if (needed == TimeStamp::kDateAndTime) {
        char date[kDateText];
        PutDate(now, date);
        WriteRecord(TraceTag::kDate, date, kDateText);
    }
    char time[kTimeText];
    PutTime(now, time);
    WriteRecord(TraceTag::kTime, time, kTimeText);
    last = now;
}

void CTraceScope::WriteRecord(TraceTag tag, const char* text, std::size_t length) noexcept {
    TraceRecordBuffer buffer;
    const DWORD size = buffer.Fill(tag, text, length);
    GetTraceOutput().Write(&buffer.record, size, this);
}

}  // namespace OVTraceNS
