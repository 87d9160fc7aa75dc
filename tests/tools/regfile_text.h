// Registration files as short text, for tables: what a reader made of a file in one line for each key.
#pragma once

#include <string>

#include "svinfo/RegFile.h"
#include "svinfo/Text.h"

namespace regtext {

// "hello" for a REG_SZ that reads as one, #10 for a REG_DWORD of 4 bytes, else TYPE:hexadecimal digits.
inline std::string DataText(const CRegEntry& entry) {
    if (entry.remove) return "-";
    const std::vector<BYTE>& data = entry.data;
    if (entry.type == REG_DWORD && data.size() == 4) {
        unsigned number = 0;
        for (std::size_t i = 4; i-- > 0;) number = number << 8 | data[i];
        return "#" + std::to_string(number);
    }
    if (entry.type == REG_SZ && data.size() >= 2 && data.size() % 2 == 0) {
        wstr text;
        for (std::size_t i = 0; i < data.size(); i += 2) text += static_cast<WCHAR>(data[i] | data[i + 1] << 8);
        if (text.find(WCHAR(0)) == text.size() - 1) {
            text.pop_back();
            return "\"" + EscapeControls(ToUtf8(text)) + "\"";
        }
    }
    char type[16];
    std::snprintf(type, sizeof type, "%x:", static_cast<unsigned>(entry.type));
    return type + HexText(data.data(), data.size());
}

// The values of a block: "a="x" b=#1 c=-"; the default value is @.
inline std::string EntriesText(const CRegBlock& block) {
    std::string text;
    for (const CRegEntry& entry : block.entries) {
        if (!text.empty()) text += ' ';
        text += (entry.name.empty() ? "@" : EscapeControls(ToUtf8(entry.name))) + "=" + DataText(entry);
    }
    return text;
}

inline std::string BlockText(const CRegBlock& block) {
    const std::string entries = EntriesText(block);
    return std::string(block.remove ? "[-" : "[") + ToUtf8(block.key.Full()) + "]" + (entries.empty() ? "" : " ") +
           entries;
}

// Blocks, then the places of skipped lines: "[HKEY_USERS\A] a=#1 | !4:1".
inline std::string FileText(const CRegFile& file) {
    std::string text;
    const auto add = [&text](const std::string& part) { text += (text.empty() ? "" : " | ") + part; };
    for (const CRegBlock& block : file.blocks) add(BlockText(block));
    for (const CRegNote& note : file.skipped) add("!" + std::to_string(note.line) + ":" + std::to_string(note.column));
    return text;
}

// What ReadRegFile makes of the bytes, a refusal included: "refused 1:3".
inline std::string ReadText(std::string_view bytes) {
    try {
        return FileText(ReadRegFile(bytes));
    } catch (const CBadRegFile& bad) {
        return "refused " + std::to_string(bad.line) + ":" + std::to_string(bad.column);
    }
}

// UTF-16 with its mark, as an editor exports.
inline std::string Utf16File(std::string_view utf8) {
    std::string bytes = "\xFF\xFE";
    const std::optional<wstr> text = FromUtf8(utf8);
    for (const WCHAR unit : text.value()) {
        bytes += static_cast<char>(static_cast<BYTE>(unit & 0xFF));
        bytes += static_cast<char>(static_cast<BYTE>(unit >> 8));
    }
    return bytes;
}

}  // namespace regtext
