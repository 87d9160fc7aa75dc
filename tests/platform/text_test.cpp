// Code pages, the comparison without the system's case rule, and numbers.
#include <gtest/gtest.h>

#include <cerrno>
#include <functional>

#include "Platform.h"
#include "support/Vectors.h"

namespace {

constexpr WCHAR kMarker = 0xCCCC;

std::string HexOf(const std::string& bytes) {
    std::string digits;
    for (const char byte : bytes) {
        digits += "0123456789abcdef"[(byte >> 4) & 0xF];
        digits += "0123456789abcdef"[byte & 0xF];
    }
    return digits;
}

wstr ToWide(UINT codePage, const std::string& bytes, DWORD flags = 0) {
    WCHAR out[64];
    const int units = MultiByteToWideChar(codePage, flags, bytes.data(), static_cast<int>(bytes.size()), out, 64);
    return wstr(out, static_cast<std::size_t>(units));
}

TEST(CodePages, RecordedConversionsToWide) {
    for (const vectors::Row& row : vectors::LoadWhere("text_time_file.jsonl", "op", "mb2wc")) {
        const UINT codePage = row["cp"];
        const std::string bytes = vectors::Bytes(row["in"]);
        WCHAR out[16] = {};
        // The recorded calls let the NUL end the text, so that it is part of the answer.
        const int units = MultiByteToWideChar(codePage, 0, bytes.c_str(), -1, out, 16);
        EXPECT_EQ(units, row["ret"].get<int>()) << row;
        EXPECT_EQ(wstr(out, static_cast<std::size_t>(units)), vectors::Wide(row["out"])) << row;
        EXPECT_EQ(MultiByteToWideChar(codePage, 0, bytes.c_str(), -1, nullptr, 0), units) << "size query, " << row;
    }
}

TEST(CodePages, RecordedConversionsToUtf8) {
    for (const vectors::Row& row : vectors::LoadWhere("text_time_file.jsonl", "op", "wc2mb_utf8")) {
        const wstr text = vectors::Wide(row["in"]);
        char out[16] = {};
        const int size = WideCharToMultiByte(CP_UTF8, 0, text.c_str(), -1, out, 16, nullptr, nullptr);
        EXPECT_EQ(size, row["ret"].get<int>()) << row;
        EXPECT_EQ(HexOf(std::string(out, static_cast<std::size_t>(size))), row["out"].get<std::string>());
        EXPECT_EQ(WideCharToMultiByte(CP_UTF8, 0, text.c_str(), -1, nullptr, 0, nullptr, nullptr), size) << row;
    }
}

TEST(CodePages, DamagedUtf8BecomesReplacements) {
    const struct {
        const char* why;
        std::string bytes;
        wstr expected;
    } kRows[] = {
        {"no lead byte", "\xFF", {0xFFFD}},
        {"a lead byte before ASCII",
         "\xC3"
         "A",
         {0xFFFD, W('A')}},
        {"cut after a good beginning: one for the part",
         "\xE2\x82"
         "A",
         {0xFFFD, W('A')}},
        {"cut by the end", "A\xC3", {W('A'), 0xFFFD}},
        {"the highest code point is none of them", "\xF4\x8F\xBF\xBF", {0xDBFF, 0xDFFF}},
    };
    for (const auto& row : kRows) {
        EXPECT_EQ(ToWide(CP_UTF8, row.bytes), row.expected) << row.why;
        const bool damaged = row.expected.find(WCHAR{0xFFFD}) != wstr::npos;
        SetLastError(ERROR_SUCCESS);
        EXPECT_EQ(ToWide(CP_UTF8, row.bytes, MB_ERR_INVALID_CHARS).empty(), damaged) << row.why;
        EXPECT_EQ(GetLastError(), damaged ? 1113u : 0u) << row.why;
    }
    // What must never pass: overlong forms, surrogates and numbers beyond the last.
    for (const char* bytes : {"\xC0\xAF", "\xE0\x80\xAF", "\xED\xA0\x80", "\xF4\x90\x80\x80"}) {
        EXPECT_EQ(ToWide(CP_UTF8, bytes).find_first_not_of(WCHAR{0xFFFD}), wstr::npos) << HexOf(bytes);
    }
}

TEST(CodePages, ShortOutputHoldsTheWholeCharactersThatFit) {
    char bytes[8];
    std::fill(std::begin(bytes), std::end(bytes), '\xCC');
    const WCHAR wide[] = {W('a'), W('b'), 0x4E2D, 0};
    SetLastError(ERROR_SUCCESS);
    EXPECT_EQ(WideCharToMultiByte(CP_UTF8, 0, wide, -1, bytes, 4, nullptr, nullptr), 0);
    EXPECT_EQ(GetLastError(), 122u);
    EXPECT_EQ(HexOf(std::string(bytes, 8)), "6162cccccccccccc");

    EXPECT_EQ(WideCharToMultiByte(CP_UTF8, 0, W("abcdef"), -1, bytes, 4, nullptr, nullptr), 0);
    EXPECT_EQ(HexOf(std::string(bytes, 8)), "61626364cccccccc");

    WCHAR out[4] = {kMarker, kMarker, kMarker, kMarker};
    SetLastError(ERROR_SUCCESS);
    EXPECT_EQ(MultiByteToWideChar(CP_THREAD_ACP, 0, "abc", -1, out, 3), 0);
    EXPECT_EQ(GetLastError(), 122u);
    EXPECT_EQ(out[3], kMarker);
}

TEST(CodePages, RefusesWhatItCannotMean) {
    char bytes[4];
    WCHAR wide[4];
    const struct {
        const char* why;
        std::function<int()> call;
    } kRows[] = {
        {"length 0 to wide", [&] { return MultiByteToWideChar(CP_ACP, 0, "a", 0, wide, 4); }},
        {"length 0 from wide", [&] { return WideCharToMultiByte(CP_UTF8, 0, wide, 0, bytes, 4, nullptr, nullptr); }},
        {"null text", [&] { return MultiByteToWideChar(CP_ACP, 0, nullptr, -1, wide, 4); }},
        {"room without an output", [&] { return MultiByteToWideChar(CP_ACP, 0, "a", -1, nullptr, 4); }},
        {"unknown code page", [&] { return MultiByteToWideChar(4711, 0, "a", -1, wide, 4); }},
    };
    for (const auto& row : kRows) {
        SetLastError(ERROR_SUCCESS);
        EXPECT_EQ(row.call(), 0) << row.why;
        EXPECT_EQ(GetLastError(), 87u) << row.why;
    }
}

TEST(CodePages, AnsiGoesBothWays) {
    for (int byte = 1; byte < 256; ++byte) {
        const std::string in(1, static_cast<char>(byte));
        const wstr wide = ToWide(CP_ACP, in);
        ASSERT_EQ(wide.size(), 1u) << byte;
        char out = 0;
        EXPECT_EQ(WideCharToMultiByte(CP_ACP, 0, wide.data(), 1, &out, 1, nullptr, nullptr), 1) << byte;
        EXPECT_EQ(out, in[0]) << byte;
    }
    BOOL usedDefault = FALSE;
    char out = 0;
    const WCHAR foreign = 0x4E2D;
    EXPECT_EQ(WideCharToMultiByte(1252, 0, &foreign, 1, &out, 1, nullptr, &usedDefault), 1);
    EXPECT_EQ(out, '?');
    EXPECT_TRUE(usedDefault);
}

TEST(AsciiComparison, RecordedAnswers) {
    for (const char* runtime : {"msvcrt _wcsicmp", "ucrt _wcsicmp"}) {
        for (const vectors::Row& row : vectors::LoadWhere("compare.jsonl", "case", runtime)) {
            const wstr a = vectors::Wide(row["a"]);
            const wstr b = vectors::Wide(row["b"]);
            EXPECT_EQ(_wcsicmp(a.c_str(), b.c_str()), row["result"].get<int>()) << row;
        }
    }
}

// Left out are the rows in which the platform reads blanks and digits beyond ASCII: run-times off it take ASCII only,
// and no number of the system is written otherwise. Flagged rows leave the number open.
TEST(Numbers, RecordedHexadecimalNumbers) {
    int seen = 0;
    for (const vectors::Row& row : vectors::Load("wcstoull.jsonl")) {
        const wstr text = vectors::Wide(row["in"]);
        std::size_t ascii = 0;
        while (ascii < text.size() && text[ascii] < 0x80) ++ascii;
        if (row["end64"].get<std::size_t>() > ascii) continue;
        ++seen;

        WCHAR* end = nullptr;
        errno = 0;
        const ULONGLONG wide = wcstoull(text.c_str(), &end, 16);
        EXPECT_TRUE(row.contains("flag") || wide == vectors::Hex(row["msvcrt64"])) << row << " gives " << wide;
        EXPECT_EQ(end - text.c_str(), row["end64"].get<std::ptrdiff_t>()) << row;
        EXPECT_EQ(errno, row["errno64"].get<int>()) << row;

        errno = 0;
        const ULONG narrow = wcstoul(text.c_str(), &end, 16);
        EXPECT_EQ(end - text.c_str(), row["end32"].get<std::ptrdiff_t>()) << row;
        EXPECT_EQ(errno, row["errno32"].get<int>()) << row;
        EXPECT_TRUE(row.contains("flag") || narrow == vectors::Hex(row["msvcrt32"])) << row << " gives " << narrow;
    }
    EXPECT_GE(seen, 70);
}

TEST(Numbers, OtherBases) {
    const struct {
        const char* why;
        LPCWSTR text;
        int base;
        ULONG value;
        int used;
    } kRows[] = {
        {"decimal", W("123a"), 10, 123, 3},
        {"base 0 takes the prefix", W("0x1f"), 0, 0x1F, 4},
        {"base 0, octal", W("0178"), 0, 15, 3},
        {"base 0, decimal", W("19"), 0, 19, 2},
        {"the prefix counts in base 16 only", W("0x1f"), 10, 0, 1},
        {"all letters are digits of base 36", W("zZ_"), 36, 35 * 36 + 35, 2},
    };
    for (const auto& row : kRows) {
        WCHAR* end = nullptr;
        EXPECT_EQ(wcstoul(row.text, &end, row.base), row.value) << row.why;
        EXPECT_EQ(end - row.text, row.used) << row.why;
    }
}

}  // namespace
