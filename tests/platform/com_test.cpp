// COM memory and the texts of class ids.
#include <gtest/gtest.h>

#include <cstring>

#include "Platform.h"
#include "support/Vectors.h"

namespace {

constexpr CLSID kId = {0x5833D5CB, 0x2254, 0x4F1D, {0x9B, 0x43, 0x03, 0x59, 0xD7, 0x0F, 0x95, 0x96}};
constexpr LPCWSTR kText = W("{5833D5CB-2254-4F1D-9B43-0359D70F9596}");

TEST(ClassIds, Texts) {
    LPOLESTR text = nullptr;
    ASSERT_EQ(StringFromCLSID(kId, &text), S_OK);
    EXPECT_EQ(wstr(text), kText);
    CoTaskMemFree(text);

    WCHAR out[40];
    std::fill(std::begin(out), std::end(out), WCHAR{0xCCCC});
    EXPECT_EQ(StringFromGUID2(kId, out, 38), 0) << "no room for the NUL";
    EXPECT_EQ(StringFromGUID2(kId, out, 39), 39);
    EXPECT_EQ(wstr(out), kText);
    EXPECT_EQ(out[39], 0xCCCC);
}

TEST(ClassIds, RecordedReadings) {
    for (const vectors::Row& row : vectors::LoadWhere("text_time_file.jsonl", "op", "CLSIDFromString")) {
        CLSID id;
        std::memset(&id, 0xCC, sizeof id);
        EXPECT_EQ(static_cast<ULONG>(CLSIDFromString(vectors::Wide(row["in"]).c_str(), &id)), vectors::Hex(row["hr"]))
            << row;
        EXPECT_EQ(std::memcmp(&id, vectors::Bytes(row["clsid"]).data(), sizeof id), 0) << row;
    }
}

TEST(ClassIds, RefusesEveryOtherShape) {
    const wstr good = kText;
    for (std::size_t at = 0; at < good.size(); ++at) {
        wstr bad = good;
        bad[at] = W('x');
        CLSID id;
        EXPECT_EQ(CLSIDFromString(bad.c_str(), &id), CO_E_CLASSSTRING) << "position " << at;
        EXPECT_EQ(CLSIDFromString(good.substr(0, at).c_str(), &id), CO_E_CLASSSTRING) << "cut at " << at;
    }
}

TEST(TaskMemory, KeepsItsContentAsItGrows) {
    auto* block = static_cast<char*>(CoTaskMemAlloc(4));
    ASSERT_NE(block, nullptr);
    std::memcpy(block, "abc", 4);
    block = static_cast<char*>(CoTaskMemRealloc(block, 4096));
    ASSERT_NE(block, nullptr);
    EXPECT_STREQ(block, "abc");
    EXPECT_EQ(CoTaskMemRealloc(block, 0), nullptr) << "size 0 frees";
    CoTaskMemFree(nullptr);
}

}  // namespace
