// Text at the tool's edge: encodings, what a terminal is shown, tables, suggestions.
#include "svinfo/Text.h"

#include <gtest/gtest.h>

#include "svinfo/Output.h"
#include "svinfo/Suggest.h"

namespace {

TEST(Text, Utf8IsReadStrictly) {
    const struct {
        const char* why;
        std::string bytes;
        std::optional<wstr> text;
        std::size_t badOffset;
    } rows[] = {
        {"every length", "a\xC3\xA4\xE2\x82\xAC\xF0\x9F\x99\x82", wstr(W("a\u00e4\u20ac\U0001f642")), 0},
        {"the last code point", "\xF4\x8F\xBF\xBF", wstr(W("\U0010ffff")), 0},
        {"one beyond", "a\xF4\x90\x80\x80", std::nullopt, 1},
        {"overlong", "ab\xC1\xBF", std::nullopt, 2},
        {"overlong, three bytes", "\xE0\x9F\xBF", std::nullopt, 0},
        {"overlong, four bytes", "\xF0\x8F\xBF\xBF", std::nullopt, 0},
        {"a surrogate", "\xED\xA0\x80", std::nullopt, 0},
        {"the unit before them", "\xED\x9F\xBF", wstr(W("\ud7ff")), 0},
        {"a follower alone", "\x80", std::nullopt, 0},
        {"cut short", "a\xE2\x82", std::nullopt, 1},
        {"interrupted", "\xE2\x82z", std::nullopt, 0},
    };
    for (const auto& row : rows) {
        std::size_t bad = 0;
        EXPECT_EQ(FromUtf8(row.bytes, &bad), row.text) << row.why;
        EXPECT_EQ(bad, row.badOffset) << row.why;
        if (row.text) {
            EXPECT_EQ(ToUtf8(*row.text), row.bytes) << row.why;
        }
    }
}

TEST(Text, LoneSurrogatesBecomeVisible) {
    const WCHAR high = 0xD83D, low = 0xDE42;
    EXPECT_EQ(ToUtf8(wstr{high, 'a'}),
              "\xEF\xBF\xBD"
              "a");
    EXPECT_EQ(ToUtf8(wstr{'a', high}), "a\xEF\xBF\xBD");
    EXPECT_EQ(ToUtf8(wstr{low, high}), "\xEF\xBF\xBD\xEF\xBF\xBD");
    EXPECT_EQ(ToUtf8(wstr{high, high, low}), "\xEF\xBF\xBD\xF0\x9F\x99\x82");
}

TEST(Text, WhatSteersATerminalIsWrittenOut) {
    const struct {
        const char* why;
        const char* text;
        const char* shown;
    } rows[] = {
        {"ordinary text", "A\\B \xC3\xA4 \xF0\x9F\x99\x82", "A\\B \xC3\xA4 \xF0\x9F\x99\x82"},
        {"an escape sequence", "\x1B[2J", "\\x1B[2J"},
        {"the common ones by name", "a\tb\r\n", "a\\tb\\r\\n"},
        {"delete", "\x7F", "\\x7F"},
        {"the second set of controls",
         "\xC2\x9B"
         "31m",
         "\\x9B31m"},
        {"a turn of direction", "\xE2\x80\xAEtxt", "\\u202Etxt"},
        {"an isolate", "\xE2\x81\xA6", "\\u2066"},
        {"a line separator", "\xE2\x80\xA8", "\\u2028"},
        {"bytes that are no UTF-8", "\x9B\xC3", "\\x9B\\xC3"},
    };
    for (const auto& row : rows) EXPECT_EQ(EscapeControls(row.text), row.shown) << row.why;
}

TEST(Text, QuotedTextIsCutBetweenCharacters) {
    EXPECT_EQ(Quoted(wstr_view(wstr(60, 'x'))), "'" + std::string(60, 'x') + "'");
    EXPECT_EQ(Quoted(wstr_view(wstr(61, 'x'))), "'" + std::string(60, 'x') + "...'");
    EXPECT_EQ(Quoted(std::string_view("a\nb")), "'a\\nb'");
    EXPECT_EQ(Quoted(std::string_view("\xFF")), "'\\xFF'");
}

TEST(Text, CodePage1252) {
    EXPECT_EQ(FromCodePage1252("a\x80\xE9"), W("a\u20ac\u00e9"));
}

TEST(Table, AlignedOnATerminalTabsElsewhere) {
    const CTable table{{"NAME", "VALUE"},
                       {{{"\xC3\xA4\xC3\xA4\xC3\xA4\xC3\xA4\xC3\xA4", Tone::Plain}, {"1", Tone::Good}},
                        {{"a", Tone::Plain}, {"x\ty", Tone::Plain}},
                        {{"b", Tone::Plain}, {"", Tone::Bad}}}};
    EXPECT_EQ(FormatTable(table, true, false),
              "NAME   VALUE\n"
              "\xC3\xA4\xC3\xA4\xC3\xA4\xC3\xA4\xC3\xA4  1\n"
              "a      x\\ty\n"
              "b\n");
    EXPECT_EQ(FormatTable(table, false, false), "\xC3\xA4\xC3\xA4\xC3\xA4\xC3\xA4\xC3\xA4\t1\na\tx\\ty\nb\t\n");
    EXPECT_EQ(FormatTable({{"A"}, {{{"x", Tone::Bad}}}}, false, true), "\x1B[31mx\x1B[0m\n");
}

// A program's standard output for a test: a file without a name.
std::string Shown(bool terminal, std::string_view line) {
    std::FILE* file = std::tmpfile();
    COutputStyle style;
    style.terminal = terminal;
    COutput output(style, file, file);
    output.Line(line);
    std::rewind(file);
    char text[64];
    const std::size_t length = std::fread(text, 1, sizeof text, file);
    std::fclose(file);
    return {text, length};
}

TEST(Output, OnlyATerminalIsShielded) {
    EXPECT_EQ(Shown(true, "\x1B[31mx"), "\\x1B[31mx\n");
    EXPECT_EQ(Shown(false, "\x1B[31mx"), "\x1B[31mx\n") << "a pipe gets the value as it is";
}

TEST(Suggest, TheNearestWord) {
    const std::vector<std::string> verbs = {"get", "status", "reg import", "reg export", "help", "version"};
    const struct {
        const char* word;
        std::optional<std::string> nearest;
    } rows[] = {
        {"gte", "get"},     {"GET", "get"},         {"statsu", "status"},         {"reg improt", "reg import"},
        {"hlep", "help"},   {"verison", "version"}, {"reg expert", "reg export"}, {"zzz", std::nullopt},
        {"", std::nullopt}, {"x", std::nullopt},    {"completely", std::nullopt},
    };
    for (const auto& row : rows) EXPECT_EQ(NearestWord(row.word, verbs), row.nearest) << row.word;
    EXPECT_EQ(NearestWord("xy", {"on"}), std::nullopt) << "nothing of the word is left";
}

}  // namespace
