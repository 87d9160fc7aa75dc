// The recorded answers of the platform's calls, tests/vectors/*.jsonl: one JSON object a line.
#pragma once

#include <gtest/gtest.h>

#include <fstream>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "Platform.h"

namespace vectors {

using Row = nlohmann::json;

// Wide text in the files may hold lone surrogates, which no JSON reader takes. So every escape of a unit is kept as the
// six characters that it is, until Wide reads it.
inline std::string KeepUnits(const std::string& line) {
    std::string kept;
    for (std::size_t i = 0; i < line.size(); ++i) {
        kept += line[i];
        if (line[i] != '\\') continue;
        const char next = line[++i];
        kept += next == 'u' ? "\\u" : next == '\\' ? "\\u005c" : std::string(1, next);
    }
    return kept;
}

inline std::vector<Row> Load(const char* file) {
    std::ifstream in(std::string(OV_TEST_DATA) + "/" + file);
    EXPECT_TRUE(in) << file;
    std::vector<Row> rows;
    for (std::string line; std::getline(in, line);) rows.push_back(Row::parse(KeepUnits(line)));
    EXPECT_FALSE(rows.empty()) << file;
    return rows;
}

// The rows in which `field` is `text`.
inline std::vector<Row> LoadWhere(const char* file, const char* field, const std::string& text) {
    std::vector<Row> rows = Load(file);
    std::erase_if(rows, [&](const Row& row) { return row.value(field, "") != text; });
    EXPECT_FALSE(rows.empty()) << file << ": no " << text;
    return rows;
}

// A text field as 16-bit units. The files are ASCII.
inline wstr Wide(const Row& field) {
    const std::string text = field.get<std::string>();
    wstr wide;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '\\') {
            wide += static_cast<WCHAR>(text[i]);
            continue;
        }
        wide += static_cast<WCHAR>(std::stoul(text.substr(i + 2, 4), nullptr, 16));
        i += 5;
    }
    return wide;
}

// A text field of hexadecimal digits, as a number and as bytes.
inline ULONGLONG Hex(const Row& field) {
    return std::stoull(field.get<std::string>(), nullptr, 16);
}
inline std::string Bytes(const Row& field) {
    const std::string digits = field.get<std::string>();
    std::string bytes;
    for (std::size_t i = 0; i + 1 < digits.size(); i += 2) {
        bytes += static_cast<char>(std::stoul(digits.substr(i, 2), nullptr, 16));
    }
    return bytes;
}

}  // namespace vectors
