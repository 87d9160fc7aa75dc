// Walking keys and values: order, ends, short buffers, and walking while things are deleted.
#include <algorithm>
#include <string>
#include <vector>

#include "module/RegistryKey.h"
#include "support/TestRoot.h"

namespace {

constexpr DWORD kMark = 0xDEADBEEF;
constexpr WCHAR kUntouched = 0xCCCC;

struct KeyAnswer {
    LSTATUS error;
    DWORD length;
    wstr buffer;

    wstr Name() const { return buffer.substr(0, length); }
};

struct ValueAnswer {
    LSTATUS error;
    DWORD length;
    wstr name;
    DWORD type = kMark;
    DWORD size;
    std::vector<BYTE> data;

    wstr Name() const { return name.substr(0, length); }
};

class RegistryEnumeration : public RootTest {
  protected:
    void SetUp() override {
        ASSERT_EQ(m_key.Create(HKEY_LOCAL_MACHINE, W("SOFTWARE\\OvTest"), nullptr, 0, KEY_ALL_ACCESS, nullptr, nullptr),
                  ERROR_SUCCESS);
    }

    void AddKeys(std::initializer_list<LPCWSTR> names) {
        for (LPCWSTR name : names) {
            CRegistryKey key;
            ASSERT_EQ(key.Create(m_key.Get(), name, nullptr, 0, KEY_READ, nullptr, nullptr), ERROR_SUCCESS);
        }
    }

    KeyAnswer EnumKey(DWORD index, DWORD room = 300) const {
        KeyAnswer answer = {0, room, wstr(room + 4, kUntouched)};
        answer.error =
            RegEnumKeyExW(m_key.Get(), index, answer.buffer.data(), &answer.length, nullptr, nullptr, nullptr, nullptr);
        return answer;
    }

    ValueAnswer EnumValue(DWORD index, DWORD room = 300, DWORD dataRoom = 64) const {
        ValueAnswer answer;
        answer.length = room;
        answer.name.assign(room + 4, kUntouched);
        answer.size = dataRoom;
        answer.data.assign(dataRoom + 8, 0xCC);
        answer.error = RegEnumValueW(m_key.Get(), index, answer.name.data(), &answer.length, nullptr, &answer.type,
                                     answer.data.data(), &answer.size);
        return answer;
    }

    std::vector<wstr> Keys() const {
        std::vector<wstr> names;
        for (KeyAnswer answer = EnumKey(0); !answer.error; answer = EnumKey(static_cast<DWORD>(names.size()))) {
            names.push_back(answer.Name());
        }
        return names;
    }

    CRegistryKey m_key;
};

// Letters and digits in the order of their capitals. Where '_' and '[' stand differs between homes.
TEST_F(RegistryEnumeration, KeysComeInTheOrderOfTheirUpcasedNames) {
    AddKeys({W("beta"), W("Alpha"), W("gamma"), W("alpha2"), W("Zed"), W("\u00E9"), W("10"), W("9"), W("B"), W("a"),
             W("\u00C4x"), W("ab"), W("a-b"), W("a b")});
    const std::vector<wstr> expected = {W("10"),    W("9"),     W("a"),       W("a b"),   W("a-b"),
                                        W("ab"),    W("Alpha"), W("alpha2"),  W("B"),     W("beta"),
                                        W("gamma"), W("Zed"),   W("\u00C4x"), W("\u00E9")};
    EXPECT_EQ(Keys(), expected);
}

TEST_F(RegistryEnumeration, EveryValueComesOnceUnderItsFirstSpelling) {
    for (LPCWSTR name : {W("beta"), W("Alpha"), W(""), W("Zed"), W("10"), W("9"), W("alpha")}) {
        ASSERT_EQ(m_key.SetDword(name, 1), ERROR_SUCCESS);
    }
    ASSERT_EQ(RegDeleteValueW(m_key.Get(), W("Zed")), ERROR_SUCCESS);
    ASSERT_EQ(m_key.SetString(W("ZED"), W("x")), ERROR_SUCCESS);
    std::vector<wstr> names;
    for (DWORD index = 0; index < 6; ++index) {
        const ValueAnswer answer = EnumValue(index);
        ASSERT_EQ(answer.error, ERROR_SUCCESS);
        names.push_back(answer.Name());
        EXPECT_EQ(answer.type, static_cast<DWORD>(answer.Name() == W("ZED") ? REG_SZ : REG_DWORD));
        EXPECT_EQ(answer.size, 4u);
    }
    EXPECT_EQ(EnumValue(6).error, ERROR_NO_MORE_ITEMS);
    std::sort(names.begin(), names.end());
    EXPECT_EQ(names, (std::vector<wstr>{W(""), W("10"), W("9"), W("Alpha"), W("ZED"), W("beta")}));
}

TEST_F(RegistryEnumeration, PastTheEndNothingIsTouched) {
    AddKeys({W("one")});
    ASSERT_EQ(m_key.SetDword(W("v"), 1), ERROR_SUCCESS);
    for (const DWORD index : {1u, 2u, 0x7FFFFFFFu, 0xFFFFFFFFu}) {
        const KeyAnswer key = EnumKey(index, 20);
        EXPECT_EQ(key.error, ERROR_NO_MORE_ITEMS) << index;
        EXPECT_EQ(key.length, 20u);
        EXPECT_EQ(key.buffer, wstr(24, kUntouched));
        const ValueAnswer value = EnumValue(index, 20);
        EXPECT_EQ(value.error, ERROR_NO_MORE_ITEMS) << index;
        EXPECT_EQ(value.length, 20u);
        EXPECT_EQ(value.name, wstr(24, kUntouched));
        EXPECT_EQ(value.size, 64u);
    }
}

TEST_F(RegistryEnumeration, AKeysNameNeedsRoomForItsNul) {
    AddKeys({W("four")});
    const struct {
        const char* why;
        DWORD room;
        LSTATUS error;
        DWORD length;
    } kRows[] = {
        {"none", 0, ERROR_MORE_DATA, 0},
        {"too little", 3, ERROR_MORE_DATA, 3},
        {"for the name alone", 4, ERROR_MORE_DATA, 4},
        {"for the NUL too", 5, ERROR_SUCCESS, 4},
        {"plenty", 50, ERROR_SUCCESS, 4},
    };
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.why);
        const KeyAnswer answer = EnumKey(0, row.room);
        EXPECT_EQ(answer.error, row.error);
        EXPECT_EQ(answer.length, row.length);
        wstr expected(row.room + 4, kUntouched);
        if (!row.error) expected.replace(0, 5, wstr(W("four\0"), 5));
        EXPECT_EQ(answer.buffer, expected);
    }
}

TEST_F(RegistryEnumeration, AValueIsToldAsFarAsThereIsRoom) {
    ASSERT_EQ(m_key.SetString(W("beta"), W("twelve chars")), ERROR_SUCCESS);
    const struct {
        const char* why;
        DWORD room, dataRoom;
        LSTATUS error;
        DWORD length;
        bool named, filled;
    } kRows[] = {
        {"no room for the name", 4, 64, ERROR_MORE_DATA, 4, false, false},
        {"no room for either", 0, 0, ERROR_MORE_DATA, 0, false, false},
        {"no room for the data", 5, 25, ERROR_MORE_DATA, 4, true, false},
        {"none at all for the data", 20, 0, ERROR_MORE_DATA, 4, true, false},
        {"just enough", 5, 26, ERROR_SUCCESS, 4, true, true},
    };
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.why);
        const ValueAnswer answer = EnumValue(0, row.room, row.dataRoom);
        EXPECT_EQ(answer.error, row.error);
        EXPECT_EQ(answer.length, row.length);
        EXPECT_EQ(answer.type, static_cast<DWORD>(REG_SZ));
        EXPECT_EQ(answer.size, 26u) << "what is needed";
        EXPECT_EQ(answer.name[0], row.named ? W('b') : kUntouched);
        EXPECT_EQ(answer.data[0], row.filled ? 't' : 0xCC);
    }
}

TEST_F(RegistryEnumeration, TheDefaultValueHasANameOfNoLength) {
    ASSERT_EQ(m_key.SetDword(W(""), 7), ERROR_SUCCESS);
    const ValueAnswer answer = EnumValue(0, 1);
    EXPECT_EQ(answer.error, ERROR_SUCCESS);
    EXPECT_EQ(answer.length, 0u);
    EXPECT_EQ(answer.name[0], 0);
    EXPECT_EQ(answer.name[1], kUntouched);
    EXPECT_EQ(EnumValue(0, 0).error, ERROR_MORE_DATA) << "the NUL needs room as well";
}

TEST_F(RegistryEnumeration, DataMayBeLeftOut) {
    ASSERT_EQ(m_key.SetString(W("v"), W("text")), ERROR_SUCCESS);
    WCHAR name[8];
    DWORD length = 8;
    DWORD size = 77;
    EXPECT_EQ(RegEnumValueW(m_key.Get(), 0, name, &length, nullptr, nullptr, nullptr, &size), ERROR_SUCCESS);
    EXPECT_EQ(size, 10u);
    length = 8;
    EXPECT_EQ(RegEnumValueW(m_key.Get(), 0, name, &length, nullptr, nullptr, nullptr, nullptr), ERROR_SUCCESS);
    EXPECT_EQ(length, 1u);
    BYTE data[16];
    EXPECT_EQ(RegEnumValueW(m_key.Get(), 0, name, &length, nullptr, nullptr, data, nullptr), ERROR_INVALID_PARAMETER);
}

TEST_F(RegistryEnumeration, DeletingTheFirstUntilTheEndVisitsAll) {
    for (int round = 0; round < 2; ++round) {
        AddKeys({W("c"), W("a"), W("e"), W("b"), W("d")});
        for (LPCWSTR name : {W("c"), W(""), W("e"), W("b"), W("d")}) {
            ASSERT_EQ(m_key.SetDword(name, 1), ERROR_SUCCESS);
        }
        int keys = 0;
        for (KeyAnswer answer = EnumKey(0); !answer.error; answer = EnumKey(0), ++keys) {
            ASSERT_EQ(RegDeleteKeyW(m_key.Get(), answer.Name().c_str()), ERROR_SUCCESS);
        }
        EXPECT_EQ(keys, 5);
        int values = 0;
        for (ValueAnswer answer = EnumValue(0); !answer.error; answer = EnumValue(0), ++values) {
            ASSERT_EQ(RegDeleteValueW(m_key.Get(), answer.Name().c_str()), ERROR_SUCCESS);
        }
        EXPECT_EQ(values, 5);
        EXPECT_EQ(EnumKey(0).error, ERROR_NO_MORE_ITEMS);
        EXPECT_EQ(EnumValue(0).error, ERROR_NO_MORE_ITEMS);
    }
}

TEST_F(RegistryEnumeration, InfoTellsCountsAndLongestNames) {
    struct Info {
        DWORD keys = kMark, longestKey = kMark, values = kMark, longestName = kMark, largest = kMark;
        bool operator==(const Info&) const = default;
    };
    const auto info = [this] {
        Info told;
        EXPECT_EQ(RegQueryInfoKeyW(m_key.Get(), nullptr, nullptr, nullptr, &told.keys, &told.longestKey, nullptr,
                                   &told.values, &told.longestName, &told.largest, nullptr, nullptr),
                  ERROR_SUCCESS);
        return told;
    };
    EXPECT_EQ(info(), (Info{0, 0, 0, 0, 0}));
    ASSERT_EQ(m_key.SetDword(W(""), 1), ERROR_SUCCESS);
    EXPECT_EQ(info(), (Info{0, 0, 1, 0, 4})) << "the default value counts, its name has no length";
    AddKeys({W("a"), W("alpha2"), W("beta")});
    ASSERT_EQ(m_key.SetString(W("gamma"), W("twelve chars")), ERROR_SUCCESS);
    ASSERT_EQ(m_key.SetDword(W("delta-nine"), 1), ERROR_SUCCESS);
    EXPECT_EQ(info(), (Info{3, 6, 3, 10, 26}));
    ASSERT_EQ(RegDeleteValueW(m_key.Get(), W("delta-nine")), ERROR_SUCCESS);
    ASSERT_EQ(RegDeleteKeyW(m_key.Get(), W("alpha2")), ERROR_SUCCESS);
    EXPECT_EQ(info(), (Info{2, 4, 2, 5, 26}));
    EXPECT_EQ(RegQueryInfoKeyW(m_key.Get(), nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                               nullptr, nullptr, nullptr),
              ERROR_SUCCESS)
        << "nothing need be asked for";
}

}  // namespace
