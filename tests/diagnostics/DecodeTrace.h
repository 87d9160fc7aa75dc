// A decoder of trace files of its own: nothing here is the module's but the numbers that both must know.
#pragma once

#include <cstdint>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

struct DecodedRecord {
    std::uint32_t thread;
    char tag;
    std::string text;
};

struct DecodedTrace {
    std::vector<std::string> head;  // its lines, without their ends
    std::vector<DecodedRecord> records;
    bool whole = true;  // up to the end of the file
};

inline void DecipherPlainly(std::string& text) {
    constexpr std::uint32_t kKey[] = {0xB5BE81AF, 0xCDD12F9C, 0x9F4DE231, 0x9B7ED979};
    std::uint32_t words[] = {0xC3A5C85C, 0x97CB3127};
    for (std::size_t at = 0; at < text.size(); at += 8) {
        std::uint32_t x = words[0], y = words[1], sum = 0;
        const auto half = [](std::uint32_t word) { return word >> 31 ? ~(~word >> 5) : word >> 5; };
        for (int round = 0; round < 32; ++round) {
            sum += 0x9E3779B9;
            x += ((y << 4) + kKey[0]) ^ (y + sum) ^ (half(y) + kKey[1]);
            y += ((x << 4) + kKey[2]) ^ (x + sum) ^ (half(x) + kKey[3]);
        }
        for (std::size_t i = 0; i < 8 && at + i < text.size(); ++i) {
            const char cipher = text[at + i];
            text[at + i] = static_cast<char>(cipher ^ static_cast<char>((i < 4 ? x : y) >> 8 * (i & 3)));
            reinterpret_cast<char*>(words)[i] = cipher;
        }
    }
}

inline DecodedTrace DecodeTrace(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    const std::string all{std::istreambuf_iterator<char>(file), {}};
    DecodedTrace trace;
    std::size_t at = 0;
    for (std::size_t end; (end = all.find("\r\n", at)) != all.npos; at = end + 2) {
        trace.head.push_back(all.substr(at, end - at));
        if (trace.head.back() == ".") break;
    }
    for (at += 3; at + 7 <= all.size();) {
        DecodedRecord record = {0, all[at + 4], {}};
        std::uint16_t length = 0;
        std::memcpy(&record.thread, all.data() + at, 4);
        std::memcpy(&length, all.data() + at + 5, 2);
        if (at + 7 + length > all.size()) break;
        record.text = all.substr(at + 7, length);
        DecipherPlainly(record.text);
        trace.records.push_back(record);
        at += 7 + length;
    }
    trace.whole = at == all.size();
    return trace;
}
