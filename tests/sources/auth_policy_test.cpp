#include "sources/AuthPolicy.h"

#include <gtest/gtest.h>

#include "support/Registry.h"
#include "support/TestRoot.h"
#include "support/ValueText.h"

namespace {

using namespace testreg;

constexpr LPCWSTR kRoot = W("SOFTWARE\\Root");
constexpr LPCWSTR kLists = W("SOFTWARE\\Root\\Applications\\{5ED04F3F-AC3E-4BE0-A157-782B204E2B8C}");
constexpr LPCWSTR kBits = W("SOFTWARE\\Root\\AuthenticationPolicies\\LogonPolicy");

class AuthPolicy : public RootTest {
  protected:
    std::string Load() {
        CPolicyValue value;
        value.SetNumber(OV_TYPE_DWORD, 0xEE);
        const HRESULT hr = ReadAuthPolicyFromKey(HKEY_LOCAL_MACHINE, kRoot, W("LogonPolicy"), value);
        if (FAILED(hr)) return hr == static_cast<HRESULT>(0x80070002) ? "absent" : "other failure";
        return ValueText(value.Raw());
    }
};

TEST_F(AuthPolicy, ReadsListsAsTheyStand) {
    EXPECT_EQ(Load(), "absent") << "no root";
    Make(kRoot);
    EXPECT_EQ(Load(), "absent") << "neither form";
    const struct {
        const char* why;
        std::initializer_list<LPCWSTR> texts;
        const char* loaded;
    } rows[] = {
        {"as written", {W("00000000000000FF"), W("FFFFFFFFFFFFFFFF")}, "array [00000000000000FF FFFFFFFFFFFFFFFF]"},
        {"prefix, blanks, sign",
         {W("0x10"), W("  10"), W("-1")},
         "array [0000000000000010 0000000000000010 FFFFFFFFFFFFFFFF]"},
        {"overflow sets all bits", {W("123456789ABCDEF01")}, "array [FFFFFFFFFFFFFFFF]"},
        {"no digits give 0 and the walk goes on", {W("ZZ"), W("7g")}, "array [0000000000000000 0000000000000007]"},
        {"an empty list is a value without a type", {W("")}, "none"},
        {"an empty string ends the list", {W("1"), W(""), W("2")}, "array [0000000000000001]"},
    };
    for (const auto& row : rows) {
        PutList(kLists, W("LogonPolicy"), row.texts);
        EXPECT_EQ(Load(), row.loaded) << row.why;
    }
}

TEST_F(AuthPolicy, ADamagedListGivesWayToTheBits) {
    const struct {
        const char* why;
        DWORD type;
        std::string bytes;
    } rows[] = {
        {"another type", REG_SZ, {"1\0\0\0", 4}},
        {"a number", REG_DWORD, {"1\0\0\0", 4}},
        {"no bytes", REG_MULTI_SZ, {}},
        {"a single NUL", REG_MULTI_SZ, {"\0", 2}},
        {"no closing NUL", REG_MULTI_SZ, {"1\0\0\0", 4}},
        {"no NUL at all",
         REG_MULTI_SZ,
         {"1\0"
          "2\0",
          4}},
        {"odd size", REG_MULTI_SZ, {"1\0\0\0\0", 5}},
    };
    PutDword(kBits, W(""), 4);
    for (const auto& row : rows) {
        PutBytes(kLists, W("LogonPolicy"), row.type, row.bytes.data(), row.bytes.size());
        EXPECT_EQ(Load(), "dword 4") << row.why;
    }
}

TEST_F(AuthPolicy, BitsAreTheOrOfAllNumbers) {
    Make(kBits);
    EXPECT_EQ(Load(), "absent") << "a key without a value";
    PutString(kBits, W("text"), W("16"));
    EXPECT_EQ(Load(), "dword 0") << "values of other types count for nothing, but they are there";
    PutDword(kBits, W("one"), 1);
    PutDword(kBits, W("a value with a long name"), 4);
    PutQword(kBits, W("q"), 8);
    PutBytes(kBits, W("short"), REG_DWORD, "\x20\0\0", 3);
    EXPECT_EQ(Load(), "dword 5");
    PutList(kLists, W("LogonPolicy"), {W("2")});
    EXPECT_EQ(Load(), "array [0000000000000002]") << "the list alone, not both";
}

TEST_F(AuthPolicy, EachWriteLeavesOneForm) {
    CPolicyValue list;
    for (ULONGLONG mask : {0xABCull, ~0ull}) {
        CPolicyValue element;
        element.SetNumber(OV_TYPE_QWORD, mask);
        list.Append(element);
    }
    CPolicyValue text;
    text.SetString(W("no number"));
    list.Append(text);

    ASSERT_EQ(SaveAuthPolicyGPO(HKEY_LOCAL_MACHINE, kRoot, W("LogonPolicy"), list.Raw()), S_OK);
    const Value stored = Get(kLists, W("LogonPolicy"));
    const wstr expected = wstr(W("0000000000000ABC\0FFFFFFFFFFFFFFFF\0"), 34) + wstr(W("0000000000000000\0\0"), 18);
    EXPECT_EQ(stored.type, static_cast<DWORD>(REG_MULTI_SZ));
    EXPECT_EQ(wstr_view(reinterpret_cast<const WCHAR*>(stored.bytes.data()), stored.bytes.size() / sizeof(WCHAR)),
              expected);

    ASSERT_EQ(SaveAuthPolicyGPO(HKEY_LOCAL_MACHINE, kRoot, W("LogonPolicy"), {OV_TYPE_ULONG, 0x1FFFFFFFF, nullptr}),
              S_OK);
    EXPECT_EQ(Get(kLists, W("LogonPolicy")).error, ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(Get(kRoot, W("LogonPolicy")).bytes, std::vector<BYTE>(4, 0xFF)) << "the low 32 bits";
    EXPECT_EQ(Load(), "absent") << "the plain number is read by whoever reads plain values";

    ASSERT_EQ(SaveAuthPolicyGPO(HKEY_LOCAL_MACHINE, kRoot, W("LogonPolicy"), list.Raw()), S_OK);
    EXPECT_EQ(Get(kRoot, W("LogonPolicy")).error, ERROR_FILE_NOT_FOUND);
}

TEST_F(AuthPolicy, AnArrayWithoutElementsReadsBackAsAbsent) {
    ASSERT_EQ(SaveAuthPolicyGPO(HKEY_LOCAL_MACHINE, kRoot, W("LogonPolicy"), {OV_TYPE_ARRAY, 0, nullptr}), S_OK);
    EXPECT_EQ(Get(kLists, W("LogonPolicy")).bytes.size(), 2u);
    EXPECT_EQ(Load(), "absent");
}

TEST_F(AuthPolicy, OtherTypesAreRefusedAndChangeNothing) {
    PutDword(kRoot, W("LogonPolicy"), 7);
    for (DWORD type : {0u, 1u, 2u, 5u, 6u, 7u, 8u, 9u, 10u, 12u, 0xFFFFFFFFu}) {
        EXPECT_EQ(SaveAuthPolicyGPO(HKEY_LOCAL_MACHINE, kRoot, W("LogonPolicy"), {type, 0, nullptr}), E_INVALIDARG)
            << type;
    }
    EXPECT_EQ(Get(kRoot, W("LogonPolicy")).bytes.size(), 4u);
}

}  // namespace
