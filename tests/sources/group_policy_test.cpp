// The machine's Group Policy tree, seen through the questions of a client.
#include <gtest/gtest.h>

#include "support/Registry.h"
#include "support/StoreDoor.h"
#include "support/TestRoot.h"
#include "support/ValueText.h"

namespace {

using namespace testreg;

const wstr kRoot = W("SOFTWARE\\Policies\\Orvantis");
const wstr kLists = kRoot + W("\\") + wstr(AppsPolicyPrefix);

class GroupPolicy : public RootTest {
  protected:
    static wstr Below(LPCWSTR path) { return kRoot + W("\\") + path; }
    std::string Ask(LPCWSTR name) {
        OV_SERVER_INFO_EX record = {name, OV_QUERY, {}};
        EXPECT_EQ(m_object->GetInfo(1, &record), S_OK);
        return TextAndFree(record);
    }
    std::size_t Items() {
        EXPECT_EQ(m_object->GetInfo(0, nullptr), S_OK);
        return m_object.Items().Size();
    }
    CTestInstance m_object;
};

TEST_F(GroupPolicy, NoTreeIsNoFailure) {
    EXPECT_EQ(Items(), 0u);
    EXPECT_EQ(Ask(W("A")), "0x80070002 none");
}

TEST_F(GroupPolicy, ValuesBecomeItemsByTheirPlaceAndType) {
    PutDword(kRoot.c_str(), W("D"), 1);
    PutString(Below(W("k")).c_str(), W("S"), W("text"));
    PutString(Below(W("k\\l")).c_str(), W("E"), W("%TEMP%"), REG_EXPAND_SZ);
    PutQword(Below(W("k\\l\\m")).c_str(), W("Q"), 0x123456789ABCDEF0);
    PutBytes(kRoot.c_str(), W("B"), REG_BINARY, "12345678", 8);
    PutBytes(kRoot.c_str(), W("M"), REG_MULTI_SZ, "\0\0\0", 4);
    PutBytes(kRoot.c_str(), W("short"), REG_DWORD, "\1\0", 2);
    PutBytes(kRoot.c_str(), W("open"), REG_SZ, "a\0b\0", 4);
    PutBytes(kRoot.c_str(), W("odd"), REG_SZ, "a\0b\0c", 5);
    PutDword(kRoot.c_str(), W(""), 7);
    PutDword(Below(W("A")).c_str(), W(""), 8);
    EXPECT_EQ(Ask(W("d")), "0 dword 1");
    EXPECT_EQ(Ask(W("k\\s")), "0 string 'text'");
    EXPECT_EQ(Ask(W("k\\l\\E")), "0 string '%TEMP%'");
    EXPECT_EQ(Ask(W("k\\l\\m\\Q")), "0 qword 123456789ABCDEF0");
    EXPECT_EQ(Ask(W("open")), "0 string 'ab'") << "the text ends where its data does";
    EXPECT_EQ(Ask(W("odd")), "0 string 'ab'");
    EXPECT_EQ(Ask(W("")), "0 dword 7");
    EXPECT_EQ(Ask(W("A\\")), "0 dword 8");
    for (LPCWSTR other : {W("B"), W("M"), W("short")}) EXPECT_EQ(Ask(other), "0x80070002 none");
    EXPECT_EQ(Items(), 8u);
}

TEST_F(GroupPolicy, TheNineComeFirstAndTheirKeysAreNotWalked) {
    PutDword(kRoot.c_str(), W("LogonPolicy"), 1);
    PutList(kLists.c_str(), W("LogonPolicy"), {W("A1")});
    PutDword(kRoot.c_str(), W("RuntimePolicy"), 2);
    PutDword(Below(W("AuthenticationPolicies\\RuntimePolicy")).c_str(), W("x"), 4);
    PutDword(kRoot.c_str(), W("logonpolicyUSER"), 3);
    PutList(kLists.c_str(), W("DisableCredentials"), {W("")});
    PutDword((kLists + W("\\deeper")).c_str(), W("x"), 1);
    PutDword(Below(W("authenticationpolicies")).c_str(), W("x"), 1);
    PutDword(Below(W("Applications")).c_str(), W("x"), 5);
    PutDword(Below(W("Applications\\{OTHER}")).c_str(), W("x"), 6);
    EXPECT_EQ(Ask(W("LogonPolicy")), "0 array [00000000000000A1]");
    EXPECT_EQ(Ask(W("RuntimePolicy")), "0 dword 4");
    EXPECT_EQ(Ask(W("LogonPolicyUser")), "0 dword 3") << "plain, for want of the other two forms";
    EXPECT_EQ(Ask(W("DisableCredentials")), "0x80070032 none") << "an empty list is there and cannot cross";
    EXPECT_EQ(Ask(W("Applications\\x")), "0 dword 5");
    EXPECT_EQ(Ask(W("Applications\\{other}\\x")), "0 dword 6");
    EXPECT_EQ(Items(), 6u);
}

TEST_F(GroupPolicy, TheFirstOfCollidingNamesStays) {
    PutDword(kRoot.c_str(), W("B\\C"), 1);
    PutDword(Below(W("B")).c_str(), W("C"), 2);
    EXPECT_EQ(Ask(W("b\\c")), "0 dword 1") << "a key's values are taken before anything in its subkeys";
    EXPECT_EQ(Items(), 1u);
}

TEST_F(GroupPolicy, HidesTheLocalKeys) {
    PutDword(kRoot.c_str(), W("A"), 1);
    PutDword(W("SOFTWARE\\Orvantis\\Policies"), W("A"), 2);
    EXPECT_EQ(Ask(W("A")), "0 dword 1");
}

TEST_F(GroupPolicy, DeepTreesAreWalkedToTheirEnd) {
    wstr path;
    for (int depth = 0; depth < 200; ++depth) path += W("k\\");
    PutDword(Below(path.c_str()).c_str(), W("leaf"), 9);
    EXPECT_EQ(Ask((path + W("leaf")).c_str()), "0 dword 9");
}

}  // namespace
