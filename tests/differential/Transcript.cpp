#include "differential/Transcript.h"

#include <cinttypes>
#include <cstdio>

void CTranscript::Write(const std::string& operation, const std::string& answer) {
    std::printf("%u.%u %s -> %s\n", static_cast<unsigned>(m_seed), ++m_number, operation.c_str(), answer.c_str());
}

std::string Shown(LPCWSTR text) {
    return text ? Shown(wstr_view(text)) : "null";
}

std::string Shown(wstr_view text) {
    constexpr std::size_t kLongRun = 20;
    std::string out = "'";
    for (std::size_t at = 0; at < text.size();) {
        const auto unit = static_cast<std::uint16_t>(text[at]);
        std::size_t run = 1;
        while (at + run < text.size() && text[at + run] == text[at]) ++run;
        if (run <= kLongRun) run = 1;
        char code[8];
        std::snprintf(code, sizeof code, unit >= 0x20 && unit < 0x7F && unit != '\'' ? "%c" : "\\u%04X", unit);
        out += code;
        if (run > 1) out += '{' + std::to_string(run) + '}';
        at += run;
    }
    return out + '\'';
}

std::string Shown(const std::vector<BYTE>& bytes) {
    constexpr std::size_t kWhole = 64;
    constexpr std::size_t kBeginning = 16;
    std::string out;
    std::uint32_t sum = 0;
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        sum = sum * 31 + bytes[i];
        if (bytes.size() > kWhole && i >= kBeginning) continue;
        char digits[4];
        std::snprintf(digits, sizeof digits, "%02x", static_cast<unsigned>(bytes[i]));
        out += digits;
    }
    if (bytes.size() > kWhole) out += "...(" + std::to_string(bytes.size()) + " bytes, " + Hex(sum) + ')';
    return out.empty() ? "-" : out;
}

std::string Hex(std::uint64_t number) {
    char text[24];
    std::snprintf(text, sizeof text, "0x%" PRIX64, number);
    return text;
}
