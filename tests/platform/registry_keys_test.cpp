// Opening, making and deleting keys: paths, names, access, views, and handles on what is gone.
#include <algorithm>
#include <string>
#include <vector>

#include "module/RegistryKey.h"
#include "support/TestRoot.h"

namespace {

const HKEY kMarker = reinterpret_cast<HKEY>(static_cast<ULONG_PTR>(0x5A5A5A5A));

wstr Repeat(WCHAR unit, std::size_t count) {
    return wstr(count, unit);
}

class RegistryKeys : public RootTest {
  protected:
    void SetUp() override {
        ASSERT_EQ(
            m_base.Create(HKEY_LOCAL_MACHINE, W("SOFTWARE\\OvTest"), nullptr, 0, KEY_ALL_ACCESS, nullptr, nullptr),
            ERROR_SUCCESS);
    }

    // The error, and that a handle was given exactly on success.
    static LSTATUS Open(HKEY key, LPCWSTR path, REGSAM access = KEY_READ, DWORD options = 0) {
        HKEY result = kMarker;
        const LSTATUS error = RegOpenKeyExW(key, path, options, access, &result);
        EXPECT_EQ(result != nullptr, error == ERROR_SUCCESS);
        EXPECT_NE(result, kMarker);
        if (!error) {
            EXPECT_EQ(RegCloseKey(result), ERROR_SUCCESS);
        }
        return error;
    }

    static LSTATUS Create(HKEY key, LPCWSTR path, DWORD* disposition = nullptr, DWORD options = 0) {
        HKEY result = nullptr;
        const LSTATUS error =
            RegCreateKeyExW(key, path, 0, nullptr, options, KEY_ALL_ACCESS, nullptr, &result, disposition);
        EXPECT_EQ(result != nullptr, error == ERROR_SUCCESS);
        if (!error) {
            EXPECT_EQ(RegCloseKey(result), ERROR_SUCCESS);
        }
        return error;
    }

    CRegistryKey OpenedWith(REGSAM access) const {
        CRegistryKey key;
        EXPECT_EQ(key.Open(m_base.Get(), nullptr, access), ERROR_SUCCESS);
        return key;
    }

    // Names of the subkeys, in the order of the enumeration.
    static std::vector<wstr> SubKeys(HKEY key) {
        std::vector<wstr> names;
        for (DWORD index = 0;; ++index) {
            WCHAR name[257];
            DWORD length = 257;
            if (RegEnumKeyExW(key, index, name, &length, nullptr, nullptr, nullptr, nullptr)) return names;
            names.emplace_back(name, length);
        }
    }

    CRegistryKey m_base;
};

TEST_F(RegistryKeys, OpenFollowsThePath) {
    ASSERT_EQ(Create(m_base.Get(), W("p\\a\\b")), ERROR_SUCCESS);
    const struct {
        const char* why;
        LPCWSTR path;
        LSTATUS error;
    } kRows[] = {
        {"plain", W("p\\a\\b"), ERROR_SUCCESS},
        {"names have no case", W("P\\A\\B"), ERROR_SUCCESS},
        {"one separator at the end", W("p\\a\\b\\"), ERROR_SUCCESS},
        {"several at the end", W("p\\a\\b\\\\"), ERROR_SUCCESS},
        {"doubled inside", W("p\\\\a\\b"), ERROR_SUCCESS},
        {"tripled inside", W("p\\\\\\a\\b"), ERROR_SUCCESS},
        {"no path is the key itself", nullptr, ERROR_SUCCESS},
        {"an empty path too", W(""), ERROR_SUCCESS},
        {"a separator in front", W("\\p"), ERROR_BAD_PATHNAME},
        {"nothing but a separator", W("\\"), ERROR_BAD_PATHNAME},
        {"a slash is a character", W("p/a"), ERROR_FILE_NOT_FOUND},
        {"a dot is a name", W("p\\.\\a"), ERROR_FILE_NOT_FOUND},
        {"two dots are a name", W("p\\a\\.."), ERROR_FILE_NOT_FOUND},
        {"the last key is missing", W("p\\a\\x"), ERROR_FILE_NOT_FOUND},
        {"a key above is missing", W("p\\x\\b"), ERROR_FILE_NOT_FOUND},
        {"a prefix of a name is none", W("p\\a\\b2"), ERROR_FILE_NOT_FOUND},
    };
    for (const auto& row : kRows) EXPECT_EQ(Open(m_base.Get(), row.path), row.error) << row.why;
    EXPECT_EQ(Open(HKEY_LOCAL_MACHINE, W("\\SOFTWARE")), ERROR_BAD_PATHNAME);
    EXPECT_EQ(Open(m_base.Get(), W("p"), KEY_READ, 1), ERROR_SUCCESS) << "the volatile option means nothing here";
    EXPECT_EQ(RegOpenKeyExW(m_base.Get(), W("p"), 0, KEY_READ, nullptr), ERROR_INVALID_PARAMETER);
}

TEST_F(RegistryKeys, CreateMakesEveryMissingKeyOfThePath) {
    const struct {
        const char* why;
        LPCWSTR path;
        DWORD disposition;
        LPCWSTR madeAlso;
    } kRows[] = {
        {"a chain", W("c1\\c2\\c3"), REG_CREATED_NEW_KEY, W("c1\\c2")},
        {"again", W("c1\\c2\\c3"), REG_OPENED_EXISTING_KEY, W("c1")},
        {"in another case", W("C1\\C2"), REG_OPENED_EXISTING_KEY, W("c1")},
        {"one more below what is there", W("c1\\c2\\c4"), REG_CREATED_NEW_KEY, W("c1\\c2\\c4")},
        {"a separator at the end", W("t2\\"), REG_CREATED_NEW_KEY, W("t2")},
        {"doubled inside make no empty name", W("t4\\\\x"), REG_CREATED_NEW_KEY, W("t4\\x")},
        {"a slash is a character", W("f/s"), REG_CREATED_NEW_KEY, W("f/s")},
        {"dots are names", W("..\\."), REG_CREATED_NEW_KEY, W("..")},
    };
    for (const auto& row : kRows) {
        DWORD disposition = 77;
        EXPECT_EQ(Create(m_base.Get(), row.path, &disposition), ERROR_SUCCESS) << row.why;
        EXPECT_EQ(disposition, row.disposition) << row.why;
        EXPECT_EQ(Open(m_base.Get(), row.madeAlso), ERROR_SUCCESS) << row.why;
    }
    EXPECT_EQ(Open(m_base.Get(), W("f")), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(Create(m_base.Get(), W("")), ERROR_SUCCESS);
}

TEST_F(RegistryKeys, CreateThatFailsGivesNoHandleAndNoDisposition) {
    const wstr tooLong = Repeat(W('k'), 257);
    const struct {
        const char* why;
        HKEY key;
        LPCWSTR path;
        LSTATUS error;
    } kRows[] = {
        {"a separator in front", m_base.Get(), W("\\x"), ERROR_BAD_PATHNAME},
        {"nothing but a separator", m_base.Get(), W("\\"), ERROR_BAD_PATHNAME},
        {"a name of 257", m_base.Get(), tooLong.c_str(), ERROR_INVALID_PARAMETER},
        {"not a key", reinterpret_cast<HKEY>(static_cast<ULONG_PTR>(0x123456)), W("x"), ERROR_INVALID_HANDLE},
    };
    for (const auto& row : kRows) {
        HKEY result = kMarker;
        DWORD disposition = 77;
        EXPECT_EQ(RegCreateKeyExW(row.key, row.path, 0, nullptr, 0, KEY_READ, nullptr, &result, &disposition),
                  row.error)
            << row.why;
        EXPECT_EQ(result, nullptr) << row.why;
        EXPECT_EQ(disposition, 77u) << row.why;
    }
    HKEY result = nullptr;
    EXPECT_EQ(RegCreateKeyExW(nullptr, W("x"), 0, nullptr, 0, KEY_READ, nullptr, &result, nullptr),
              ERROR_INVALID_HANDLE);
    EXPECT_EQ(Create(m_base.Get(), (W("made\\") + tooLong).c_str()), ERROR_INVALID_PARAMETER);
}

TEST_F(RegistryKeys, NamesHaveUpTo256Units) {
    for (const std::size_t length : {255u, 256u}) {
        const wstr name = Repeat(W('k'), length);
        EXPECT_EQ(Create(m_base.Get(), name.c_str()), ERROR_SUCCESS) << length;
        EXPECT_EQ(Open(m_base.Get(), name.c_str()), ERROR_SUCCESS) << length;
    }
    const wstr deep = Repeat(W('a'), 255) + W('\\') + Repeat(W('b'), 255);
    EXPECT_EQ(Create(m_base.Get(), deep.c_str()), ERROR_SUCCESS) << "the path may be longer";
    EXPECT_EQ(Open(m_base.Get(), Repeat(W('k'), 257).c_str()), ERROR_INVALID_PARAMETER);
}

TEST_F(RegistryKeys, HandlesThatAreNoneGiveInvalidHandle) {
    HKEY closed;
    ASSERT_EQ(RegOpenKeyExW(m_base.Get(), nullptr, 0, KEY_ALL_ACCESS, &closed), ERROR_SUCCESS);
    ASSERT_EQ(RegCloseKey(closed), ERROR_SUCCESS);
    const struct {
        const char* why;
        HKEY key;
    } kRows[] = {
        {"null", nullptr},
        {"closed", closed},
        {"never given out", reinterpret_cast<HKEY>(static_cast<ULONG_PTR>(0x7FFFFFF0))},
    };
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.why);
        WCHAR name[8];
        DWORD length = 8;
        DWORD size = 0;
        EXPECT_EQ(Open(row.key, W("x")), ERROR_INVALID_HANDLE);
        EXPECT_EQ(Open(row.key, W("")), ERROR_INVALID_HANDLE);
        EXPECT_EQ(RegQueryValueExW(row.key, W("x"), nullptr, nullptr, nullptr, &size), ERROR_INVALID_HANDLE);
        EXPECT_EQ(RegSetValueExW(row.key, W("x"), 0, REG_DWORD, reinterpret_cast<const BYTE*>(&size), 4),
                  ERROR_INVALID_HANDLE);
        EXPECT_EQ(RegDeleteValueW(row.key, W("x")), ERROR_INVALID_HANDLE);
        EXPECT_EQ(RegDeleteKeyExW(row.key, W("x"), 0, 0), ERROR_INVALID_HANDLE);
        EXPECT_EQ(RegEnumKeyExW(row.key, 0, name, &length, nullptr, nullptr, nullptr, nullptr), ERROR_INVALID_HANDLE);
        EXPECT_EQ(RegEnumValueW(row.key, 0, name, &length, nullptr, nullptr, nullptr, nullptr), ERROR_INVALID_HANDLE);
        EXPECT_EQ(RegCloseKey(row.key), ERROR_INVALID_HANDLE);
    }
    EXPECT_EQ(RegCloseKey(HKEY_LOCAL_MACHINE), ERROR_SUCCESS);
    EXPECT_EQ(RegCloseKey(HKEY_CURRENT_USER), ERROR_SUCCESS);
    EXPECT_EQ(Open(HKEY_LOCAL_MACHINE, W("SOFTWARE")), ERROR_SUCCESS) << "closing a predefined key closes nothing";
}

// The mask of the handle decides on values and enumerations; on subkeys it does not.
TEST_F(RegistryKeys, TheMaskDecidesWhatAHandleMay) {
    const DWORD one = 1;
    ASSERT_EQ(RegSetValueExW(m_base.Get(), W("v"), 0, REG_DWORD, reinterpret_cast<const BYTE*>(&one), 4),
              ERROR_SUCCESS);
    ASSERT_EQ(Create(m_base.Get(), W("below")), ERROR_SUCCESS);
    const struct {
        const char* why;
        REGSAM access;
        bool query, enumKeys, set;
    } kRows[] = {
        {"read", KEY_READ, true, true, false},
        {"write", KEY_WRITE, false, false, true},
        {"set alone", KEY_SET_VALUE, false, false, true},
        {"query alone", KEY_QUERY_VALUE, true, false, false},
        {"enumerate alone", KEY_ENUMERATE_SUB_KEYS, false, true, false},
        {"nothing", 0, false, false, false},
        {"all", KEY_ALL_ACCESS, true, true, true},
        {"as much as there is", MAXIMUM_ALLOWED, true, true, true},
    };
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.why);
        const CRegistryKey key = OpenedWith(row.access);
        const auto expected = [](bool allowed) { return allowed ? ERROR_SUCCESS : ERROR_ACCESS_DENIED; };
        WCHAR name[16];
        DWORD length = 16;
        DWORD size = 0;
        EXPECT_EQ(RegQueryValueExW(key.Get(), W("v"), nullptr, nullptr, nullptr, &size), expected(row.query));
        EXPECT_EQ(RegEnumValueW(key.Get(), 0, name, &length, nullptr, nullptr, nullptr, nullptr), expected(row.query));
        length = 16;
        EXPECT_EQ(RegEnumKeyExW(key.Get(), 0, name, &length, nullptr, nullptr, nullptr, nullptr),
                  expected(row.enumKeys));
        EXPECT_EQ(RegSetValueExW(key.Get(), W("w"), 0, REG_DWORD, reinterpret_cast<const BYTE*>(&one), 4),
                  expected(row.set));
        EXPECT_EQ(RegDeleteValueW(key.Get(), W("w")), expected(row.set));
        EXPECT_EQ(Open(key.Get(), W("below")), ERROR_SUCCESS);
        EXPECT_EQ(Create(key.Get(), W("made")), ERROR_SUCCESS);
        EXPECT_EQ(RegDeleteKeyW(key.Get(), W("made")), ERROR_SUCCESS);
    }
}

TEST_F(RegistryKeys, NamesAreComparedByTheUpcaseOfEachUnit) {
    const struct {
        const char* why;
        wstr made, asked;
        bool same;
    } kRows[] = {
        {"e acute", {0xE9}, {0xC9}, true},
        {"y diaeresis, whose capital lies far away", {0xFF}, {0x178}, true},
        {"sigma", {0x3C3}, {0x3A3}, true},
        {"the final sigma has no capital", {0x3C2}, {0x3A3}, false},
        {"zhe", {0x436}, {0x416}, true},
        {"dotless i is not I", {0x131}, W("I"), false},
        {"long s is not S", {0x17F}, W("S"), false},
        {"sharp s", {0xDF}, {0x1E9E}, false},
        {"dz with caron", {0x1C6}, {0x1C4}, true},
        {"its title case is a letter of its own", {0x1C6}, {0x1C5}, false},
        {"full-width", {0xFF41}, {0xFF21}, true},
        {"behind eight letters of ASCII", W("abcdefgh\u00E9"), W("ABCDEFGH\u00C9"), true},
        {"in the middle of many", W("abcd\u00E9fghijklmnopq"), W("ABCD\u00C9FGHIJKLMNOPQ"), true},
        {"letters beyond the plane keep their case", {0xD801, 0xDC28}, {0xD801, 0xDC00}, false},
        {"a lone surrogate is a unit like others", {W('x'), 0xD800}, {W('X'), 0xD800}, true},
        {"lone surrogates differ", {W('x'), 0xD800}, {W('x'), 0xD801}, false},
        {"brackets are no letters", W("[x"), W("{x"), false},
        {"at and grave neither", W("@seven7"), W("`seven7"), false},
        {"a NUL ends a name", wstr(W("ab\0c"), 4), W("ab"), true},
    };
    int number = 0;
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.why);
        CRegistryKey place;
        ASSERT_EQ(place.Create(m_base.Get(), (W("n") + Repeat(W('0'), static_cast<std::size_t>(number++))).c_str(),
                               nullptr, 0, KEY_ALL_ACCESS, nullptr, nullptr),
                  ERROR_SUCCESS);
        ASSERT_EQ(Create(place.Get(), row.made.c_str()), ERROR_SUCCESS);
        EXPECT_EQ(Open(place.Get(), row.asked.c_str()), row.same ? ERROR_SUCCESS : ERROR_FILE_NOT_FOUND);
        DWORD disposition = 0;
        EXPECT_EQ(Create(place.Get(), row.asked.c_str(), &disposition), ERROR_SUCCESS);
        EXPECT_EQ(disposition == REG_OPENED_EXISTING_KEY, row.same);
        EXPECT_EQ(SubKeys(place.Get()).size(), row.same ? 1u : 2u);
        if (row.same) {
            EXPECT_EQ(SubKeys(place.Get())[0], wstr(row.made.c_str())) << "the spelling of the creation stays";
        }
    }
}

TEST_F(RegistryKeys, DeleteTakesOneKeyWithoutSubkeys) {
    ASSERT_EQ(Create(m_base.Get(), W("d\\e\\f")), ERROR_SUCCESS);
    ASSERT_EQ(Create(m_base.Get(), W("d\\g")), ERROR_SUCCESS);
    CRegistryKey held;
    ASSERT_EQ(held.Open(m_base.Get(), W("d\\g"), KEY_ALL_ACCESS), ERROR_SUCCESS);
    ASSERT_EQ(held.SetDword(W("v"), 1), ERROR_SUCCESS);
    const wstr tooLong = Repeat(W('k'), 257);
    const struct {
        const char* why;
        LPCWSTR path;
        LSTATUS error;
    } kRows[] = {
        {"missing", W("x"), ERROR_FILE_NOT_FOUND},
        {"missing below one that is there", W("d\\x"), ERROR_FILE_NOT_FOUND},
        {"a separator in front", W("\\d"), ERROR_BAD_PATHNAME},
        {"a name of 257", tooLong.c_str(), ERROR_INVALID_PARAMETER},
        {"it has subkeys", W("d"), ERROR_ACCESS_DENIED},
        {"one of its subkeys has one", W("d\\e"), ERROR_ACCESS_DENIED},
        {"the last component of a path", W("d\\e\\f"), ERROR_SUCCESS},
        {"now it has none", W("D\\E"), ERROR_SUCCESS},
        {"it has values, and an open handle", W("d\\g"), ERROR_SUCCESS},
        {"twice", W("d\\g"), ERROR_FILE_NOT_FOUND},
        {"the one above", W("d"), ERROR_SUCCESS},
    };
    for (const auto& row : kRows) EXPECT_EQ(RegDeleteKeyW(m_base.Get(), row.path), row.error) << row.why;
    EXPECT_EQ(RegDeleteKeyW(m_base.Get(), nullptr), ERROR_INVALID_PARAMETER);
    EXPECT_TRUE(SubKeys(m_base.Get()).empty());

    CRegistryKey self;
    ASSERT_EQ(self.Create(m_base.Get(), W("self"), nullptr, 0, KEY_ALL_ACCESS, nullptr, nullptr), ERROR_SUCCESS);
    EXPECT_EQ(RegDeleteKeyW(self.Get(), W("")), ERROR_SUCCESS) << "an empty name is the handle's own key";
    EXPECT_EQ(Open(m_base.Get(), W("self")), ERROR_FILE_NOT_FOUND);
}

TEST_F(RegistryKeys, HandlesOnADeletedKeyStayDead) {
    CRegistryKey key;
    ASSERT_EQ(key.Create(m_base.Get(), W("gone"), nullptr, 0, KEY_ALL_ACCESS, nullptr, nullptr), ERROR_SUCCESS);
    ASSERT_EQ(key.SetDword(W("v"), 1), ERROR_SUCCESS);
    ASSERT_EQ(RegDeleteKeyW(m_base.Get(), W("gone")), ERROR_SUCCESS);
    // The second pass finds another key at the place.
    for (const char* when : {"deleted", "made again"}) {
        SCOPED_TRACE(when);
        const DWORD one = 1;
        WCHAR name[16];
        DWORD length = 16;
        DWORD size = 0;
        DWORD count;
        EXPECT_EQ(RegQueryValueExW(key.Get(), W("v"), nullptr, nullptr, nullptr, &size), ERROR_KEY_DELETED);
        EXPECT_EQ(RegSetValueExW(key.Get(), W("v"), 0, REG_DWORD, reinterpret_cast<const BYTE*>(&one), 4),
                  ERROR_KEY_DELETED);
        EXPECT_EQ(RegDeleteValueW(key.Get(), W("v")), ERROR_KEY_DELETED);
        EXPECT_EQ(RegEnumKeyExW(key.Get(), 0, name, &length, nullptr, nullptr, nullptr, nullptr), ERROR_KEY_DELETED);
        EXPECT_EQ(RegEnumValueW(key.Get(), 0, name, &length, nullptr, nullptr, nullptr, nullptr), ERROR_KEY_DELETED);
        EXPECT_EQ(RegQueryInfoKeyW(key.Get(), nullptr, nullptr, nullptr, &count, nullptr, nullptr, nullptr, nullptr,
                                   nullptr, nullptr, nullptr),
                  ERROR_KEY_DELETED);
        EXPECT_EQ(Open(key.Get(), W("x")), ERROR_KEY_DELETED);
        EXPECT_EQ(Open(key.Get(), W("")), ERROR_KEY_DELETED);
        EXPECT_EQ(Create(key.Get(), W("x")), ERROR_KEY_DELETED);
        DWORD disposition = 0;
        EXPECT_EQ(Create(m_base.Get(), W("gone"), &disposition), ERROR_SUCCESS);
        EXPECT_EQ(disposition, static_cast<DWORD>(*when == 'd' ? REG_CREATED_NEW_KEY : REG_OPENED_EXISTING_KEY));
    }
    EXPECT_EQ(key.Close(), ERROR_SUCCESS);
    CRegistryKey again;
    ASSERT_EQ(again.Open(m_base.Get(), W("gone"), KEY_READ), ERROR_SUCCESS);
    DWORD value = 0;
    EXPECT_EQ(again.QueryDword(W("v"), value), ERROR_FILE_NOT_FOUND) << "the new key starts without values";
}

TEST_F(RegistryKeys, WhatOutlivesTheKeyAboveIsRefused) {
    DWORD disposition = 77;
    EXPECT_EQ(Create(m_base.Get(), W("vol"), &disposition, REG_OPTION_VOLATILE), ERROR_SUCCESS);
    EXPECT_EQ(disposition, static_cast<DWORD>(REG_CREATED_NEW_KEY));
    disposition = 77;
    EXPECT_EQ(Create(m_base.Get(), W("vol\\stays"), &disposition), ERROR_CHILD_MUST_BE_VOLATILE);
    EXPECT_EQ(disposition, 77u);
    EXPECT_EQ(Create(m_base.Get(), W("vol\\goes"), nullptr, REG_OPTION_VOLATILE), ERROR_SUCCESS);
    EXPECT_EQ(Create(m_base.Get(), W("vol\\goes")), ERROR_SUCCESS) << "opening it asks nothing";
}

TEST_F(RegistryKeys, TheViewsOfSoftwareAreTwoTrees) {
    constexpr REGSAM k32 = KEY_WOW64_32KEY;
    constexpr REGSAM k64 = KEY_WOW64_64KEY;
    CRegistryKey narrow;
    ASSERT_EQ(
        narrow.Create(HKEY_LOCAL_MACHINE, W("SOFTWARE\\Ov32"), nullptr, 0, KEY_ALL_ACCESS | k32, nullptr, nullptr),
        ERROR_SUCCESS);
    ASSERT_EQ(Create(narrow.Get(), W("below")), ERROR_SUCCESS);
    const struct {
        const char* why;
        LPCWSTR path;
        REGSAM view;
        LSTATUS error;
    } kRows[] = {
        {"the wide key without a flag", W("SOFTWARE\\OvTest"), 0, ERROR_SUCCESS},
        {"the wide key by its flag", W("SOFTWARE\\OvTest"), k64, ERROR_SUCCESS},
        {"the wide key in the narrow view", W("SOFTWARE\\OvTest"), k32, ERROR_FILE_NOT_FOUND},
        {"the narrow key without a flag", W("SOFTWARE\\Ov32"), 0, ERROR_FILE_NOT_FOUND},
        {"the narrow key in the wide view", W("SOFTWARE\\Ov32"), k64, ERROR_FILE_NOT_FOUND},
        {"the narrow key by its flag", W("software\\ov32\\below"), k32, ERROR_SUCCESS},
        {"the narrow key by the name of its tree", W("SOFTWARE\\Wow6432Node\\Ov32\\below"), 0, ERROR_SUCCESS},
        {"by the name of its tree and the flag", W("SOFTWARE\\WOW6432NODE\\Ov32"), k32, ERROR_SUCCESS},
    };
    for (const auto& row : kRows)
        EXPECT_EQ(Open(HKEY_LOCAL_MACHINE, row.path, KEY_READ | row.view), row.error) << row.why;
    EXPECT_EQ(Open(narrow.Get(), W("below")), ERROR_SUCCESS) << "a handle keeps its view";
    CRegistryKey software;
    ASSERT_EQ(software.Open(HKEY_LOCAL_MACHINE, W("SOFTWARE"), KEY_READ | k32), ERROR_SUCCESS);
    EXPECT_EQ(Open(software.Get(), W("Ov32")), ERROR_SUCCESS);
    EXPECT_EQ(Open(software.Get(), W("OvTest")), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(RegDeleteKeyExW(HKEY_LOCAL_MACHINE, W("SOFTWARE\\Ov32\\below"), 0, 0), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(RegDeleteKeyExW(HKEY_LOCAL_MACHINE, W("SOFTWARE\\Ov32\\below"), k64, 0), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(RegDeleteKeyExW(HKEY_LOCAL_MACHINE, W("SOFTWARE\\Ov32\\below"), k32, 0), ERROR_SUCCESS);
    EXPECT_EQ(RegDeleteKeyExW(HKEY_LOCAL_MACHINE, W("SOFTWARE\\OvTest"), 0, 0), ERROR_SUCCESS) << "0 is the wide view";
}

TEST_F(RegistryKeys, TheRootOfTheClassesIsAKeyOfTheMachine) {
    ASSERT_EQ(Create(HKEY_CLASSES_ROOT, W("OvTest.Class\\CLSID")), ERROR_SUCCESS);
    EXPECT_EQ(Open(HKEY_LOCAL_MACHINE, W("SOFTWARE\\Classes\\OvTest.Class\\CLSID")), ERROR_SUCCESS);
    ASSERT_EQ(Create(HKEY_LOCAL_MACHINE, W("SOFTWARE\\Classes\\OvTest.Other")), ERROR_SUCCESS);
    EXPECT_EQ(Open(HKEY_CLASSES_ROOT, W("OvTest.Other")), ERROR_SUCCESS);
    EXPECT_EQ(RegDeleteKeyW(HKEY_CLASSES_ROOT, W("OvTest.Other")), ERROR_SUCCESS);
    EXPECT_EQ(Open(HKEY_LOCAL_MACHINE, W("SOFTWARE\\Classes\\OvTest.Other")), ERROR_FILE_NOT_FOUND);
}

TEST_F(RegistryKeys, TheCurrentUserHasAHiveOfTheirOwn) {
    HKEY user = nullptr;
    ASSERT_EQ(RegOpenCurrentUser(KEY_READ, &user), ERROR_SUCCESS);
    const DWORD one = 1;
    EXPECT_EQ(RegSetValueExW(user, W("v"), 0, REG_DWORD, reinterpret_cast<const BYTE*>(&one), 4), ERROR_ACCESS_DENIED);
    ASSERT_EQ(Create(HKEY_CURRENT_USER, W("Software\\OvTest")), ERROR_SUCCESS);
    EXPECT_EQ(Open(user, W("Software\\OvTest")), ERROR_SUCCESS);
    EXPECT_EQ(RegDeleteKeyW(HKEY_CURRENT_USER, W("Software\\OvTest")), ERROR_SUCCESS);
    EXPECT_EQ(Open(user, W("Software\\OvTest")), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(RegCloseKey(user), ERROR_SUCCESS);
    EXPECT_EQ(RegOpenCurrentUser(KEY_READ, nullptr), ERROR_INVALID_PARAMETER);
}

}  // namespace
