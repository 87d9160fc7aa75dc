// Registry values from the command line, and as they are shown.
#include "svinfo/RegData.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "svinfo/Failure.h"
#include "svinfo/Text.h"

namespace {

// The bytes in hexadecimal digits, or the exit code of the refusal.
std::string Given(DWORD type, const std::string& argument) {
    try {
        const std::vector<BYTE> data = RegDataArgument(type, argument);
        return HexText(data.data(), data.size());
    } catch (const CCommandFailure& failure) {
        return "exit " + std::to_string(static_cast<int>(failure.Code()));
    }
}

TEST(RegData, Arguments) {
    const struct {
        const char* why;
        DWORD type;
        const char* argument;
        const char* bytes;
    } rows[] = {
        {"text gets its end", REG_SZ, "a\xE2\x82\xAC", "6100ac200000"},
        {"empty text", REG_EXPAND_SZ, "", "0000"},
        {"no UTF-8", REG_SZ, "\xFF", "exit 2"},
        {"a number", REG_DWORD, "258", "02010000"},
        {"leading zeros are decimal", REG_DWORD, "010", "0a000000"},
        {"the largest", REG_DWORD, "4294967295", "ffffffff"},
        {"one more", REG_DWORD, "4294967296", "exit 2"},
        {"in hexadecimal", REG_DWORD, "0xFFfffFFF", "ffffffff"},
        {"one digit more", REG_DWORD, "0x100000000", "exit 2"},
        {"negative", REG_DWORD, "-1", "exit 2"},
        {"a sign", REG_DWORD, "+1", "exit 2"},
        {"blanks", REG_DWORD, " 1", "exit 2"},
        {"nothing", REG_DWORD, "", "exit 2"},
        {"a prefix alone", REG_DWORD, "0x", "exit 2"},
        {"digits of another base", REG_DWORD, "1f", "exit 2"},
        {"8 bytes", REG_QWORD, "0x1122334455667788", "8877665544332211"},
        {"the largest of 8 bytes", REG_QWORD, "18446744073709551615", "ffffffffffffffff"},
        {"one more than that", REG_QWORD, "18446744073709551616", "exit 2"},
        {"far more than that", REG_QWORD, "99999999999999999999", "exit 2"},
        {"bytes", REG_BINARY, "00fF7a", "00ff7a"},
        {"no bytes", REG_BINARY, "", ""},
        {"half a byte", REG_BINARY, "00f", "exit 2"},
        {"no digits", REG_BINARY, "0x", "exit 2"},
        {"a list", REG_MULTI_SZ, "a\\0bc", "610000006200630000000000"},
        {"a list with a separator at its end", REG_MULTI_SZ, "a\\0", "610000000000"},
        {"an empty list", REG_MULTI_SZ, "", "0000"},
        {"an empty text would end the list", REG_MULTI_SZ, "a\\0\\0b", "exit 2"},
        {"and so at the start", REG_MULTI_SZ, "\\0a", "exit 2"},
    };
    for (const auto& row : rows) EXPECT_EQ(Given(row.type, row.argument), row.bytes) << row.why;
}

// `form data` as JSON, and as text where that differs.
TEST(RegData, Shown) {
    const struct {
        const char* why;
        DWORD type;
        std::vector<BYTE> data;
        const char* form;
        const char* inJson;
        const char* text;
    } rows[] = {
        {"text without its end", REG_SZ, {'a', 0}, "bytes", "\"6100\"", "6100"},
        {"text of an odd size", REG_SZ, {'a', 0, 0}, "bytes", "\"610000\"", "610000"},
        {"text of no size", REG_SZ, {}, "bytes", "\"\"", ""},
        {"text with a NUL", REG_SZ, {'a', 0, 0, 0, 'b', 0, 0, 0}, "bytes", "\"6100000062000000\"", "6100000062000000"},
        {"half a pair", REG_SZ, {0, 0xD8, 0, 0}, "text", "\"\xEF\xBF\xBD\"", "\xEF\xBF\xBD"},
        {"a number of a wrong size", REG_DWORD, {1, 2, 3}, "bytes", "\"010203\"", "010203"},
        {"an empty list", REG_MULTI_SZ, {0, 0}, "list", "[]", ""},
        {"a list without its last end", REG_MULTI_SZ, {'a', 0, 0, 0}, "bytes", "\"61000000\"", "61000000"},
        {"a type of no name", 0x12345, {1}, "bytes", "\"01\"", "01"},
    };
    for (const auto& row : rows) {
        const CRegEntry entry{W("n"), false, row.type, row.data};
        const json shown = RegEntryJson(entry);
        EXPECT_EQ(shown["form"], row.form) << row.why;
        EXPECT_EQ(shown["data"].dump(), row.inJson) << row.why;
        EXPECT_EQ(RegDataText(entry), row.text) << row.why;
    }
    EXPECT_EQ(RegTypeText(0x12345), "0x12345");
}

}  // namespace
