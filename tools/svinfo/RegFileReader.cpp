#include <algorithm>
#include <optional>
#include <utility>

#include "svinfo/RegFile.h"
#include "svinfo/RegFileText.h"
#include "svinfo/Text.h"

namespace {

constexpr const char* kExpectedLine = "a key in brackets, a value, or a comment";
constexpr const char* kExpectedData = "text in quotes, dword:, hex:, hex(N): or -";

// Ends the reading of a line, or of a value that runs over several.
struct CSkip {
    CRegLine line;
    std::size_t at;
    std::string expected;
};

class CReader {
  public:
    explicit CReader(wstr_view text) : m_lines(text) {}
    CRegFile Read();

  private:
    void ReadLine(const CRegLine& line);
    void ReadWindows31Line(const CRegLine& line);
    void ReadKey(const CRegLine& line, std::size_t bracket);
    void ReadValue(const CRegLine& line, std::size_t at);
    void ReadData(const CRegLine& line, std::size_t at, CRegEntry& entry);
    void ReadHexData(const CRegLine& line, std::size_t at, CRegEntry& entry);
    void FinishHexText(CRegEntry& entry) const;
    void Note(const CSkip& skip);

    CRegLines m_lines;
    RegVersion m_version = RegVersion::Five;
    bool m_keyOpen = false;  // the last block is a key that takes values
    CRegFile m_file;
};

// The text in quotes at `at`, which moves behind the closing quote.
wstr ReadQuoted(const CRegLine& line, std::size_t& at) {
    wstr out;
    for (std::size_t i = at + 1; i < line.text.size(); ++i) {
        WCHAR unit = line.text[i];
        if (unit == '"') {
            at = i + 1;
            return out;
        }
        if (unit == 0) throw CSkip{line, i, "text without a NUL"};
        if (unit == '\\') {
            // \n and \r are written by one editor. A NUL is imported by none, and what an unknown escape means differs.
            switch (line.At(i + 1)) {
                case '\\':
                    unit = '\\';
                    break;
                case '"':
                    unit = '"';
                    break;
                case 'n':
                    unit = '\n';
                    break;
                case 'r':
                    unit = '\r';
                    break;
                default:
                    throw CSkip{line, i, "\\\\ for a backslash, or \\\" for a quotation mark"};
            }
            ++i;
        }
        out += unit;
    }
    throw CSkip{line, line.text.size(), "a closing quotation mark"};
}

std::vector<BYTE> BytesOf(wstr_view text) {
    std::vector<BYTE> bytes;
    bytes.reserve((text.size() + 1) * 2);
    for (const WCHAR unit : text) {
        bytes.push_back(static_cast<BYTE>(unit & 0xFF));
        bytes.push_back(static_cast<BYTE>(unit >> 8));
    }
    return bytes;
}

std::vector<BYTE> StringBytes(wstr_view text) {
    std::vector<BYTE> bytes = BytesOf(text);
    bytes.insert(bytes.end(), 2, 0);
    return bytes;
}

// 1 to 8 digits, most significant first.
DWORD ReadDword(const CRegLine& line, std::size_t at) {
    DWORD number = 0;
    const std::size_t start = at;
    for (; HexDigit(line.At(at)) >= 0; ++at) {
        if (at - start == 8) throw CSkip{line, start, "at most 8 hexadecimal digits"};
        number = number << 4 | static_cast<DWORD>(HexDigit(line.At(at)));
    }
    if (at == start) throw CSkip{line, at, "1 to 8 hexadecimal digits"};
    at = line.SkipBlanks(at);
    if (!line.EndsAt(at)) throw CSkip{line, at, "the end of the number, or a ; comment"};
    return number;
}

// N of "hex(N):", at its first digit; `at` moves behind the colon.
DWORD ReadHexType(const CRegLine& line, std::size_t& at) {
    ULONGLONG type = 0;
    std::size_t i = at;
    for (; HexDigit(line.At(i)) >= 0; ++i) {
        type = type << 4 | static_cast<ULONGLONG>(HexDigit(line.At(i)));
        if (type > 0xFFFFFFFF) throw CSkip{line, at, "a type of at most 8 hexadecimal digits"};
    }
    if (i == at || line.At(i) != ')' || line.At(i + 1) != ':') {
        throw CSkip{line, at, "the type in hexadecimal digits and '):'"};
    }
    at = i + 2;
    return static_cast<DWORD>(type);
}

// The bytes of one line. True when the list goes on in the next one: a comma and a backslash at the end. A backslash
// may also stand where no byte has been given yet.
bool ReadHexBytes(const CRegLine& line, std::size_t at, std::vector<BYTE>& data) {
    for (;;) {
        at = line.SkipBlanks(at);
        if (line.EndsAt(at)) return false;
        if (line.At(at) == '\\') {
            at = line.SkipBlanks(at + 1);
            if (line.EndsAt(at)) return true;
            throw CSkip{line, at, "the end of the line behind the backslash, or a ; comment"};
        }
        const int high = HexDigit(line.At(at));
        if (high < 0) throw CSkip{line, at, "a byte in hexadecimal digits"};
        const int low = HexDigit(line.At(at + 1));
        data.push_back(static_cast<BYTE>(low < 0 ? high : high << 4 | low));
        at += low < 0 ? 1 : 2;
        if (line.At(at) == ',') {
            ++at;
        } else {
            at = line.SkipBlanks(at);
            if (line.EndsAt(at)) return false;
            throw CSkip{line, at, "a comma, the end of the list, or a ; comment"};
        }
    }
}

CRegFile CReader::Read() {
    const std::optional<CRegLine> header = m_lines.Next();
    m_version = ReadRegHeader(*header);
    if (m_version == RegVersion::Unknown) {
        Note({*header, 0, "REGEDIT4 or '" + ToUtf8(kRegHeader5) + "'; nothing below this header is read"});
        return std::move(m_file);
    }
    while (const std::optional<CRegLine> line = m_lines.Next()) {
        try {
            m_version == RegVersion::Windows31 ? ReadWindows31Line(*line) : ReadLine(*line);
        } catch (const CSkip& skip) {
            Note(skip);
        }
    }
    return std::move(m_file);
}

void CReader::ReadLine(const CRegLine& line) {
    const std::size_t at = line.SkipBlanks(0);
    if (at == line.text.size()) return;
    switch (line.At(at)) {
        case ';':
        case '#':
            return;
        case '[':
            return ReadKey(line, at);
        case '@':
        case '"':
            return ReadValue(line, at);
        default:
            throw CSkip{line, at, kExpectedLine};
    }
}

// "HKEY_CLASSES_ROOT\key = text": the text is the key's default value. Lines of other roots are not of this form.
void CReader::ReadWindows31Line(const CRegLine& line) {
    if (line.SkipBlanks(0) == line.text.size()) return;
    constexpr wstr_view kRoot = W("HKEY_CLASSES_ROOT");
    if (!line.text.starts_with(kRoot)) throw CSkip{line, 0, "a key below HKEY_CLASSES_ROOT"};
    const std::size_t keyEnd = std::min(line.text.find_first_of(W(" \t")), line.text.size());
    CRegBlock block;
    try {
        block.key = ParseRegPath(line.text.substr(0, keyEnd), RootNames::Long);
    } catch (const CBadRegPath& bad) {
        throw CSkip{line, bad.offset, bad.expected};
    }
    block.line = line.number;
    std::size_t at = line.SkipBlanks(keyEnd);
    if (line.At(at) == '=') {
        ++at;
        if (line.At(at) == ' ') ++at;  // one blank belongs to the sign, further ones to the text
    }
    if (line.text.find(WCHAR(0), at) != wstr_view::npos) throw CSkip{line, at, "text without a NUL"};
    block.entries.push_back({wstr(), false, REG_SZ, StringBytes(line.text.substr(at))});
    m_file.blocks.push_back(std::move(block));
}

void CReader::ReadKey(const CRegLine& line, std::size_t bracket) {
    // Until this line proves good: values behind a key line that was not understood must not go to the key before it.
    m_keyOpen = false;
    const std::size_t end = line.text.rfind(']');
    if (end == wstr_view::npos) throw CSkip{line, line.text.size(), "a closing bracket"};
    CRegBlock block;
    block.line = line.number;
    std::size_t at = bracket + 1;
    block.remove = line.At(at) == '-';
    if (block.remove) ++at;
    try {
        block.key = ParseRegPath(line.text.substr(at, end - at), RootNames::Long);
    } catch (const CBadRegPath& bad) {
        throw CSkip{line, at + bad.offset, bad.expected};
    }
    if (block.remove && block.key.below.empty()) throw CSkip{line, at, "a key below a root: no root can be deleted"};
    m_keyOpen = !block.remove;
    m_file.blocks.push_back(std::move(block));
}

void CReader::ReadValue(const CRegLine& line, std::size_t at) {
    CRegEntry entry;
    const std::size_t start = at;
    if (line.At(at) == '@') {
        ++at;
    } else {
        entry.name = ReadQuoted(line, at);
        if (entry.name.size() > kMaxValueName) {
            throw CSkip{line, start, "a name of at most " + std::to_string(kMaxValueName) + " characters"};
        }
    }
    at = line.SkipBlanks(at);
    if (line.At(at) != '=') throw CSkip{line, at, "'='"};
    ReadData(line, line.SkipBlanks(at + 1), entry);
    if (!m_keyOpen) throw CSkip{line, start, "a key line before it: no key is open here"};
    m_file.blocks.back().entries.push_back(std::move(entry));
}

void CReader::ReadData(const CRegLine& line, std::size_t at, CRegEntry& entry) {
    const wstr_view data = line.text.substr(at);
    if (data.starts_with(W("\""))) {
        entry.type = REG_SZ;
        entry.data = StringBytes(ReadQuoted(line, at));
        at = line.SkipBlanks(at);
        if (!line.EndsAt(at)) throw CSkip{line, at, "the end of the line, or a ; comment"};
    } else if (data.starts_with(W("dword:"))) {
        const DWORD number = ReadDword(line, at + 6);
        entry.type = REG_DWORD;
        for (unsigned shift = 0; shift < 32; shift += 8)
            entry.data.push_back(static_cast<BYTE>(number >> shift & 0xFF));
    } else if (data.starts_with(W("hex:"))) {
        entry.type = REG_BINARY;
        ReadHexData(line, at + 4, entry);
    } else if (data.starts_with(W("hex("))) {
        at += 4;
        entry.type = ReadHexType(line, at);
        ReadHexData(line, at, entry);
    } else if (data.starts_with(W("-"))) {
        entry.remove = true;
        at = line.SkipBlanks(at + 1);
        if (!line.EndsAt(at)) throw CSkip{line, at, "the end of the line, or a ; comment"};
    } else {
        throw CSkip{line, at, kExpectedData};
    }
}

void CReader::ReadHexData(const CRegLine& line, std::size_t at, CRegEntry& entry) {
    const std::string dropped = "; the value of line " + std::to_string(line.number) + " is dropped";
    bool goesOn = ReadHexBytes(line, at, entry.data);
    while (goesOn) {
        const std::optional<CRegLine> next = m_lines.Next();
        if (!next) break;  // a file that ends here keeps the value so far
        const std::size_t first = next->SkipBlanks(0);
        if (next->EndsAt(first)) continue;
        if (HexDigit(next->At(first)) < 0) throw CSkip{*next, first, "more bytes of the list" + dropped};
        try {
            goesOn = ReadHexBytes(*next, first, entry.data);
        } catch (CSkip& skip) {
            skip.expected += dropped;
            throw;
        }
    }
    FinishHexText(entry);
}

// Text is kept in 16-bit units, and lists of the two kinds that others search for their end get one.
void CReader::FinishHexText(CRegEntry& entry) const {
    std::vector<BYTE>& data = entry.data;
    const bool needsEnd = entry.type == REG_EXPAND_SZ || entry.type == REG_MULTI_SZ;
    if (data.empty() || (entry.type != REG_SZ && !needsEnd)) return;
    if (m_version == RegVersion::Four) {
        data = BytesOf(FromCodePage1252({reinterpret_cast<const char*>(data.data()), data.size()}));
    }
    if (needsEnd && (data.size() < 2 || data[data.size() - 1] != 0 || data[data.size() - 2] != 0)) {
        data.insert(data.end(), 2, 0);
    }
}

void CReader::Note(const CSkip& skip) {
    m_file.skipped.push_back({skip.line.number, skip.line.Column(skip.at),
                              "found " + skip.line.Found(skip.at) + ", expected " + skip.expected + "; skipped"});
}

}  // namespace

CRegFile ReadRegFile(std::string_view bytes) {
    const wstr text = DecodeRegFile(bytes);
    return CReader(text).Read();
}
