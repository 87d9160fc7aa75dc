// The formatter, against what the platform's own routine gave.
#include "diagnostics/Format.h"

#include <gtest/gtest.h>

#include <bit>
#include <cstring>
#include <map>
#include <vector>

#include "support/Vectors.h"

namespace {

using OVFormat::CArgument;
using OVFormat::Fault;
using OVFormat::FaultOf;
using OVFormat::Kind;

// The text, or an empty one when it does not fit; `length` is what the call gave.
wstr Formatted(const std::string& format, const std::vector<CArgument>& arguments, int* length = nullptr) {
    WCHAR out[400];
    const int units = OVFormat::FormatInto(out, 400, format.c_str(), arguments);
    if (length) *length = units;
    return wstr(out, units < 0 ? 0 : static_cast<std::size_t>(units));
}

// What the recorded calls were given: the notes tell it in words only.
const std::vector<CArgument>* GivenTo(const std::string& note) {
    static const WCHAR kHan[] = {W('v'), 0x00E9, 0x4E2D, 0};
    static const WCHAR kLone[] = {0xD800, 0};
    static const std::map<std::string, std::vector<CArgument>> kByNote = {
        {"int", {static_cast<int>(-2147483647 - 1)}},
        {"hex", {0x1F}},
        {"I64 with 0x", {1ull}},
        {"ls", {W("name"), kHan}},
        {"ws", {W("wide")}},
        {"hs", {"narrow"}},
        {"hs non-ASCII bytes", {"a\xE9\xFF z"}},
        {"hs bad UTF-8", {"\xC3"}},
        {"capital S takes narrow", {"narrow"}},
        {"hc 0xe9", {0xE9}},
        {"lc", {0x4E2D}},
        {"null hs", {nullptr}},
        {"%5ls", {W("ab")}},
        {"%.2ls", {W("abcd")}},
        {"%05ls", {W("ab")}},
        {"%-*d", {5, 42}},
        {"lone percent at end", {}},
        {"unknown conversion", {1, 2}},
        {"percent blank", {1}},
        {"%k", {7}},
        {"%d of long", {static_cast<HRESULT>(0x80070005)}},
        {"%+d", {7}},
        {"% d", {7}},
        {"%#x", {0xFF}},
        {"%x", {0xABC}},
        {"%p", {reinterpret_cast<void*>(static_cast<ULONG_PTR>(0x1234))}},
        {"%02d:%02d:%02d.%03d", {1, 2, 3, 4}},
        {"%I32d", {-3}},
        {"%Id", {-3ll}},
        {"%n ignored?", {}},
        {"%hls", {W("ab")}},
        {"%lhs", {"ab"}},
        {"lone surrogate", {kLone}},
        {"%%%ls", {W("z")}},
        {"%td", {7ll}},
        {"%hd", {70000}},
        {"%hhd", {300}},
        {"%f inf", {std::bit_cast<double>(0x7FF0000000000000ull)}},
    };
    const auto found = kByNote.find(note);
    return found == kByNote.end() ? nullptr : &found->second;
}

TEST(Formatter, RecordedTexts) {
    int doubles = 0;
    for (const vectors::Row& row : vectors::LoadWhere("printf.jsonl", "op", "printf")) {
        const auto format = row["format"].get<std::string>();
        const auto note = row["note"].get<std::string>();
        const wstr expected = vectors::Wide(row["msvcrt_out"]);
        std::vector<CArgument> given;
        if (note == "%1.24lg") {
            given = {std::stod(std::string(expected.begin(), expected.end()))};
            ++doubles;
        } else if (const auto* known = GivenTo(note)) {
            given = *known;
        } else {
            ADD_FAILURE() << "no argument known for " << row;
            continue;
        }
        int length = 0;
        EXPECT_EQ(Formatted(format, given, &length), expected) << row;
        EXPECT_EQ(length, row["msvcrt_ret"].get<int>()) << row;
    }
    EXPECT_EQ(doubles, 3);
}

TEST(Formatter, RecordedDoubles) {
    for (const vectors::Row& row : vectors::LoadWhere("printf.jsonl", "op", "double")) {
        const std::string bytes = vectors::Bytes(row["bits_le"]);
        double number = 0;
        std::memcpy(&number, bytes.data(), sizeof number);
        EXPECT_EQ(Formatted("%1.24lg", {number}), vectors::Wide(row["msvcrt"])) << row;
    }
}

TEST(Formatter, RecordedCuts) {
    const struct {
        const char* note;
        std::vector<CArgument> given;
    } kRows[] = {
        {"exact, no room for NUL", {W("12345678")}},
        {"too long", {W("123456789")}},
        {"cap 0", {}},
    };
    for (const auto& test : kRows) {
        for (const vectors::Row& row : vectors::LoadWhere("printf.jsonl", "note", test.note)) {
            WCHAR out[16];
            std::memset(out, 0xCC, sizeof out);
            const std::size_t room = row["cap"];
            EXPECT_EQ(OVFormat::FormatInto(out, room, row["format"].get<std::string>().c_str(), test.given),
                      row["ret"].get<int>())
                << row;
            EXPECT_EQ(std::memcmp(out, vectors::Bytes(row["buf_le"]).data(), sizeof out), 0) << row;
        }
    }
}

TEST(Formatter, WhatTheRecordedCallsLeaveOpen) {
    const struct {
        const char* why;
        const char* format;
        std::vector<CArgument> given;
        LPCWSTR expected;
    } kRows[] = {
        {"width from a negative argument is left-justified", "%*d|", {-4, 7}, W("7   |")},
        {"precision from an argument", "%.*d", {3, 7}, W("007")},
        {"a negative precision is none", "%.*ls", {-1, W("abc")}, W("abc")},
        {"a precision takes the zeros of the width away", "%05.2d", {7}, W("   07")},
        {"zeros stand behind the sign", "%05d", {-7}, W("-0007")},
        {"no digit of a zero with precision 0", "[%.0d]", {0}, W("[]")},
        {"unsigned numbers are cut to 32 bits", "%u", {-1}, W("4294967295")},
        {"the smallest number of 64 bits", "%I64d", {-9223372036854775807ll - 1}, W("-9223372036854775808")},
        {"octal with its zero", "%#o", {8}, W("010")},
        {"no prefix before zero", "%#x", {0}, W("0")},
        {"an unterminated text with a precision", "%.3hs", {"abcdef"}, W("abc")},
        {"null cut by its precision", "%.3ls", {nullptr}, W("(nu")},
        {"fixed, rounded", "%.2f", {2.675}, W("2.67")},
        {"exponent", "%e", {12345.678}, W("1.234568e+004")},
        {"upper case", "%G", {1e-10}, W("1E-010")},
        {"not a number", "%f", {std::bit_cast<double>(0x7FF8000000000000ull)}, W("1.#QNAN0")},
    };
    for (const auto& row : kRows) EXPECT_EQ(Formatted(row.format, row.given), row.expected) << row.why;
}

TEST(Formatter, ACharacterZeroGoesIntoTheText) {
    int length = 0;
    EXPECT_EQ(Formatted("a%cb", {0}, &length), (wstr{W('a'), WCHAR{0}, W('b')}));
    EXPECT_EQ(length, 3);
}

// Formats from a table or a file are not checked by the compiler; nothing is read that was not given.
TEST(Formatter, AnUnfitArgumentPrintsNothing) {
    const struct {
        const char* why;
        const char* format;
        std::vector<CArgument> given;
        LPCWSTR expected;
    } kRows[] = {
        {"no argument left", "[%d|%ls|%p]", {}, W("[||]")},
        {"a number as text", "[%ls]", {42}, W("[]")},
        {"a text as a number", "[%d]", {"42"}, W("[]")},
        {"a text as a floating-point number", "[%f]", {W("1")}, W("[]")},
        {"narrow text where wide text was meant", "[%ls]", {"ab"}, W("[ab]")},
        {"more arguments than conversions", "[%d]", {1, 2, 3}, W("[1]")},
        {"a width beyond every buffer", "%99999999999d", {1}, W("")},
    };
    for (const auto& row : kRows) EXPECT_EQ(Formatted(row.format, row.given), row.expected) << row.why;
}

TEST(Formatter, CutsWithItsNul) {
    WCHAR out[6] = {W('?'), W('?'), W('?'), W('?'), W('?'), W('?')};
    EXPECT_EQ(OVFormat::Format(out, 5, "%ls", W("abcdef")), 4u);
    EXPECT_EQ(wstr(out), W("abcd"));
    EXPECT_EQ(out[5], W('?'));
    EXPECT_EQ(OVFormat::Format(out, 5, "%ls", W("abcd")), 4u);
    EXPECT_EQ(OVFormat::Format(out, 5, nullptr), 0u);
    EXPECT_EQ(out[0], 0);
}

// What a call of Format or Print with a literal does not compile for.
template <class... Args>
consteval Fault Judged(const char* format, bool bareNarrow = false) {
    constexpr std::array<Kind, sizeof...(Args)> kGiven = {OVFormat::KindOf<Args>()...};
    return FaultOf(format, kGiven, bareNarrow);
}

static_assert(Judged<LPCWSTR, DWORD>("%ls = %ld") == Fault::kNone);
static_assert(Judged<ULONGLONG>("0x%016I64X") == Fault::kNone);
static_assert(Judged<int, int>("%-*d") == Fault::kNone);
static_assert(Judged<std::nullptr_t>("%ls") == Fault::kNone);
static_assert(Judged<>("100%%") == Fault::kNone);
static_assert(Judged<ULONGLONG>("%ld") == Fault::kConversionDoesNotFitItsArgument, "64 bits for 32");
static_assert(Judged<DWORD>("%I64d") == Fault::kConversionDoesNotFitItsArgument, "32 bits for 64");
static_assert(Judged<const char*>("%ls") == Fault::kConversionDoesNotFitItsArgument, "narrow for wide");
static_assert(Judged<LPCWSTR>("%hs") == Fault::kConversionDoesNotFitItsArgument, "wide for narrow");
static_assert(Judged<LPCWSTR>("%ls %d") == Fault::kConversionDoesNotFitItsArgument, "an argument is missing");
static_assert(Judged<int>("%*d") == Fault::kConversionDoesNotFitItsArgument, "the width is an argument, too");
static_assert(Judged<int>("done") == Fault::kTooManyArguments);
static_assert(Judged<int>("%q") == Fault::kUnknownConversion);
static_assert(Judged<>("end%") == Fault::kUnknownConversion);
// A bare %s is wide text, and narrow text in trace messages; with a width it is wide text in both.
static_assert(Judged<LPCWSTR>("%s") == Fault::kNone);
static_assert(Judged<const char*>("%s", true) == Fault::kNone);
static_assert(Judged<LPCWSTR>("%s", true) == Fault::kConversionDoesNotFitItsArgument);
static_assert(Judged<LPCWSTR>("%5s", true) == Fault::kNone);

}  // namespace
