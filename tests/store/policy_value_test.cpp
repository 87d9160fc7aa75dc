#include "store/PolicyValue.h"

#include <gtest/gtest.h>

#include <cstring>
#include <functional>

#include "store/PolicyNames.h"
#include "support/Values.h"

namespace {

CPolicyValue Blob(const char* bytes, std::size_t size) {
    CPolicyValue value;
    value.SetBlob(bytes, size);
    return value;
}

TEST(PolicyValue, CopiesAreDeepAndSurviveTheirSource) {
    CPolicyValue copy;
    CPolicyValue blob;
    {
        const CPolicyValue source = List({Text(W("one")), List({Text(W("inner")), Number(OV_TYPE_QWORD, 7)})});
        copy = source;
        ASSERT_NE(copy.Elements()[0].Text(), source.Elements()[0].Text());
        blob = Blob("a\0b", 3);
    }
    EXPECT_EQ(wstr(copy.Elements()[0].Text()), W("one"));
    EXPECT_EQ(wstr(copy.Elements()[1].Elements()[0].Text()), W("inner"));
    EXPECT_EQ(copy.Elements()[1].Elements()[1].Number(), 7u);
    EXPECT_EQ(blob.Raw().data, 3u);
    EXPECT_EQ(std::memcmp(blob.Raw().items, "a\0b", 3), 0);
}

TEST(PolicyValue, MayBeAssignedOneOfItsOwnElements) {
    CPolicyValue value = List({Text(W("kept"))});
    value = value.Elements()[0];
    EXPECT_EQ(wstr(value.Text()), W("kept"));
    value = *&value;
    EXPECT_EQ(wstr(value.Text()), W("kept"));
}

TEST(PolicyValue, AppendGrowsArraysAndNothingElse) {
    CPolicyValue value;
    EXPECT_TRUE(value.Append(Number(OV_TYPE_QWORD, 0)));
    for (ULONGLONG i = 1; i < 1000; ++i) ASSERT_TRUE(value.Append(Number(OV_TYPE_QWORD, i)));
    ASSERT_EQ(value.Elements().size(), 1000u);
    for (ULONGLONG i = 0; i < 1000; ++i) EXPECT_EQ(value.Elements()[i].Number(), i);

    CPolicyValue text = Text(W("x"));
    EXPECT_FALSE(text.Append(value));
    EXPECT_EQ(wstr(text.Text()), W("x"));
    EXPECT_TRUE(value.Append(value)) << "an array may be made an element of itself";
    EXPECT_EQ(value.Elements()[1000].Elements().size(), 1000u);
}

TEST(PolicyValue, AssignTakesClientFormAndRefusesUnknownTypes) {
    CPolicyValue value = Text(W("old"));
    value.Assign({12, 5, nullptr});
    EXPECT_EQ(value.Type(), static_cast<DWORD>(OV_TYPE_NONE));
    value.Assign({OV_TYPE_STRING, 0, nullptr});
    EXPECT_EQ(value.Type(), static_cast<DWORD>(OV_TYPE_STRING));
    EXPECT_EQ(value.Text(), nullptr);
    const GUID id = CLSID_ServerInfo;
    value.SetGuid(id);
    CPolicyValue copy(value);
    EXPECT_EQ(std::memcmp(&copy.Raw().data, &id, sizeof id), 0);
}

TEST(PolicyValue, ItemsEqualFollowsTheTypeOfTheFirst) {
    const struct {
        const char* why;
        CPolicyValue a, b;
        bool equal;
    } rows[] = {
        {"case is no difference", Text(W("ABC")), Text(W("abc")), true},
        {"beyond ASCII too", Text(W("\u00C9")), Text(W("\u00E9")), true},
        {"other text", Text(W("ABC")), Text(W("ABD")), false},
        {"both without text", Text(nullptr), Text(nullptr), true},
        {"no text is not the empty text", Text(nullptr), Text(W("")), false},
        {"same number, other width", Number(OV_TYPE_DWORD, 5), Number(OV_TYPE_QWORD, 5), false},
        {"only 32 bits of a DWORD count", Number(OV_TYPE_DWORD, 0x100000005), Number(OV_TYPE_DWORD, 5), true},
        {"all 64 bits of a QWORD count", Number(OV_TYPE_QWORD, 0x100000005), Number(OV_TYPE_QWORD, 5), false},
        {"order counts", List({Number(OV_TYPE_QWORD, 1), Number(OV_TYPE_QWORD, 2)}),
         List({Number(OV_TYPE_QWORD, 2), Number(OV_TYPE_QWORD, 1)}), false},
        {"length counts", List({Number(OV_TYPE_QWORD, 1)}), List({}), false},
        {"equal lists", List({Text(W("a")), Number(OV_TYPE_DWORD, 2)}), List({Text(W("A")), Number(OV_TYPE_DWORD, 2)}),
         true},
        {"an empty list equals an empty list", List({}), List({}), true},
        {"a type that no source produces equals everything", Number(OV_TYPE_UINT64, 1), Text(W("x")), true},
        {"but not the other way round", Text(W("x")), Number(OV_TYPE_UINT64, 1), false},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(ItemsEqual({W("a"), row.a}, {W("b"), row.b}), row.equal) << row.why;
    }
}

TEST(PolicyValue, CopyValueOutHandsOutWhatCrossesTheInterfaces) {
    const struct {
        const char* why;
        CPolicyValue value;
        HRESULT hr;
        std::function<bool(const OV_SERVER_VALUE&)> holds;
    } rows[] = {
        {"DWORD", Number(OV_TYPE_DWORD, 0xFFFFFFFF00000007), 0, [](auto& v) { return v.data == 7 && !v.items; }},
        {"QWORD", Number(OV_TYPE_QWORD, ~0ull), 0, [](auto& v) { return v.data == ~0ull; }},
        {"text", Text(W("abc")), 0, [](auto& v) { return wstr(OvServerValueText(v)) == W("abc"); }},
        {"no text", Text(nullptr), 0, [](auto& v) { return v.data == 0; }},
        {"no elements", List({}), 0, [](auto& v) { return v.data == 0; }},
        {"elements", List({Text(W("x")), Number(OV_TYPE_UINT64, 3), Number(OV_TYPE_QWORD, 4)}), 0,
         [](auto& v) {
             return v.data == 3 && wstr(OvServerValueText(v.items[0])) == W("x") && v.items[1].type == OV_TYPE_UINT64 &&
                    v.items[1].data == 0 && v.items[2].data == 4;
         }},
        {"nothing", CPolicyValue(), static_cast<HRESULT>(0x80070032), [](auto& v) { return !v.data && !v.items; }},
        {"blob", Blob("abc", 3), static_cast<HRESULT>(0x80070032), [](auto& v) { return !v.data && !v.items; }},
    };
    for (const auto& row : rows) {
        OV_SERVER_VALUE out = {0xEE, 0xEEEE, reinterpret_cast<OV_SERVER_VALUE*>(0xEE)};
        EXPECT_EQ(CopyValueOut({W("n"), row.value}, out), row.hr) << row.why;
        EXPECT_EQ(out.type, row.value.Type()) << row.why;
        EXPECT_TRUE(row.holds(out)) << row.why;
        FreeValue(out);
    }
}

}  // namespace
