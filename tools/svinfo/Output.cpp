#include "svinfo/Output.h"

#include <algorithm>
#include <cerrno>
#include <nlohmann/json.hpp>
#include <system_error>

#include "svinfo/Failure.h"
#include "svinfo/Text.h"

namespace {

constexpr std::size_t kGap = 2;  // blanks between columns

const char* StartOf(Tone tone) {
    switch (tone) {
        case Tone::Strong:
            return "\x1B[1m";
        case Tone::Good:
            return "\x1B[32m";
        case Tone::Notice:
            return "\x1B[33m";
        case Tone::Bad:
            return "\x1B[31m";
        case Tone::Faint:
            return "\x1B[2m";
        case Tone::Plain:
            break;
    }
    return "";
}

std::string Colored(const std::string& text, Tone tone, bool color) {
    if (!color || tone == Tone::Plain || text.empty()) return text;
    return StartOf(tone) + text + "\x1B[0m";
}

void AppendRow(std::string& out, const std::vector<CCell>& row, const std::vector<std::size_t>& widths, bool color) {
    for (std::size_t i = 0; i < row.size(); ++i) {
        const std::string text = EscapeControls(row[i].text);
        out += Colored(text, row[i].tone, color);
        if (i + 1 == row.size()) break;
        if (widths.empty()) {
            out += '\t';
        } else {
            out.append(widths[i] + kGap - ColumnCount(text), ' ');
        }
    }
    while (!widths.empty() && out.ends_with(' ')) out.pop_back();
    out += '\n';
}

}  // namespace

std::string FormatTable(const CTable& table, bool aligned, bool color) {
    std::vector<std::size_t> widths;
    std::vector<CCell> header;
    if (aligned) {
        for (const std::string& title : table.header) {
            header.push_back({title, Tone::Strong});
            widths.push_back(ColumnCount(title));
        }
        for (const std::vector<CCell>& row : table.rows) {
            for (std::size_t i = 0; i < row.size(); ++i) {
                widths[i] = std::max(widths[i], ColumnCount(EscapeControls(row[i].text)));
            }
        }
    }
    std::string out;
    if (aligned) AppendRow(out, header, widths, color);
    for (const std::vector<CCell>& row : table.rows) AppendRow(out, row, widths, color);
    return out;
}

json JsonAnswer() {
    return json{{"schema", 1}};
}

void COutput::Bytes(std::string_view bytes) {
    std::fwrite(bytes.data(), 1, bytes.size(), m_data);
}

void COutput::Line(std::string_view text) {
    Bytes(m_style.terminal ? EscapeControls(text) : std::string(text));
    Bytes("\n");
}

void COutput::Table(const CTable& table) {
    Bytes(FormatTable(table, m_style.terminal, m_style.color));
}

void COutput::Json(const json& object) {
    // File names may be no UTF-8; a mark in their place is better than no answer.
    Bytes(object.dump(2, ' ', false, json::error_handler_t::replace) + "\n");
}

void COutput::Note(std::string_view line) {
    if (!m_style.quiet) Problem(line);
}

void COutput::Problem(std::string_view line) {
    // Data written so far comes first where both go to one terminal.
    std::fflush(m_data);
    const std::string text = std::string(line) + "\n";
    std::fwrite(text.data(), 1, text.size(), m_messages);
    std::fflush(m_messages);
}

void COutput::Finish() {
    errno = 0;
    if (std::fflush(m_data) == 0 && !std::ferror(m_data)) return;
    const std::error_code error(errno != 0 ? errno : EIO, std::generic_category());
    throw CCommandFailure(ExitCode::Failed, "write to standard output: " + ResultText(ResultOfError(error)));
}
