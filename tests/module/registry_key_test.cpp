#include "module/RegistryKey.h"

#include <gtest/gtest.h>

#include "support/Registry.h"
#include "support/TestRoot.h"

namespace {

using namespace testreg;

class RegistryKey : public RootTest {};

TEST_F(RegistryKey, AFailedOpenKeepsTheKeyThatWasHeld) {
    PutDword(W("SOFTWARE\\K"), W("v"), 1);
    CRegistryKey key;
    ASSERT_EQ(key.Open(HKEY_LOCAL_MACHINE, W("SOFTWARE\\K"), KEY_READ), ERROR_SUCCESS);
    const HKEY held = key.Get();
    EXPECT_EQ(key.Open(HKEY_LOCAL_MACHINE, W("SOFTWARE\\missing"), KEY_READ), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(key.Get(), held);
    DWORD value = 0;
    EXPECT_EQ(key.QueryDword(W("v"), value), ERROR_SUCCESS);

    ASSERT_EQ(key.Open(held, W(""), KEY_READ), ERROR_SUCCESS) << "the old key is still open while the new one opens";
    EXPECT_EQ(key.QueryDword(W("v"), value), ERROR_SUCCESS);
    EXPECT_EQ(RegCloseKey(held), ERROR_INVALID_HANDLE) << "and closed behind it";
}

TEST_F(RegistryKey, ClosesItselfOnce) {
    HKEY raw = nullptr;
    {
        CRegistryKey key = Make(W("SOFTWARE\\K"));
        raw = key.Get();
        CRegistryKey moved = std::move(key);
        EXPECT_EQ(moved.Get(), raw);
        EXPECT_FALSE(key);
        EXPECT_EQ(key.Close(), ERROR_SUCCESS) << "nothing held is nothing to close";
    }
    EXPECT_EQ(RegCloseKey(raw), ERROR_INVALID_HANDLE);
}

TEST_F(RegistryKey, BelievesWellFormedStringsOnly) {
    const struct {
        const char* why;
        DWORD type;
        std::string bytes;
        LONG error;
        DWORD length;
    } rows[] = {
        {"text", REG_SZ, {"a\0b\0\0\0", 6}, 0, 3},
        {"text to be expanded", REG_EXPAND_SZ, {"%\0\0\0", 4}, 0, 2},
        {"no bytes", REG_SZ, {}, 0, 0},
        {"a NUL alone", REG_SZ, {"\0", 2}, 0, 1},
        {"odd size", REG_SZ, {"a\0\0\0\0", 5}, ERROR_INVALID_DATA, 0},
        {"no NUL", REG_SZ, {"a\0b\0", 4}, ERROR_INVALID_DATA, 0},
        {"a number", REG_DWORD, {"a\0\0\0", 4}, ERROR_INVALID_DATA, 0},
        {"a list", REG_MULTI_SZ, {"\0\0\0", 4}, ERROR_INVALID_DATA, 0},
        {"longer than the room", REG_SZ, std::string(20, 'x') + std::string(2, '\0'), ERROR_MORE_DATA, 0},
    };
    CRegistryKey key = Make(W("SOFTWARE\\K"));
    for (const auto& row : rows) {
        PutBytes(W("SOFTWARE\\K"), W("s"), row.type, row.bytes.data(), row.bytes.size());
        WCHAR buffer[8] = {0xEEEE, 0xEEEE};
        DWORD length = 8;
        EXPECT_EQ(key.QueryString(W("s"), buffer, length), row.error) << row.why;
        EXPECT_EQ(length, row.length) << row.why;
        if (row.error == 0 && row.length == 0) {
            EXPECT_EQ(buffer[0], 0) << row.why;
        }
    }
    DWORD length = 8;
    WCHAR buffer[8];
    EXPECT_EQ(key.QueryString(W("none"), buffer, length), ERROR_FILE_NOT_FOUND);
}

TEST_F(RegistryKey, WritesStringsWithTheirNul) {
    CRegistryKey key = Make(W("SOFTWARE\\K"));
    EXPECT_EQ(key.SetString(W("s"), nullptr), ERROR_INVALID_DATA);
    EXPECT_EQ(key.SetMultiString(W("m"), nullptr), ERROR_INVALID_DATA);
    EXPECT_EQ(key.SetString(W("s"), W("ab")), ERROR_SUCCESS);
    EXPECT_EQ(Get(W("SOFTWARE\\K"), W("s")).bytes.size(), 6u);
    EXPECT_EQ(key.SetMultiString(W("m"), W("a\0bc\0")), ERROR_SUCCESS);
    EXPECT_EQ(Get(W("SOFTWARE\\K"), W("m")).bytes.size(), 12u);
    EXPECT_EQ(Get(W("SOFTWARE\\K"), W("m")).type, static_cast<DWORD>(REG_MULTI_SZ));
    DWORD number = 7;
    EXPECT_EQ(key.QueryDword(W("s"), number), ERROR_INVALID_DATA);
    EXPECT_EQ(number, 7u) << "untouched";
}

TEST_F(RegistryKey, DeleteTreeLeavesNothing) {
    Make(W("SOFTWARE\\K\\T\\a\\b"));
    Make(W("SOFTWARE\\K\\T\\a\\c"));
    Make(W("SOFTWARE\\K\\T\\d"));
    PutDword(W("SOFTWARE\\K\\T\\a"), W("v"), 1);
    CRegistryKey key = Make(W("SOFTWARE\\K"));
    EXPECT_EQ(key.DeleteTree(W("T")), ERROR_SUCCESS);
    EXPECT_EQ(key.DeleteTree(W("T")), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(Get(W("SOFTWARE\\K\\T"), W("")).error, ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(Get(W("SOFTWARE\\K"), W("")).error, ERROR_FILE_NOT_FOUND);
}

TEST_F(RegistryKey, RemembersItsViewWhenItDeletes) {
    CRegistryKey narrow = Make(W("SOFTWARE\\V"), KEY_ALL_ACCESS | KEY_WOW64_32KEY);
    CRegistryKey child;
    ASSERT_EQ(child.Create(narrow.Get(), W("T"), nullptr, 0, KEY_ALL_ACCESS, nullptr, nullptr), ERROR_SUCCESS);
    child.Close();
    Make(W("SOFTWARE\\V\\T"));
    EXPECT_EQ(narrow.DeleteTree(W("T")), ERROR_SUCCESS);
    CRegistryKey left;
    EXPECT_EQ(left.Open(HKEY_LOCAL_MACHINE, W("SOFTWARE\\V\\T"), KEY_READ | KEY_WOW64_32KEY), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(left.Open(HKEY_LOCAL_MACHINE, W("SOFTWARE\\V\\T"), KEY_READ), ERROR_SUCCESS);
}

}  // namespace
