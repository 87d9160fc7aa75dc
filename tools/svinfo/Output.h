// What the tool writes: data to standard output, everything else to standard error.
#pragma once

#include <cstdio>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <string_view>
#include <vector>

using json = nlohmann::ordered_json;  // keys stay in the order in which they are put

// How the output was asked for, and where it goes.
struct COutputStyle {
    bool json = false;
    bool color = false;
    bool terminal = false;  // standard output is one
    bool quiet = false;     // no notes, only data and what went wrong
    bool verbose = false;
};

enum class Tone { Plain, Strong, Good, Notice, Bad, Faint };

struct CCell {
    std::string text;
    Tone tone = Tone::Plain;
};

struct CTable {
    std::vector<std::string> header;  // shown on a terminal only
    std::vector<std::vector<CCell>> rows;
};

// Aligned with a header on a terminal, else one tab between cells and no header. Controls are written out either way,
// or a cell could break its row.
std::string FormatTable(const CTable& table, bool aligned, bool color);

// The first object of every JSON answer.
json JsonAnswer();

class COutput {
  public:
    COutput(COutputStyle style, std::FILE* data, std::FILE* messages)
        : m_style(style), m_data(data), m_messages(messages) {}

    const COutputStyle& Style() const noexcept { return m_style; }

    void Bytes(std::string_view bytes);
    // One line. A terminal is shown no controls; a file or pipe gets the text as it is.
    void Line(std::string_view text);
    void Table(const CTable& table);
    void Json(const json& object);

    // To standard error: what is good to know (not when quiet), and what went wrong.
    void Note(std::string_view line);
    void Problem(std::string_view line);

    // Throws CCommandFailure when standard output did not take all of it.
    void Finish();

  private:
    COutputStyle m_style;
    std::FILE* m_data;
    std::FILE* m_messages;
};
