#include <cstdio>

#include "svinfo/Failure.h"
#include "svinfo/RegFile.h"
#include "svinfo/RegFileText.h"
#include "svinfo/Text.h"

namespace {

constexpr wstr_view kLineEnd = W("\r\n");
constexpr wstr_view kContinued = W("\\\r\n  ");
constexpr std::size_t kIndent = 2;
// A line of bytes is broken here, which with the next byte, its comma and the backslash would pass 80 characters.
constexpr std::size_t kBreakAt = 77;

void AppendAscii(wstr& out, const char* text) {
    for (; *text; ++text) out += static_cast<WCHAR>(*text);
}

void AppendQuoted(wstr& out, wstr_view text) {
    out += W('"');
    for (const WCHAR unit : text) {
        switch (unit) {
            case '\\':
                out += W("\\\\");
                break;
            case '"':
                out += W("\\\"");
                break;
            case '\n':
                out += W("\\n");
                break;  // only in names: a line break would end the line
            case '\r':
                out += W("\\r");
                break;
            default:
                out += unit;
                break;
        }
    }
    out += W('"');
}

WCHAR UnitAt(const std::vector<BYTE>& data, std::size_t i) noexcept {
    return static_cast<WCHAR>(data[2 * i] | data[2 * i + 1] << 8);
}

// The text of a REG_SZ that the quoted form carries: whole characters, one NUL at the end, nothing that breaks a line.
bool QuotableText(const std::vector<BYTE>& data, wstr& text) {
    if (data.size() < 2 || data.size() % 2 != 0) return false;
    const std::size_t length = data.size() / 2 - 1;
    if (UnitAt(data, length) != 0) return false;
    for (std::size_t i = 0; i < length; ++i) {
        const WCHAR unit = UnitAt(data, i);
        if (unit < 0x20 || unit == 0x7F) return false;
        text += unit;
    }
    return true;
}

void AppendHex(wstr& out, std::size_t lineStart, const CRegEntry& entry) {
    char text[24];
    if (entry.type == REG_BINARY) {
        AppendAscii(out, "hex:");
    } else {
        std::snprintf(text, sizeof text, "hex(%x):", static_cast<unsigned>(entry.type));
        AppendAscii(out, text);
    }
    std::size_t column = out.size() - lineStart;
    for (std::size_t i = 0; i < entry.data.size(); ++i) {
        const bool last = i + 1 == entry.data.size();
        std::snprintf(text, sizeof text, last ? "%02x" : "%02x,", static_cast<unsigned>(entry.data[i]));
        AppendAscii(out, text);
        column += 3;
        if (!last && column >= kBreakAt) {
            out += kContinued;
            column = kIndent;
        }
    }
}

void AppendEntry(wstr& out, const CRegEntry& entry) {
    const std::size_t lineStart = out.size();
    if (entry.name.empty()) {
        out += W('@');
    } else {
        AppendQuoted(out, entry.name);
    }
    out += W('=');
    wstr text;
    if (entry.remove) {
        out += W('-');
    } else if (entry.type == REG_SZ && QuotableText(entry.data, text)) {
        AppendQuoted(out, text);
    } else if (entry.type == REG_DWORD && entry.data.size() == 4) {
        char number[20];
        std::snprintf(number, sizeof number, "dword:%02x%02x%02x%02x", entry.data[3], entry.data[2], entry.data[1],
                      entry.data[0]);
        AppendAscii(out, number);
    } else {
        AppendHex(out, lineStart, entry);
    }
    out += kLineEnd;
}

std::string Utf16Bytes(const wstr& text) {
    std::string bytes = "\xFF\xFE";
    bytes.reserve(2 + text.size() * 2);
    for (const WCHAR unit : text) {
        bytes += static_cast<char>(static_cast<BYTE>(unit & 0xFF));
        bytes += static_cast<char>(static_cast<BYTE>(unit >> 8));
    }
    return bytes;
}

}  // namespace

std::string WriteRegFile(const std::vector<CRegBlock>& blocks) {
    wstr out(kRegHeader5);
    out += kLineEnd;
    for (const CRegBlock& block : blocks) {
        const wstr key = block.key.Full();
        if (key.find_first_of(kLineEnd) != wstr::npos) {
            throw CCommandFailure(ExitCode::Failed, "write the key " + EscapeControls(ToUtf8(key)) +
                                                        ": found a line break in its name, which a registry file "
                                                        "cannot hold");
        }
        out += kLineEnd;
        out += block.remove ? W("[-") : W("[");
        out += key;
        out += W(']');
        out += kLineEnd;
        for (const CRegEntry& entry : block.entries) AppendEntry(out, entry);
    }
    out += kLineEnd;
    return Utf16Bytes(out);
}
