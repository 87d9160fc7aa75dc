// What a client hears, level by level.
#include <gtest/gtest.h>

#include "support/Registry.h"
#include "support/StoreDoor.h"
#include "support/TestRoot.h"
#include "support/ValueText.h"

namespace {

using namespace testreg;

constexpr LPCWSTR kLocal = W("SOFTWARE\\Orvantis\\Policies");
constexpr LPCWSTR kDefault = W("SOFTWARE\\Orvantis\\Policies\\Default");
const wstr kLocalLists = wstr(kLocal) + W("\\") + wstr(AppsPolicyPrefix);
const wstr kDefaultLists = wstr(kDefault) + W("\\") + wstr(AppsPolicyPrefix);

class ItemQueries : public RootTest {
  protected:
    void Store(LPCWSTR name, DWORD number) {
        CPolicyItem item{name, {}};
        item.value.SetNumber(OV_TYPE_DWORD, number);
        m_object.Items().Insert(std::move(item));
    }

    // The answer as one line: result and value.
    std::string Ask(LPCWSTR name, HRESULT request = OV_QUERY) {
        OV_SERVER_INFO_EX record = {name, request, {0xEE, 0xEE, reinterpret_cast<OV_SERVER_VALUE*>(0xEE)}};
        EXPECT_EQ(m_object->GetInfo(1, &record), S_OK);
        EXPECT_EQ(record.name, name) << "the caller's pointer comes back";
        return TextAndFree(record);
    }

    CTestInstance m_object;
};

TEST_F(ItemQueries, TheFirstLevelThatHasAnItemAnswers) {
    Store(W("A"), 1);
    PutDword(kLocal, W("A"), 2);
    PutDword(kDefault, W("A"), 3);
    PutDword(kLocal, W("B"), 2);
    PutDword(kDefault, W("B"), 3);
    PutDword(kDefault, W("C"), 3);
    Store(W("D"), 1);

    EXPECT_EQ(Ask(W("a")), "0 dword 1");
    EXPECT_EQ(Ask(W("b")), "1 dword 2");
    EXPECT_EQ(Ask(W("C")), "1 dword 3");
    EXPECT_EQ(Ask(W("X")), "0x80070002 none");
    EXPECT_EQ(Ask(W("A"), OV_QUERY_DEFAULT), "1 dword 3") << "a default request sees the defaults alone";
    EXPECT_EQ(Ask(W("D"), OV_QUERY_DEFAULT), "0x80070002 none");
    EXPECT_EQ(Ask(W("B"), 77), "1 dword 2") << "any other request is an ordinary one";
    EXPECT_EQ(Ask(W("Default\\C")), "1 dword 3") << "the defaults lie below the local key";
    Store(W(""), 9);
    EXPECT_EQ(Ask(W("")), "0 dword 9") << "the empty name is an item like any other";
}

TEST_F(ItemQueries, EveryRegistryTypeOfAPlainItem) {
    const struct {
        const char* why;
        DWORD type;
        std::string bytes;
        const char* answer;  // with the default 42 behind it
    } rows[] = {
        {"number", REG_DWORD, {"\x05\0\0\0", 4}, "1 dword 5"},
        {"number of 3 bytes", REG_DWORD, {"\x05\0\0", 3}, "1 dword 42"},
        {"number of 5 bytes", REG_DWORD, {"\x05\0\0\0\0", 5}, "1 dword 42"},
        {"64 bits", REG_QWORD, {"\x08\7\6\5\4\3\2\1", 8}, "1 qword 0102030405060708"},
        {"64 bits of 4 bytes", REG_QWORD, {"\x08\7\6\5", 4}, "1 dword 42"},
        {"8 bytes", REG_BINARY, {"\x08\7\6\5\4\3\2\1", 8}, "1 qword 0102030405060708"},
        {"4 bytes", REG_BINARY, {"\x08\7\6\5", 4}, "1 dword 42"},
        {"9 bytes", REG_BINARY, {"\x08\7\6\5\4\3\2\1\0", 9}, "1 dword 42"},
        {"text", REG_SZ, {"h\0i\0\0\0", 6}, "1 string 'hi'"},
        {"text is not expanded", REG_EXPAND_SZ, {"%\0T\0%\0\0\0", 8}, "1 string '%T%'"},
        {"text of no bytes", REG_SZ, {}, "1 string ''"},
        {"text without a NUL", REG_SZ, {"h\0i\0", 4}, "1 dword 42"},
        {"text of odd size", REG_SZ, {"h\0i\0\0\0\0", 7}, "1 dword 42"},
        {"a list", REG_MULTI_SZ, {"h\0\0\0\0\0", 6}, "1 dword 42"},
        {"no type", REG_NONE, {"\1\0\0\0", 4}, "1 dword 42"},
    };
    PutDword(kDefault, W("N"), 42);
    for (const auto& row : rows) {
        PutBytes(kLocal, W("N"), row.type, row.bytes.data(), row.bytes.size());
        EXPECT_EQ(Ask(W("N")), row.answer) << row.why;
    }
    PutBytes(kDefault, W("N"), REG_MULTI_SZ, "\0\0\0", 4);
    EXPECT_EQ(Ask(W("N")), "0x8007000D none") << "a wrong type is told when no level has a better one";
}

TEST_F(ItemQueries, NamesArePathsBelowTheKey) {
    PutDword(W("SOFTWARE\\Orvantis\\Policies\\A\\B"), W("C"), 7);
    PutDword(W("SOFTWARE\\Orvantis\\Policies\\A"), W(""), 8);
    EXPECT_EQ(Ask(W("a\\b\\c")), "1 dword 7");
    EXPECT_EQ(Ask(W("A\\")), "1 dword 8") << "no value name means the key's own value";
    EXPECT_EQ(Ask(W("A\\B")), "0x80070002 none") << "a key is no item";
    EXPECT_EQ(Ask(W("A/B/C")), "0x80070002 none") << "a slash is an ordinary character";
    const wstr hugeLeaf(16 * 1024, W('n'));
    EXPECT_EQ(Ask(hugeLeaf.c_str()), "0x80070002 none");
    wstr deep;
    for (int i = 0; i < 5000; ++i) deep += W("k\\");
    EXPECT_EQ(Ask(deep.c_str()), "0x80070002 none");
    EXPECT_EQ(Ask(wstr(5000, W('\\')).c_str()), "0x80070002 none") << "backslashes alone name nothing";
}

TEST_F(ItemQueries, TheNineAreReadInTheirOwnForms) {
    PutDword(kDefault, W("LogonPolicy"), 1);
    EXPECT_EQ(Ask(W("LogonPolicy")), "1 dword 1") << "plain, behind the two forms";
    PutDword((wstr(kDefault) + W("\\AuthenticationPolicies\\LogonPolicy")).c_str(), W("any"), 2);
    EXPECT_EQ(Ask(W("LogonPolicy")), "1 dword 2") << "the bits of the defaults come before every plain value";
    PutDword(kLocal, W("LogonPolicy"), 3);
    EXPECT_EQ(Ask(W("LogonPolicy")), "1 dword 2");
    PutList(kLocalLists.c_str(), W("LogonPolicy"), {W("10"), W("0000000000000001")});
    EXPECT_EQ(Ask(W("LogonPolicy")), "1 array [0000000000000010 0000000000000001]");
    EXPECT_EQ(Ask(W("LogonPolicy"), OV_QUERY_DEFAULT), "1 dword 2");
    EXPECT_EQ(Ask((wstr(AppsPolicyPrefix) + W("\\logonPOLICY")).c_str()),
              "1 array [0000000000000010 0000000000000001]");

    PutList(kLocalLists.c_str(), W("LogonPolicy"), {W("")});
    EXPECT_EQ(Ask(W("LogonPolicy")), "1 dword 3")
        << "an empty list hides the defaults' bits and gives way to plain values";
    Store(W("LogonPolicy"), 9);
    EXPECT_EQ(Ask(W("LogonPolicy")), "0 dword 9");
}

TEST_F(ItemQueries, AnEmptyPolicyOfTheStoreIsNotAskedForElsewhere) {
    m_object.Items().Insert({W("RuntimePolicy"), {}});
    PutDword(kLocal, W("RuntimePolicy"), 3);
    EXPECT_EQ(Ask(W("RuntimePolicy")), "0x80070032 none");
}

TEST_F(ItemQueries, RecordsAreAnsweredEachForItself) {
    Store(W("A"), 1);
    PutString(kLocal, W("S"), W("text"));
    const wstr longName = wstr(AppsPolicyPrefix) + W("\\RuntimePolicy");
    Store(W("RuntimePolicy"), 4);
    OV_SERVER_INFO_EX records[] = {{W("A"), 0, {}}, {nullptr, 0, {}}, {W("X"), 0, {}},  {W("A"), 2, {}},
                                   {W("S"), 0, {}}, {W("A"), 0, {}},  {nullptr, 2, {}}, {longName.c_str(), 0, {}}};
    ASSERT_EQ(m_object->GetInfo(static_cast<DWORD>(std::size(records)), records), S_OK);
    const char* answers[] = {"0 dword 1",       "0x8000FFFF none", "0x80070002 none", "0x80070002 none",
                             "1 string 'text'", "0 dword 1",       "0x8000FFFF none", "0 dword 4"};
    EXPECT_EQ(records[7].name, longName.c_str());
    for (std::size_t i = 0; i < std::size(records); ++i) EXPECT_EQ(TextAndFree(records[i]), answers[i]) << i;
}

TEST_F(ItemQueries, WholeCallsFailOnlyForTheirArguments) {
    EXPECT_EQ(m_object->GetInfo(0, nullptr), S_OK);
    EXPECT_EQ(m_object->GetInfo(1, nullptr), E_POINTER);
    EXPECT_EQ(m_object->GetInfo(0xFFFFFFFF, nullptr), E_POINTER);

    Store(W("A"), 1);
    DWORD number = 0xEEEE;
    LPWSTR text = reinterpret_cast<LPWSTR>(0xEEEE);
    EXPECT_EQ(m_object->GetItemLong(nullptr, &number), E_INVALIDARG);
    EXPECT_EQ(m_object->GetItemLong(W(""), &number), E_INVALIDARG);
    EXPECT_EQ(m_object->GetItemLong(W("A"), nullptr), E_INVALIDARG);
    EXPECT_EQ(m_object->GetItemString(nullptr, &text), E_INVALIDARG);
    EXPECT_EQ(m_object->GetItemString(W("A"), nullptr), E_INVALIDARG);
    EXPECT_EQ(number, 0xEEEEu) << "a refused name leaves the answer alone";
    EXPECT_EQ(text, reinterpret_cast<LPWSTR>(0xEEEE));
}

TEST_F(ItemQueries, SingleNamesInsistOnTheirType) {
    Store(W("number"), 5);
    PutString(kLocal, W("text"), W("t"));
    PutQword(kLocal, W("qword"), 1);
    m_object.Items().Insert({W("empty"), {}});
    CPolicyItem list{W("list"), {}};
    list.value.Append(CPolicyValue());
    m_object.Items().Insert(list);

    constexpr HRESULT kWrongType = static_cast<HRESULT>(0x8007000D);
    constexpr HRESULT kCannotCross = static_cast<HRESULT>(0x80070032);
    constexpr HRESULT kAbsent = static_cast<HRESULT>(0x80070002);
    const struct {
        LPCWSTR name;
        HRESULT asLong, asString;
    } rows[] = {
        {W("number"), S_OK, kWrongType},          {W("text"), kWrongType, S_FALSE},
        {W("qword"), kWrongType, kWrongType},     {W("list"), kWrongType, kWrongType},
        {W("empty"), kCannotCross, kCannotCross}, {W("none"), kAbsent, kAbsent},
    };
    for (const auto& row : rows) {
        DWORD number = 0xEEEE;
        LPWSTR text = reinterpret_cast<LPWSTR>(0xEEEE);
        EXPECT_EQ(m_object->GetItemLong(row.name, &number), row.asLong);
        EXPECT_EQ(number, row.asLong == S_OK ? 5u : 0u);
        EXPECT_EQ(m_object->GetItemString(row.name, &text), row.asString);
        EXPECT_EQ(text != nullptr, row.asString == S_FALSE);
        CoTaskMemFree(text);
    }
}

TEST_F(ItemQueries, OneMebibyteOfTextComesThrough) {
    const wstr text(512 * 1024, W('t'));
    PutString(kLocal, W("big"), text);
    LPWSTR answer = nullptr;
    ASSERT_EQ(m_object->GetItemString(W("big"), &answer), S_FALSE);
    EXPECT_EQ(wstr_view(answer), text);
    CoTaskMemFree(answer);
}

}  // namespace
