// The writer of registration files, and what comes back through the reader.
#include <gtest/gtest.h>

#include <algorithm>

#include "regfile_text.h"
#include "svinfo/Failure.h"

using regtext::FileText;

namespace {

CRegPath Key(wstr_view below) {
    return ParseRegPath(W("HKEY_USERS\\") + wstr(below), RootNames::Long);
}

std::vector<BYTE> Bytes(std::initializer_list<int> bytes) {
    return {bytes.begin(), bytes.end()};
}

std::vector<BYTE> TextBytes(wstr_view text) {
    std::vector<BYTE> bytes;
    for (const WCHAR unit : text) {
        bytes.push_back(static_cast<BYTE>(unit & 0xFF));
        bytes.push_back(static_cast<BYTE>(unit >> 8));
    }
    return bytes;
}

// The file as UTF-8, with its mark and encoding checked and taken away.
std::string Written(const std::vector<CRegBlock>& blocks) {
    const std::string bytes = WriteRegFile(blocks);
    EXPECT_EQ(bytes.substr(0, 2), "\xFF\xFE");
    wstr text;
    for (std::size_t i = 2; i + 1 < bytes.size(); i += 2) {
        text += static_cast<WCHAR>(static_cast<BYTE>(bytes[i]) | static_cast<BYTE>(bytes[i + 1]) << 8);
    }
    return ToUtf8(text);
}

std::string LineOf(const CRegEntry& entry) {
    const std::string text = Written({{Key(W("K")), false, 0, {entry}}});
    const std::string before = "Windows Registry Editor Version 5.00\r\n\r\n[HKEY_USERS\\K]\r\n";
    const std::string after = "\r\n\r\n";
    EXPECT_TRUE(text.starts_with(before) && text.ends_with(after)) << text;
    return text.substr(before.size(), text.size() - before.size() - after.size());
}

const wstr kNul(1, 0);

const struct {
    const char* why;
    CRegEntry entry;
    const char* line;
} kValues[] = {
    {"text", {W("a"), false, REG_SZ, TextBytes(W("x") + kNul)}, "\"a\"=\"x\""},
    {"the default value", {W(""), false, REG_SZ, TextBytes(kNul)}, "@=\"\""},
    {"a value that is named like it", {W("@"), false, REG_SZ, TextBytes(kNul)}, "\"@\"=\"\""},
    {"escapes", {W("a\\\"b"), false, REG_SZ, TextBytes(W("c\\\"d") + kNul)}, "\"a\\\\\\\"b\"=\"c\\\\\\\"d\""},
    {"a name with a line break", {W("a\r\nb"), false, REG_SZ, TextBytes(kNul)}, "\"a\\r\\nb\"=\"\""},
    {"beyond ASCII",
     {W("\u00e4"), false, REG_SZ, TextBytes(W("\u20ac\U0001f642") + kNul)},
     "\"\xC3\xA4\"=\"\xE2\x82\xAC\xF0\x9F\x99\x82\""},
    {"text without its end", {W("a"), false, REG_SZ, TextBytes(W("x"))}, "\"a\"=hex(1):78,00"},
    {"text with half a character behind it",
     {W("a"), false, REG_SZ, Bytes({0x78, 0, 0, 0, 5})},
     "\"a\"=hex(1):78,00,00,00,05"},
    {"text of an odd size", {W("a"), false, REG_SZ, Bytes({0x78, 0, 0})}, "\"a\"=hex(1):78,00,00"},
    {"text with a NUL inside",
     {W("a"), false, REG_SZ, TextBytes(W("x") + kNul + W("y") + kNul)},
     "\"a\"=hex(1):78,00,00,00,79,00,00,00"},
    {"text with two ends", {W("a"), false, REG_SZ, TextBytes(W("x") + kNul + kNul)}, "\"a\"=hex(1):78,00,00,00,00,00"},
    {"text with a line break", {W("a"), false, REG_SZ, TextBytes(W("\n") + kNul)}, "\"a\"=hex(1):0a,00,00,00"},
    {"text with a tab", {W("a"), false, REG_SZ, TextBytes(W("\t") + kNul)}, "\"a\"=hex(1):09,00,00,00"},
    {"text of no size", {W("a"), false, REG_SZ, {}}, "\"a\"=hex(1):"},
    {"half a surrogate pair",
     {W("a"), false, REG_SZ, TextBytes(wstr(1, WCHAR(0xD83D)) + kNul)},
     "\"a\"=\"\xEF\xBF\xBD\""},
    {"text to be expanded", {W("a"), false, REG_EXPAND_SZ, TextBytes(W("%") + kNul)}, "\"a\"=hex(2):25,00,00,00"},
    {"a number", {W("a"), false, REG_DWORD, Bytes({0xEF, 0xBE, 0xAD, 0xDE})}, "\"a\"=dword:deadbeef"},
    {"a number of a wrong size", {W("a"), false, REG_DWORD, Bytes({1, 0, 0})}, "\"a\"=hex(4):01,00,00"},
    {"8 bytes", {W("a"), false, REG_QWORD, Bytes({8, 7, 6, 5, 4, 3, 2, 1})}, "\"a\"=hex(b):08,07,06,05,04,03,02,01"},
    {"bytes", {W("a"), false, REG_BINARY, Bytes({0, 0xFF})}, "\"a\"=hex:00,ff"},
    {"no bytes", {W("a"), false, REG_BINARY, {}}, "\"a\"=hex:"},
    {"no type", {W("a"), false, REG_NONE, {}}, "\"a\"=hex(0):"},
    {"a number the other way round",
     {W("a"), false, REG_DWORD_BIG_ENDIAN, Bytes({0, 0, 0, 1})},
     "\"a\"=hex(5):00,00,00,01"},
    {"a type of no name", {W("a"), false, 0xFFFF1234, Bytes({1})}, "\"a\"=hex(ffff1234):01"},
    {"deletion", {W("a"), true, REG_NONE, {}}, "\"a\"=-"},
};

TEST(RegFileWriter, Values) {
    for (const auto& row : kValues) EXPECT_EQ(LineOf(row.entry), row.line) << row.why;
}

TEST(RegFileWriter, Layout) {
    const CRegEntry entry{W("a"), false, REG_DWORD, Bytes({1, 0, 0, 0})};
    EXPECT_EQ(
        Written({{Key(W("A")), false, 0, {entry, entry}}, {Key(W("A\\]")), false, 0, {}}, {Key(W("B")), true, 0, {}}}),
        "Windows Registry Editor Version 5.00\r\n"
        "\r\n"
        "[HKEY_USERS\\A]\r\n"
        "\"a\"=dword:00000001\r\n"
        "\"a\"=dword:00000001\r\n"
        "\r\n"
        "[HKEY_USERS\\A\\]]\r\n"
        "\r\n"
        "[-HKEY_USERS\\B]\r\n"
        "\r\n");
    EXPECT_EQ(Written({}), "Windows Registry Editor Version 5.00\r\n\r\n");
}

// Lists of every length under names of every length: the breaks stand behind commas and keep the lines within 80
// characters as far as one byte a line allows, and the bytes come back.
TEST(RegFileWriter, LongListsAreBroken) {
    for (std::size_t nameLength : {1u, 2u, 3u, 60u, 64u, 65u, 66u, 67u, 68u, 100u}) {
        for (std::size_t size = 0; size < 120; ++size) {
            CRegEntry entry{wstr(nameLength, W('n')), false, REG_BINARY, {}};
            for (std::size_t i = 0; i < size; ++i) entry.data.push_back(static_cast<BYTE>(i * 37));
            const std::string lines = LineOf(entry) + "\r\n";
            for (std::size_t at = 0; at < lines.size();) {
                const std::size_t end = lines.find("\r\n", at);
                const std::string line = lines.substr(at, end - at);
                if (at == 0 && nameLength > 60) {
                    EXPECT_LE(line.size(), std::max<std::size_t>(80, nameLength + 11)) << line;
                } else {
                    EXPECT_LE(line.size(), 80u) << line;
                }
                const bool last = end + 2 == lines.size();
                EXPECT_EQ(line.ends_with(",\\"), !last) << line;
                EXPECT_EQ(line.starts_with("  "), at != 0) << line;
                at = end + 2;
            }
            const CRegFile back = ReadRegFile(WriteRegFile({{Key(W("K")), false, 0, {entry}}}));
            ASSERT_EQ(back.blocks.at(0).entries.size(), 1u);
            EXPECT_EQ(back.blocks[0].entries[0].data, entry.data) << nameLength << ", " << size;
        }
    }
}

TEST(RegFileWriter, AKeyThatTheFormatCannotHoldIsRefused) {
    for (const WCHAR unit : {WCHAR('\n'), WCHAR('\r')}) {
        EXPECT_THROW(WriteRegFile({{Key(wstr(W("a")) + unit), false, 0, {}}}), CCommandFailure);
    }
}

}  // namespace
