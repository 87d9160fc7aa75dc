#include "svinfo/TraceView.h"

#include <algorithm>
#include <charconv>
#include <nlohmann/json.hpp>

#include "svinfo/Failure.h"
#include "svinfo/Output.h"
#include "svinfo/Text.h"

namespace {

// What a terminal may be shown as it is.
bool IsPlain(std::string_view text) noexcept {
    return std::all_of(text.begin(), text.end(), [](char c) { return c >= 0x20 && c < 0x7F; });
}

void AppendText(std::string_view text, std::string& out) {
    if (IsPlain(text)) {
        out.append(text);
    } else {
        out += EscapeControls(text);
    }
}

const char* KindOf(char tag) noexcept {
    switch (tag) {
        case '>':
            return "enter";
        case '<':
            return "leave";
        case 'U':
            return "message";
        case 'E':
            return "failure";
        default:
            return "reopened";
    }
}

// A part of a time, up to `separator`; the rest stays. -1 for no number.
int Part(std::string_view& text, char separator) noexcept {
    const std::size_t end = std::min(text.find(separator), text.size());
    int number = -1;
    const auto [stop, error] = std::from_chars(text.data(), text.data() + end, number);
    if (error != std::errc() || stop != text.data() + end || end == 0) return -1;
    text.remove_prefix(std::min(end + 1, text.size()));
    return number;
}

std::optional<TraceTime> ParseDay(std::string_view text) {
    const int year = Part(text, '-'), month = Part(text, '-'), day = Part(text, '-');
    const TraceTime time = text.empty() ? TraceDay(year, month, day) : kNoTime;
    return time == kNoTime ? std::nullopt : std::optional(time);
}

std::optional<TraceTime> ParseClock(std::string_view text) {
    const int hour = Part(text, ':'), minute = Part(text, ':');
    if (hour < 0 || hour > 23 || minute < 0 || minute > 59) return std::nullopt;
    TraceTime time = (hour * 60LL + minute) * 60000;
    if (text.empty()) return time;
    const int second = Part(text, '.');
    if (second < 0 || second > 60 || text.size() > 3) return std::nullopt;
    time += second * 1000LL;
    const std::size_t digits = text.size();
    if (digits == 0) return time;
    int fraction = Part(text, '\0');
    if (fraction < 0) return std::nullopt;
    for (std::size_t i = digits; i < 3; ++i) fraction *= 10;
    return time + fraction;
}

}  // namespace

std::optional<TraceTime> ParseTraceTime(const std::string& text, TraceTime begun) {
    const std::size_t dash = text.find('-');
    if (dash == text.npos) {
        const std::optional<TraceTime> clock = ParseClock(text);
        if (!clock) return std::nullopt;
        return (begun == kNoTime ? 0 : begun - begun % kDay) + *clock;
    }
    const std::size_t gap = text.find_first_of(" T");
    const std::optional<TraceTime> day = ParseDay(std::string_view(text).substr(0, gap));
    if (!day || gap == text.npos) return day;
    const std::optional<TraceTime> clock = ParseClock(std::string_view(text).substr(gap + 1));
    return clock ? std::optional(*day + *clock) : std::nullopt;
}

std::optional<HRESULT> TraceFailure(std::string_view text) noexcept {
    long long number = 0;
    const auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc() && stop != text.data() ? std::optional(static_cast<HRESULT>(number)) : std::nullopt;
}

CTraceThreads::CThread& CTraceThreads::Of(DWORD id) {
    if (!m_last || m_lastId != id) {
        m_last = &m_threads[id];
        m_lastId = id;
    }
    return *m_last;
}

std::size_t CTraceThreads::Follow(const CTraceRecord& record, std::string_view& name) {
    name = {};
    if (record.tag == 'N') {
        m_threads.clear();  // another process goes on with the file
        m_last = nullptr;
        return 0;
    }
    CThread& thread = Of(record.thread);
    if (record.tag == '>') {
        if (thread.names.size() == thread.depth) thread.names.emplace_back();
        thread.names[thread.depth].assign(record.text);
        name = record.text;
        return thread.depth++;
    }
    if (record.tag != '<') return thread.depth;
    if (thread.depth == 0) return 0;  // entered before tracing began
    name = thread.names[--thread.depth];
    return thread.depth;
}

void CTraceLines::Append(const CTraceRecord& record, std::size_t file, std::size_t depth, std::string_view name,
                         std::string& out) {
    if (m_json) return AppendJson(record, file, depth, name, out);
    constexpr std::size_t kDeepest = 100;  // what lies deeper is not indented more
    char text[32];
    if (record.time != kNoTime) {
        const TraceTime day = record.time - record.time % kDay;
        if (day != m_day) {
            m_day = day;
            PutTraceDate(record.time, text);
            out.append(text, kTraceDateText).append(1, '\n');
        }
        PutTraceClock(record.time, text);
        out.append(text, kTraceClockText);
    } else {
        out.append(kTraceClockText, '-');
    }
    const auto number = [&](std::uint64_t value, std::size_t width) {
        const std::size_t length = static_cast<std::size_t>(std::to_chars(text, text + sizeof text, value).ptr - text);
        out.append(2 + (length < width ? width - length : 0), ' ').append(text, length);
    };
    if (m_numbered) number(file, 1);
    number(record.thread, 7);
    out.append(2 + 2 * std::min(depth, kDeepest), ' ');
    switch (record.tag) {
        case '>':
            out += "> ";
            AppendText(record.text, out);
            break;
        case '<':
            out += "< ";
            AppendText(name.empty() ? "(entered before)" : name, out);
            break;
        case 'U':
            AppendText(record.text, out);
            break;
        case 'E': {
            const std::optional<HRESULT> hr = TraceFailure(record.text);
            out += "! ";
            if (hr) {
                out += ResultText(*hr);
            } else {
                AppendText(record.text, out);
            }
            break;
        }
        default:
            out += "-- another process goes on here, ";
            AppendText(record.text, out);
            break;
    }
    out += '\n';
}

void CTraceLines::AppendJson(const CTraceRecord& record, std::size_t file, std::size_t depth, std::string_view name,
                             std::string& out) const {
    json line = JsonAnswer();
    line["file"] = file;
    line["time"] = nullptr;
    if (record.time != kNoTime) {
        char text[kTraceDateText + 1 + kTraceClockText];
        PutTraceDate(record.time, text);
        text[kTraceDateText] = 'T';
        PutTraceClock(record.time, text + kTraceDateText + 1);
        line["time"] = std::string(text, sizeof text);
    }
    line["thread"] = record.thread;
    line["depth"] = depth;
    line["kind"] = KindOf(record.tag);
    line["scope"] = name.empty() ? json(nullptr) : json(name);
    const std::optional<HRESULT> hr = record.tag == 'E' ? TraceFailure(record.text) : std::nullopt;
    line["text"] = hr                                       ? json(ResultText(*hr).substr(11))
                   : record.tag == '>' || record.tag == '<' ? json(nullptr)
                                                            : json(record.text);
    line["hr"] = hr ? json(ResultText(*hr).substr(0, 10)) : json(nullptr);
    out += line.dump(-1, ' ', false, json::error_handler_t::replace);
    out += '\n';
}
