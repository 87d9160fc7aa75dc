// Reading, writing and deleting values: sizes, buffers, text without its NUL, names.
#include <algorithm>
#include <string>
#include <vector>

#include "module/RegistryKey.h"
#include "support/TestRoot.h"

namespace {

constexpr DWORD kMark = 0xDEADBEEF;
constexpr BYTE kUntouched = 0xCC;

using Bytes = std::vector<BYTE>;

Bytes BytesOf(wstr_view text) {
    const auto* first = reinterpret_cast<const BYTE*>(text.data());
    return {first, first + text.size() * sizeof(WCHAR)};
}

class RegistryValues : public RootTest {
  protected:
    void SetUp() override {
        ASSERT_EQ(m_key.Create(HKEY_LOCAL_MACHINE, W("SOFTWARE\\OvTest"), nullptr, 0, KEY_ALL_ACCESS, nullptr, nullptr),
                  ERROR_SUCCESS);
    }

    // What stands behind the data in memory is no NUL: some homes would store that with a text that lacks one.
    LSTATUS Set(LPCWSTR name, DWORD type, const Bytes& data) {
        Bytes followed = data;
        followed.resize(data.size() + 8, 0xEE);
        return RegSetValueExW(m_key.Get(), name, 0, type, followed.data(), static_cast<DWORD>(data.size()));
    }

    struct Answer {
        LSTATUS error;
        DWORD type = kMark;
        DWORD size = 0;
        Bytes buffer;
    };

    Answer Query(LPCWSTR name, DWORD room) {
        Answer answer;
        answer.size = room;
        answer.buffer.assign(room + 8, kUntouched);
        answer.error = RegQueryValueExW(m_key.Get(), name, nullptr, &answer.type, answer.buffer.data(), &answer.size);
        return answer;
    }

    // Type and bytes as they are stored.
    void ExpectStored(LPCWSTR name, DWORD type, const Bytes& data) {
        const Answer answer = Query(name, static_cast<DWORD>(data.size()));
        EXPECT_EQ(answer.error, ERROR_SUCCESS);
        EXPECT_EQ(answer.type, type);
        EXPECT_EQ(answer.size, data.size());
        EXPECT_TRUE(std::equal(data.begin(), data.end(), answer.buffer.begin()));
    }

    CRegistryKey m_key;
};

TEST_F(RegistryValues, AnyBytesAreStoredUnderAnyType) {
    const struct {
        const char* why;
        DWORD type;
        Bytes data;
    } kRows[] = {
        {"a number", REG_DWORD, {0x78, 0x56, 0x34, 0x12}},
        {"a number of 3 bytes", REG_DWORD, {1, 2, 3}},
        {"a number of 5 bytes", REG_DWORD, {1, 2, 3, 4, 5}},
        {"a long number of 4 bytes", REG_QWORD, {1, 2, 3, 4}},
        {"text", REG_SZ, BytesOf(wstr_view(W("abc"), 4))},
        {"text without its NUL", REG_SZ, BytesOf(W("abc"))},
        {"text of an odd size", REG_SZ, {'a', 0, 'b', 0, 'c'}},
        {"a list of nothing", REG_MULTI_SZ, {0, 0, 0, 0}},
        {"text with a lone surrogate", REG_EXPAND_SZ, BytesOf(wstr{0xD800, 0})},
        {"bytes without a type", REG_NONE, {'a', 'b', 'c'}},
        {"a type that nobody knows", 0x12345, {9}},
        {"the last type", 0xFFFFFFFF, {9}},
        {"nothing, as text", REG_SZ, {}},
        {"nothing, as a number", REG_DWORD, {}},
        {"nothing, as bytes", REG_BINARY, {}},
        {"70,000 bytes", REG_BINARY, Bytes(70000, 0x5A)},
    };
    // Each overwrites what the one before left; then each has a name of its own.
    for (const bool together : {true, false}) {
        int number = 0;
        for (const auto& row : kRows) {
            SCOPED_TRACE(row.why);
            const wstr name = together ? wstr(W("v")) : wstr(static_cast<std::size_t>(++number), W('v'));
            EXPECT_EQ(Set(name.c_str(), row.type, row.data), ERROR_SUCCESS);
            ExpectStored(name.c_str(), row.type, row.data);
        }
    }
}

TEST_F(RegistryValues, NoDataOfSomeSizeIsRefused) {
    EXPECT_EQ(RegSetValueExW(m_key.Get(), W("v"), 0, REG_DWORD, nullptr, 4), ERROR_NOACCESS);
    EXPECT_EQ(Query(W("v"), 64).error, ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(RegSetValueExW(m_key.Get(), W("v"), 0, REG_DWORD, nullptr, 0), ERROR_SUCCESS);
    ExpectStored(W("v"), REG_DWORD, {});
}

TEST_F(RegistryValues, ABufferIsFilledWholeOrNotAtAll) {
    const Bytes text = BytesOf(wstr_view(W("abc"), 4));
    ASSERT_EQ(Set(W("sz"), REG_SZ, text), ERROR_SUCCESS);
    ASSERT_EQ(Set(W("none"), REG_BINARY, {}), ERROR_SUCCESS);
    const struct {
        const char* why;
        LPCWSTR name;
        DWORD room;
        LSTATUS error;
        DWORD size;
        std::size_t filled;
    } kRows[] = {
        {"one byte short", W("sz"), 7, ERROR_MORE_DATA, 8, 0},
        {"nothing to fill in", W("none"), 0, ERROR_SUCCESS, 0, 0},
    };
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.why);
        const Answer answer = Query(row.name, row.room);
        EXPECT_EQ(answer.error, row.error);
        EXPECT_EQ(answer.size, row.size);
        EXPECT_NE(answer.type, kMark);
        EXPECT_TRUE(
            std::equal(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(row.filled), answer.buffer.begin()));
        EXPECT_TRUE(std::all_of(answer.buffer.begin() + static_cast<std::ptrdiff_t>(row.filled), answer.buffer.end(),
                                [](BYTE byte) { return byte == kUntouched; }));
    }
}

TEST_F(RegistryValues, TextWithoutItsNulIsGivenOneWhereThereIsRoom) {
    const Bytes text = BytesOf(W("abc"));
    for (const DWORD type : {DWORD{REG_EXPAND_SZ}, DWORD{REG_MULTI_SZ}}) {
        SCOPED_TRACE(type);
        ASSERT_EQ(Set(W("v"), type, text), ERROR_SUCCESS);
        const Answer roomy = Query(W("v"), 64);
        EXPECT_EQ(roomy.error, ERROR_SUCCESS);
        EXPECT_EQ(roomy.size, 6u) << "it is not counted";
        EXPECT_EQ(Bytes(roomy.buffer.begin(), roomy.buffer.begin() + 9), (Bytes{'a', 0, 'b', 0, 'c', 0, 0, 0, 0xCC}));
        for (const DWORD room : {6u, 7u}) {
            const Answer tight = Query(W("v"), room);
            EXPECT_EQ(tight.error, ERROR_SUCCESS);
            EXPECT_EQ(tight.buffer[6], kUntouched) << room;
        }
    }
    ASSERT_EQ(Set(W("v"), REG_BINARY, text), ERROR_SUCCESS);
    EXPECT_EQ(Query(W("v"), 64).buffer[6], kUntouched) << "bytes are no text";
}

TEST_F(RegistryValues, SizeAndBufferMayBeNull) {
    ASSERT_EQ(Set(W("v"), REG_BINARY, {1, 2, 3}), ERROR_SUCCESS);
    DWORD type = kMark;
    EXPECT_EQ(RegQueryValueExW(m_key.Get(), W("v"), nullptr, &type, nullptr, nullptr), ERROR_SUCCESS);
    EXPECT_EQ(type, static_cast<DWORD>(REG_BINARY));
    EXPECT_EQ(RegQueryValueExW(m_key.Get(), W("v"), nullptr, nullptr, nullptr, nullptr), ERROR_SUCCESS);
    BYTE buffer[4];
    EXPECT_EQ(RegQueryValueExW(m_key.Get(), W("v"), nullptr, &type, buffer, nullptr), ERROR_INVALID_PARAMETER);

    type = kMark;
    DWORD size = 77;
    EXPECT_EQ(RegQueryValueExW(m_key.Get(), W("x"), nullptr, &type, nullptr, &size), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(size, 0u) << "cleared, where there is no buffer";
    EXPECT_EQ(type, kMark);
}

TEST_F(RegistryValues, TheDefaultValueHasNoName) {
    for (LPCWSTR name : {static_cast<LPCWSTR>(nullptr), W("")}) {
        EXPECT_EQ(Query(name, 64).error, ERROR_FILE_NOT_FOUND);
        EXPECT_EQ(RegDeleteValueW(m_key.Get(), name), ERROR_FILE_NOT_FOUND);
        ASSERT_EQ(Set(name, REG_BINARY, {7}), ERROR_SUCCESS);
        ExpectStored(nullptr, REG_BINARY, {7});
        ExpectStored(W(""), REG_BINARY, {7});
        EXPECT_EQ(RegDeleteValueW(m_key.Get(), name ? nullptr : W("")), ERROR_SUCCESS);
    }
}

TEST_F(RegistryValues, NamesAreFoldedLikeThoseOfKeys) {
    ASSERT_EQ(Set(W("Na\\me"), REG_BINARY, {1}), ERROR_SUCCESS) << "a separator is a character of a value's name";
    ASSERT_EQ(Set(W("nA\\ME"), REG_BINARY, {2}), ERROR_SUCCESS);
    ExpectStored(W("Na\\me"), REG_BINARY, {2});
    ASSERT_EQ(Set(W("\u00E9t\u00E9"), REG_BINARY, {3}), ERROR_SUCCESS);
    ExpectStored(W("\u00C9T\u00C9"), REG_BINARY, {3});
    EXPECT_EQ(RegDeleteValueW(m_key.Get(), W("NA\\me")), ERROR_SUCCESS);
    EXPECT_EQ(RegDeleteValueW(m_key.Get(), W("Na\\me")), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(RegDeleteValueW(m_key.Get(), W("\u00C9T\u00C9")), ERROR_SUCCESS);
}

TEST_F(RegistryValues, NamesHaveUpTo16383Units) {
    const struct {
        std::size_t length;
        LSTATUS set, query;
    } kRows[] = {
        {257, ERROR_SUCCESS, ERROR_SUCCESS},
        {16383, ERROR_SUCCESS, ERROR_SUCCESS},
        {16384, ERROR_INVALID_PARAMETER, ERROR_FILE_NOT_FOUND},
        {32768, ERROR_INVALID_PARAMETER, ERROR_FILE_NOT_FOUND},
    };
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.length);
        wstr name(row.length, W('n'));
        EXPECT_EQ(Set(name.c_str(), REG_BINARY, {1}), row.set);
        name[row.length - 1] = W('N');
        EXPECT_EQ(Query(name.c_str(), 8).error, row.query);
        EXPECT_EQ(RegDeleteValueW(m_key.Get(), name.c_str()), row.query);
    }
}

// More values than any first table of an index holds, deleted and set again in between.
TEST_F(RegistryValues, ManyValuesOfOneKeyAreEachFound) {
    const auto name = [](DWORD number) {
        wstr text = W("Setting");
        for (int digit = 0; digit < 5; ++digit, number /= 10) text += static_cast<WCHAR>(W('0') + number % 10);
        return text;
    };
    constexpr DWORD kCount = 300;
    for (DWORD i = 0; i < kCount; ++i) {
        ASSERT_EQ(m_key.SetDword(name(i).c_str(), i), ERROR_SUCCESS);
        if (i % 3 == 2) {
            ASSERT_EQ(RegDeleteValueW(m_key.Get(), name(i - 1).c_str()), ERROR_SUCCESS);
        }
        if (i % 7 == 6) {
            ASSERT_EQ(m_key.SetDword(name(i - 6).c_str(), i + 1000), ERROR_SUCCESS);
        }
    }
    DWORD missing = 0;
    for (DWORD i = 0; i < kCount; ++i) {
        DWORD value = kMark;
        const LSTATUS error = m_key.QueryDword(name(i).c_str(), value);
        const bool rewritten = i % 7 == 0 && i + 6 < kCount;
        if (i % 3 == 1 && i + 1 < kCount && !rewritten) {
            EXPECT_EQ(error, ERROR_FILE_NOT_FOUND) << i;
            ++missing;
        } else {
            EXPECT_EQ(error, ERROR_SUCCESS) << i;
            EXPECT_EQ(value, rewritten ? i + 1006 : i);
        }
    }
    EXPECT_GT(missing, 50u);
}

}  // namespace
