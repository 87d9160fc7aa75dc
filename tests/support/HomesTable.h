// The tables of docs/homes.md, as text cells: what differs between the homes stands there once, for readers and tests.
#pragma once

#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

using HomesRow = std::vector<std::string>;

inline std::string TrimmedCell(const std::string& text) {
    const std::size_t first = text.find_first_not_of(" `");
    if (first == std::string::npos) return {};
    return text.substr(first, text.find_last_not_of(" `") - first + 1);
}

// The rows whose first cell is `kind`, without it: "| kind | a | b |" gives a and b. Throws std::runtime_error when the
// file cannot be read, or when a row has not `cells` cells with something in each.
inline std::vector<HomesRow> ReadHomesTable(const std::string& file, const std::string& kind, std::size_t cells) {
    std::ifstream in(file);
    if (!in) throw std::runtime_error(file + " cannot be read");
    const std::string start = "| " + kind + " |";
    std::vector<HomesRow> rows;
    for (std::string line; std::getline(in, line);) {
        if (!line.starts_with(start)) continue;
        HomesRow row;
        std::istringstream rest(line.substr(start.size()));
        for (std::string cell; std::getline(rest, cell, '|');) {
            if (std::string text = TrimmedCell(cell); !text.empty()) row.push_back(std::move(text));
        }
        if (row.size() != cells) throw std::runtime_error(file + ": a cell is missing, or one is too many: " + line);
        rows.push_back(std::move(row));
    }
    return rows;
}
