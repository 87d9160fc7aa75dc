// The text of a registration file: its encoding, its header, its lines.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "Platform.h"
#include "svinfo/RegFile.h"

inline constexpr wstr_view kRegHeader5 = W("Windows Registry Editor Version 5.00");

enum class RegVersion {
    Windows31,  // keys and their texts below HKEY_CLASSES_ROOT, one a line
    Four,       // text data in 8-bit characters
    Five,
    Unknown,  // a header that the field's tools accept, and read nothing behind
};

// One line, without its end.
struct CRegLine {
    wstr_view text;
    std::size_t number = 0;  // from 1

    WCHAR At(std::size_t i) const noexcept { return i < text.size() ? text[i] : WCHAR(0); }
    bool IsBlank(std::size_t i) const noexcept { return At(i) == ' ' || At(i) == '\t'; }
    // The first place from `i` on that is no blank; the length of the text if there is none.
    std::size_t SkipBlanks(std::size_t i) const noexcept {
        while (IsBlank(i)) ++i;
        return i;
    }
    // Whether nothing but a comment may follow.
    bool EndsAt(std::size_t i) const noexcept { return i >= text.size() || text[i] == ';'; }
    std::size_t Column(std::size_t i) const;
    // What stands at `i`, for messages.
    std::string Found(std::size_t i) const;
};

// Gives the lines of a text that outlives it. CR LF, LF and CR end a line; the last one needs no end.
class CRegLines {
  public:
    explicit CRegLines(wstr_view text) noexcept : m_rest(text) {}
    std::optional<CRegLine> Next() noexcept;

  private:
    wstr_view m_rest;
    std::size_t m_number = 0;
    bool m_ended = false;
};

// The file's characters. Throws CBadRegFile for an encoding that is not read, or not kept to.
wstr DecodeRegFile(std::string_view bytes);

// What the first line says. Throws CBadRegFile when it is no header.
RegVersion ReadRegHeader(const CRegLine& line);
