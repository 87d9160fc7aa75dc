// Folding and comparing names, as every name of the registry and of the store is.
#include <gtest/gtest.h>

#include "Platform.h"
#include "module/Library.h"
#include "support/Vectors.h"

namespace {

using CompareProc = LONG(WINAPI*)(PCUNICODE_STRING, PCUNICODE_STRING, BOOLEAN);
using UpcaseProc = NTSTATUS(WINAPI*)(PUNICODE_STRING, PCUNICODE_STRING, BOOLEAN);

UNICODE_STRING Counted(const WCHAR* text, std::size_t units, std::size_t room) {
    return {static_cast<USHORT>(units * sizeof(WCHAR)), static_cast<USHORT>(room * sizeof(WCHAR)),
            const_cast<PWSTR>(text)};
}

UNICODE_STRING Counted(const wstr& text) {
    return Counted(text.data(), text.size(), text.size());
}

class CaseRule : public testing::Test {
  protected:
    void SetUp() override {
        HMODULE ntdll = LoadLibraryW(W("ntdll.dll"));
        m_compare = FindExport<CompareProc>(ntdll, "RtlCompareUnicodeString");
        m_upcase = FindExport<UpcaseProc>(ntdll, "RtlUpcaseUnicodeString");
        ASSERT_TRUE(m_compare && m_upcase);
    }

    WCHAR Upcase(unsigned unit) const {
        const WCHAR in = static_cast<WCHAR>(unit);
        WCHAR out = 0;
        const UNICODE_STRING from = Counted(&in, 1, 1);
        UNICODE_STRING to = Counted(&out, 0, 1);
        EXPECT_EQ(m_upcase(&to, &from, FALSE), STATUS_SUCCESS);
        return out;
    }

    int Sign(const wstr& a, const wstr& b, bool ignoreCase) const {
        const UNICODE_STRING x = Counted(a);
        const UNICODE_STRING y = Counted(b);
        const LONG order = m_compare(&x, &y, ignoreCase);
        return order < 0 ? -1 : order > 0;
    }

    CompareProc m_compare = nullptr;
    UpcaseProc m_upcase = nullptr;
};

TEST_F(CaseRule, EveryRecordedUnit) {
    for (const vectors::Row& row : vectors::Load("upcase.jsonl")) {
        EXPECT_EQ(Upcase(static_cast<unsigned>(vectors::Hex(row["c"]))),
                  static_cast<WCHAR>(vectors::Hex(row["upcase"])))
            << row;
    }
}

TEST_F(CaseRule, ChangesNoOtherUnit) {
    int changes = 0;
    for (unsigned unit = 0; unit < 0x10000; ++unit) {
        const WCHAR upper = Upcase(unit);
        changes += upper != static_cast<WCHAR>(unit);
        EXPECT_TRUE(unit < 0x80 || upper >= 0x80) << std::hex << unit << " becomes ASCII";
        EXPECT_TRUE(unit < 0xD800 || unit > 0xDFFF || upper == unit) << std::hex << unit << ", a surrogate, changes";
        EXPECT_EQ(Upcase(upper), upper) << std::hex << unit << ": folding twice is not folding once";
    }
    EXPECT_EQ(changes, 1163);
}

TEST_F(CaseRule, RecordedComparisons) {
    for (const vectors::Row& row : vectors::LoadWhere("compare.jsonl", "case", "RtlCompareUnicodeString CI")) {
        const wstr a = vectors::Wide(row["a"]);
        const wstr b = vectors::Wide(row["b"]);
        const auto sign = [](int number) { return number < 0 ? -1 : number > 0; };
        EXPECT_EQ(Sign(a, b, true), sign(row["result"])) << row;
        EXPECT_EQ(Sign(b, a, true), -sign(row["result"])) << row;
        EXPECT_EQ(Sign(a, b, false), sign(row["result_cs"])) << row;
    }
}

TEST_F(CaseRule, UpcasesInPlaceAndKeepsWithinItsRoom) {
    WCHAR text[] = {W('a'), 0x00E9, W('z')};
    UNICODE_STRING both = Counted(text, 2, 2);
    EXPECT_EQ(m_upcase(&both, &both, FALSE), STATUS_SUCCESS);
    EXPECT_EQ(wstr(text, 3), (wstr{W('A'), 0x00C9, W('z')}));
    EXPECT_EQ(both.Length, 4);

    WCHAR small[2] = {W('-'), W('-')};
    UNICODE_STRING out = Counted(small, 0, 1);
    EXPECT_EQ(m_upcase(&out, &both, FALSE), STATUS_BUFFER_OVERFLOW);
    EXPECT_EQ(small[0], W('-'));
}

}  // namespace
