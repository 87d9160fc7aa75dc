#include "svinfo/RegFileText.h"

#include <algorithm>

#include "svinfo/Text.h"

namespace {

constexpr std::string_view kUtf8Mark = "\xEF\xBB\xBF";
constexpr std::string_view kUtf16Mark = "\xFF\xFE";
constexpr std::string_view kUtf16BigMark = "\xFE\xFF";
constexpr std::string_view kExpectedEncoding = "UTF-16 with the mark FF FE, UTF-8, or 8-bit text under REGEDIT4";

wstr DecodeUtf16(std::string_view bytes) {
    wstr text(bytes.size() / 2, 0);
    for (std::size_t i = 0; i < text.size(); ++i) {
        const unsigned low = static_cast<BYTE>(bytes[2 * i]);
        const unsigned high = static_cast<BYTE>(bytes[2 * i + 1]);
        text[i] = static_cast<WCHAR>(low | high << 8);
    }
    return text;
}

[[noreturn]] void RefuseUtf8(std::string_view bytes, std::size_t offset) {
    const std::string_view before = bytes.substr(0, offset);
    const std::size_t lineStart = before.rfind('\n') + 1;  // npos + 1 is 0
    const auto lines = static_cast<std::size_t>(std::count(before.begin(), before.end(), '\n'));
    throw CBadRegFile{lines + 1, CharacterCount(before.substr(lineStart)) + 1,
                      "found bytes that are no UTF-8, expected " + std::string(kExpectedEncoding)};
}

wstr DecodeUtf8(std::string_view bytes) {
    std::size_t bad = 0;
    std::optional<wstr> text = FromUtf8(bytes, &bad);
    if (!text) RefuseUtf8(bytes, bad);
    return *std::move(text);
}

bool StartsOldFile(std::string_view bytes) noexcept {
    const std::size_t first = bytes.find_first_not_of(" \t");
    return first != std::string_view::npos && bytes.substr(first).starts_with("REGEDIT");
}

}  // namespace

std::size_t CRegLine::Column(std::size_t i) const {
    return CharacterCount(text.substr(0, i)) + 1;
}

std::string CRegLine::Found(std::size_t i) const {
    return i < text.size() ? Quoted(text.substr(i)) : std::string("the end of the line");
}

std::optional<CRegLine> CRegLines::Next() noexcept {
    if (m_ended) return std::nullopt;
    const std::size_t end = std::min(m_rest.find_first_of(W("\r\n")), m_rest.size());
    const CRegLine line{m_rest.substr(0, end), ++m_number};
    const bool pair = m_rest.substr(end).starts_with(W("\r\n"));
    m_rest.remove_prefix(std::min(end + (pair ? 2 : 1), m_rest.size()));
    m_ended = m_rest.empty();
    return line;
}

wstr DecodeRegFile(std::string_view bytes) {
    const auto refuse = [](const char* found) {
        throw CBadRegFile{1, 1, std::string("found ") + found + ", expected " + std::string(kExpectedEncoding)};
    };
    if (bytes.starts_with(kUtf16BigMark)) refuse("UTF-16 in the big-endian order");
    if (bytes.starts_with(kUtf16Mark)) {
        const std::string_view body = bytes.substr(kUtf16Mark.size());
        wstr text = DecodeUtf16(body);
        if (body.size() % 2 != 0) {
            const auto lines = static_cast<std::size_t>(std::count(text.begin(), text.end(), W('\n')));
            const wstr_view last = wstr_view(text).substr(text.rfind(W('\n')) + 1);
            throw CBadRegFile{lines + 1, CharacterCount(last) + 1,
                              "found half a character at the end of the file, expected two bytes for each"};
        }
        return text;
    }
    if (bytes.starts_with(kUtf8Mark)) return DecodeUtf8(bytes.substr(kUtf8Mark.size()));
    if (bytes.substr(0, 2).find('\0') != std::string_view::npos) refuse("UTF-16 without its mark");
    return StartsOldFile(bytes) ? FromCodePage1252(bytes) : DecodeUtf8(bytes);
}

RegVersion ReadRegHeader(const CRegLine& line) {
    const std::size_t start = line.SkipBlanks(0);
    const wstr_view header = line.text.substr(start);
    if (header == kRegHeader5) return RegVersion::Five;
    if (header == W("REGEDIT4")) return RegVersion::Four;
    if (header == W("REGEDIT")) return RegVersion::Windows31;
    if (header.starts_with(W("REGEDIT"))) return RegVersion::Unknown;
    throw CBadRegFile{line.number, line.Column(start),
                      "found " + line.Found(start) + ", expected '" + ToUtf8(kRegHeader5) + "' or 'REGEDIT4'"};
}
