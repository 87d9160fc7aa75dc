#include "svinfo/Text.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>

#include "svinfo/Failure.h"

namespace {

constexpr std::uint32_t kReplacement = 0xFFFD;

bool IsHighSurrogate(std::uint32_t unit) noexcept {
    return (unit & 0xFC00u) == 0xD800u;
}
bool IsLowSurrogate(std::uint32_t unit) noexcept {
    return (unit & 0xFC00u) == 0xDC00u;
}

// The code point at `offset`, which moves behind it. Nothing, and `offset` stays, where the bytes are no UTF-8: an
// overlong form, a surrogate, a number too large or a sequence cut short.
std::optional<std::uint32_t> NextCodePoint(std::string_view bytes, std::size_t& offset) noexcept {
    const auto byte = [&](std::size_t i) { return static_cast<std::uint8_t>(bytes[i]); };
    const std::uint8_t first = byte(offset);
    if (first < 0x80) {
        ++offset;
        return first;
    }
    const std::size_t length = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
    if (first < 0xC2 || first > 0xF4 || bytes.size() - offset < length) return std::nullopt;
    std::uint32_t point = first & (0xFFu >> (length + 1));
    for (std::size_t i = 1; i < length; ++i) {
        if ((byte(offset + i) & 0xC0u) != 0x80u) return std::nullopt;
        point = point << 6 | (byte(offset + i) & 0x3Fu);
    }
    constexpr std::uint32_t kSmallest[] = {0, 0, 0x80, 0x800, 0x10000};
    if (point < kSmallest[length] || point > 0x10FFFF || (point >= 0xD800 && point <= 0xDFFF)) return std::nullopt;
    offset += length;
    return point;
}

void AppendUtf8(std::string& out, std::uint32_t point) {
    const auto add = [&out](std::uint32_t byte) { out += static_cast<char>(static_cast<std::uint8_t>(byte)); };
    if (point < 0x80) {
        add(point);
    } else if (point < 0x800) {
        add(0xC0 | point >> 6);
        add(0x80 | (point & 0x3F));
    } else if (point < 0x10000) {
        add(0xE0 | point >> 12);
        add(0x80 | (point >> 6 & 0x3F));
        add(0x80 | (point & 0x3F));
    } else {
        add(0xF0 | point >> 18);
        add(0x80 | (point >> 12 & 0x3F));
        add(0x80 | (point >> 6 & 0x3F));
        add(0x80 | (point & 0x3F));
    }
}

void AppendUtf16(wstr& out, std::uint32_t point) {
    if (point >= 0x10000) {
        out += static_cast<WCHAR>(0xD800 + ((point - 0x10000) >> 10));
        out += static_cast<WCHAR>(0xDC00 + ((point - 0x10000) & 0x3FF));
    } else {
        out += static_cast<WCHAR>(point);
    }
}

// Controls of both sets, line separators, and the marks that turn the direction of what follows.
bool SteersTerminal(std::uint32_t point) noexcept {
    return point < 0x20 || (point >= 0x7F && point < 0xA0) || point == 0x061C || point == 0x200E || point == 0x200F ||
           (point >= 0x2028 && point <= 0x202E) || (point >= 0x2066 && point <= 0x2069);
}

void AppendEscape(std::string& out, std::uint32_t point) {
    switch (point) {
        case '\t':
            out += "\\t";
            return;
        case '\n':
            out += "\\n";
            return;
        case '\r':
            out += "\\r";
            return;
        default:
            break;
    }
    char text[12];
    std::snprintf(text, sizeof text, point < 0x100 ? "\\x%02X" : "\\u%04X", static_cast<unsigned>(point));
    out += text;
}

}  // namespace

std::optional<wstr> FromUtf8(std::string_view bytes, std::size_t* badOffset) {
    wstr out;
    out.reserve(bytes.size());
    for (std::size_t offset = 0; offset < bytes.size();) {
        const std::optional<std::uint32_t> point = NextCodePoint(bytes, offset);
        if (!point) {
            if (badOffset) *badOffset = offset;
            return std::nullopt;
        }
        AppendUtf16(out, *point);
    }
    return out;
}

wstr WideArgument(const std::string& argument, const char* what) {
    std::optional<wstr> text = FromUtf8(argument);
    if (!text) throw CCommandFailure(ExitCode::Usage, std::string(what) + " " + Quoted(argument) + " is no UTF-8");
    return *std::move(text);
}

std::string ToUtf8(wstr_view text) {
    std::string out;
    out.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        std::uint32_t point = text[i];
        if (IsHighSurrogate(point) && i + 1 < text.size() && IsLowSurrogate(text[i + 1])) {
            point = 0x10000 + ((point & 0x3FFu) << 10 | (static_cast<std::uint32_t>(text[++i]) & 0x3FFu));
        } else if (IsHighSurrogate(point) || IsLowSurrogate(point)) {
            point = kReplacement;
        }
        AppendUtf8(out, point);
    }
    return out;
}

wstr FromCodePage1252(std::string_view bytes) {
    wstr out(bytes.size(), 0);
    // In slices: the call counts in int.
    constexpr std::size_t kSlice = 1u << 20;
    for (std::size_t at = 0; at < bytes.size(); at += kSlice) {
        const int length = static_cast<int>(std::min(kSlice, bytes.size() - at));
        if (MultiByteToWideChar(1252, 0, bytes.data() + at, length, out.data() + at, length) != length) {
            throw FailureOf("read text in code page 1252", HRESULT_FROM_WIN32(GetLastError()));
        }
    }
    return out;
}

std::string EscapeControls(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    for (std::size_t offset = 0; offset < text.size();) {
        const std::size_t start = offset;
        const std::optional<std::uint32_t> point = NextCodePoint(text, offset);
        if (!point) {
            AppendEscape(out, static_cast<std::uint8_t>(text[offset++]));
        } else if (SteersTerminal(*point)) {
            AppendEscape(out, *point);
        } else {
            out.append(text, start, offset - start);
        }
    }
    return out;
}

std::string Quoted(wstr_view text) {
    constexpr std::size_t kLongest = 60;
    if (text.size() <= kLongest) return "'" + EscapeControls(ToUtf8(text)) + "'";
    return "'" + EscapeControls(ToUtf8(text.substr(0, kLongest))) + "...'";
}

std::string Quoted(std::string_view text) {
    if (const std::optional<wstr> wide = FromUtf8(text)) return Quoted(wstr_view(*wide));
    return "'" + EscapeControls(text) + "'";
}

std::size_t CharacterCount(std::string_view utf8) noexcept {
    std::size_t count = 0;
    for (const char byte : utf8) count += (static_cast<std::uint8_t>(byte) & 0xC0u) != 0x80u;
    return count;
}

std::size_t ColumnCount(std::string_view utf8) noexcept {
    // Unicode, East Asian Width W and F, and the combining marks and joiners, by their blocks.
    struct Range {
        std::uint32_t first, last;
        std::size_t columns;
    };
    static constexpr Range kRanges[] = {
        {0x0300, 0x036F, 0}, {0x1100, 0x115F, 2}, {0x200B, 0x200F, 0},   {0x20D0, 0x20FF, 0},  {0x2E80, 0xA4CF, 2},
        {0xAC00, 0xD7A3, 2}, {0xF900, 0xFAFF, 2}, {0xFE00, 0xFE0F, 0},   {0xFE20, 0xFE2F, 0},  {0xFE30, 0xFE6F, 2},
        {0xFF00, 0xFF60, 2}, {0xFFE0, 0xFFE6, 2}, {0x1F300, 0x1FAFF, 2}, {0x20000, 0x3FFFD, 2}};
    std::size_t columns = 0;
    for (std::size_t at = 0; at < utf8.size();) {
        const std::optional<std::uint32_t> point = NextCodePoint(utf8, at);
        if (!point) ++at;
        const auto range = std::find_if(std::begin(kRanges), std::end(kRanges), [&](const Range& candidate) {
            return point && *point >= candidate.first && *point <= candidate.last;
        });
        columns += range == std::end(kRanges) ? 1 : range->columns;
    }
    return columns;
}

std::size_t CharacterCount(wstr_view text) noexcept {
    std::size_t count = 0;
    for (const WCHAR unit : text) count += !IsLowSurrogate(unit);
    return count;
}

int HexDigit(WCHAR unit) noexcept {
    if (unit >= '0' && unit <= '9') return unit - '0';
    if (unit >= 'a' && unit <= 'f') return unit - 'a' + 10;
    if (unit >= 'A' && unit <= 'F') return unit - 'A' + 10;
    return -1;
}

std::string HexText(const BYTE* data, std::size_t size) {
    constexpr char kDigits[] = "0123456789abcdef";
    std::string out;
    out.reserve(size * 2);
    for (std::size_t i = 0; i < size; ++i) {
        out += kDigits[data[i] >> 4];
        out += kDigits[data[i] & 15];
    }
    return out;
}

std::string TimeText(const SYSTEMTIME& time) {
    char text[64];
    std::snprintf(text, sizeof text, "%04d-%02d-%02d %02d:%02d:%02d.%03d", time.wYear, time.wMonth, time.wDay,
                  time.wHour, time.wMinute, time.wSecond, time.wMilliseconds);
    return text;
}

std::string FilePosition(const std::string& file, std::size_t line, std::size_t column) {
    return EscapeControls(file) + ":" + std::to_string(line) + ":" + std::to_string(column) + ": ";
}

std::string MachineKeyText(wstr_view key) {
    return "HKEY_LOCAL_MACHINE\\" + ToUtf8(key);
}

std::string CountText(std::size_t count, const char* one, const char* many) {
    return std::to_string(count) + " " + (count == 1 ? one : many);
}
