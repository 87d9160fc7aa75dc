// Registry.pol: what is read, and where damage is told.
#include "svinfo/PolFile.h"

#include <gtest/gtest.h>

#include <random>

namespace {

// Two records, byte for byte: a number, and one that deletes a value.
const std::string kHead("PReg\x01\0\0\0", 8);
const std::string kNumber("[\0A\0\\\0B\0\0\0;\0V\0\0\0;\0\4\0\0\0;\0\4\0\0\0;\0\1\0\0\0]\0", 44 - 8);
const std::string kDelete("[\0A\0\0\0;\0*\0*\0D\0e\0l\0.\0X\0\0\0;\0\1\0\0\0;\0\4\0\0\0;\0 \0\0\0]\0", 44);

TEST(PolFile, RecordsAsTheyStand) {
    const std::vector<CPolRecord> records = ReadPolFile(kHead + kNumber + kDelete);
    ASSERT_EQ(records.size(), 2u);
    EXPECT_EQ(records[0].key, W("A\\B"));
    EXPECT_EQ(records[0].name, W("V"));
    EXPECT_EQ(records[0].type, static_cast<DWORD>(REG_DWORD));
    EXPECT_EQ(records[0].data, (std::vector<BYTE>{1, 0, 0, 0}));
    EXPECT_EQ(records[0].offset, 8u);
    EXPECT_EQ(records[1].name, W("**Del.X"));
    EXPECT_EQ(records[1].offset, 44u);
    EXPECT_TRUE(ReadPolFile(kHead).empty()) << "a header alone is an empty policy";
}

TEST(PolFile, DamageIsToldWithItsPlace) {
    const auto with = [](std::string bytes, std::size_t at, char byte) {
        bytes[at] = byte;
        return bytes;
    };
    const struct {
        const char* why;
        std::string bytes;
        std::size_t offset;
    } rows[] = {
        {"nothing", "", 0},
        {"another signature", with(kHead, 0, 'p'), 0},
        {"another version", with(kHead, 4, 2), 4},
        {"a misplaced bracket", kHead + "]" + kNumber, 8},
        {"cut in the key", kHead + kNumber.substr(0, 5), 12},
        {"cut in the size", kHead + kNumber.substr(0, 26), 32},
        {"less data than the size says", kHead + with(kNumber, 24, 5), 43},
        {"a size beyond all memory", kHead + with(kNumber, 27, '\x7F'), 38},
        {"no separator where one must be", kHead + with(kNumber, 10, ','), 18},
        {"junk at the end", kHead + kNumber + "x", 44},
    };
    for (const auto& row : rows) {
        try {
            ReadPolFile(row.bytes);
            ADD_FAILURE() << row.why;
        } catch (const CBadPolFile& bad) {
            EXPECT_EQ(bad.offset, row.offset) << row.why << ": " << bad.text;
        }
    }
}

// Separators are no marks to look for: names and data are full of them, and data of an odd size moves all that follows.
TEST(PolFile, WhatIsWrittenIsReadAgain) {
    std::mt19937 random(11);
    const WCHAR units[] = {W('['), W(']'), W(';'), W('a'), W('\u4E2D'), W('\\')};
    for (int round = 0; round < 200; ++round) {
        std::vector<CPolRecord> records(random() % 5);
        for (CPolRecord& record : records) {
            for (auto n = random() % 6; n > 0; --n) record.key += units[random() % std::size(units)];
            for (auto n = random() % 6; n > 0; --n) record.name += units[random() % std::size(units)];
            record.type = static_cast<DWORD>(random());
            record.data.resize(random() % 9);
            for (BYTE& byte : record.data) byte = static_cast<BYTE>(units[random() % std::size(units)]);
        }
        const std::vector<CPolRecord> read = ReadPolFile(WritePolFile(records));
        ASSERT_EQ(read.size(), records.size());
        for (std::size_t i = 0; i < read.size(); ++i) {
            EXPECT_EQ(read[i].key, records[i].key);
            EXPECT_EQ(read[i].name, records[i].name);
            EXPECT_EQ(read[i].type, records[i].type);
            EXPECT_EQ(read[i].data, records[i].data);
        }
    }
}

}  // namespace
