#include "differential/Compare.h"

#include <cstdio>
#include <fstream>
#include <regex>
#include <stdexcept>
#include <vector>

#include "support/HomesTable.h"

namespace {

struct Line {
    std::string number;  // "seed.number"
    std::string operation;
    std::string answer;
};

struct Difference {
    std::regex operation;
    std::regex layer;
    std::regex windows;
    std::string shown;
    unsigned met = 0;
};

std::vector<Line> ReadTranscript(const std::string& file) {
    std::ifstream in(file, std::ios::binary);
    if (!in) throw std::runtime_error(file + " cannot be read");
    std::vector<Line> lines;
    for (std::string text; std::getline(in, text);) {
        if (text.ends_with('\r')) text.pop_back();
        const std::size_t blank = text.find(' ');
        const std::size_t arrow = text.find(" -> ");
        if (blank == std::string::npos || arrow == std::string::npos) throw std::runtime_error(file + ": " + text);
        lines.push_back({text.substr(0, blank), text.substr(blank + 1, arrow - blank - 1), text.substr(arrow + 4)});
    }
    if (lines.empty()) throw std::runtime_error(file + " is empty");
    return lines;
}

std::vector<Difference> ReadDifferences(const std::string& tableFile) {
    std::vector<Difference> known;
    for (const HomesRow& row : ReadHomesTable(tableFile, "differential", 4)) {
        known.push_back({std::regex(row[0]), std::regex(row[1]), std::regex(row[2]), row[0] + " (" + row[3] + ')'});
    }
    return known;
}

// Counts what no row explains, and rows that should explain a difference where there is none.
class CJudge {
  public:
    explicit CJudge(std::vector<Difference> known) : m_known(std::move(known)) {}

    void Judge(const Line& layer, const Line& windows) {
        ++m_lines;
        for (Difference& row : m_known) {
            if (!std::regex_match(layer.operation, row.operation) || !std::regex_match(layer.answer, row.layer))
                continue;
            if (layer.answer == windows.answer) {
                ++m_closed;
                std::printf("%s %s: differs no longer, the table says that it does: %s\n", layer.number.c_str(),
                            layer.operation.c_str(), row.shown.c_str());
                return;
            }
            if (std::regex_match(windows.answer, row.windows)) {
                ++row.met;
                return;
            }
        }
        if (layer.answer == windows.answer) return;
        ++m_unexplained;
        std::printf("%s %s\n    layer    %s\n    windows  %s\n", layer.number.c_str(), layer.operation.c_str(),
                    layer.answer.c_str(), windows.answer.c_str());
    }

    bool Close() const {
        unsigned met = 0;
        for (const Difference& row : m_known) met += row.met;
        for (const Difference& row : m_known) {
            if (row.met == 0) std::printf("not met in this run: %s\n", row.shown.c_str());
        }
        std::printf(
            "%u operations on both homes: %u differences of %zu known kinds, %u unexplained, %u no longer there\n",
            m_lines, met, m_known.size(), m_unexplained, m_closed);
        return m_unexplained == 0 && m_closed == 0;
    }

  private:
    std::vector<Difference> m_known;
    unsigned m_lines = 0;
    unsigned m_unexplained = 0;
    unsigned m_closed = 0;
};

}  // namespace

bool CompareHomes(const std::string& layerFile, const std::string& windowsFile, const std::string& tableFile) try {
    const std::vector<Line> layer = ReadTranscript(layerFile);
    const std::vector<Line> windows = ReadTranscript(windowsFile);
    CJudge judge(ReadDifferences(tableFile));
    for (std::size_t i = 0; i < std::min(layer.size(), windows.size()); ++i) {
        if (layer[i].number != windows[i].number || layer[i].operation != windows[i].operation) {
            throw std::runtime_error(layer[i].number + ": the homes were not asked the same");
        }
        judge.Judge(layer[i], windows[i]);
    }
    if (layer.size() != windows.size()) throw std::runtime_error("one home did not come to the end");
    return judge.Close();
} catch (const std::exception& error) {
    std::fprintf(stderr, "differential: %s\n", error.what());
    return false;
}
