// Security identifiers, tokens of the process and of a thread that acts for itself, and access lists.
#include "support/Token.h"

#include <cstring>

namespace {

const bool kIsLayer = std::string(kOvHomeName) == "layer";

TEST(Sids, AreReadFromTheirTexts) {
    const struct {
        LPCWSTR text;
        DWORD error;
        const char* back;
        bool isPromisedByAll;
    } kRows[] = {
        {W("S-1-5-18"), 0, "S-1-5-18", true},
        {W("s-1-5-18"), 0, "S-1-5-18", false},
        {W("S-1-1-0"), 0, "S-1-1-0", true},
        {W("S-1-5-4294967295"), 0, "S-1-5-4294967295", true},
        {W("S-1-5-1-2-3-4-5-6-7-8-9-10-11-12-13-14-15"), 0, "S-1-5-1-2-3-4-5-6-7-8-9-10-11-12-13-14-15", true},
        {W("SY"), 0, "S-1-5-18", true},
        {W("BA"), 0, "S-1-5-32-544", true},
        {W("BU"), 0, "S-1-5-32-545", true},
        {W("WD"), 0, "S-1-1-0", true},
        {W("AN"), 0, "S-1-5-7", true},
        {nullptr, 87, "", true},
        {W(""), 1337, "", false},
        {W("X"), 1337, "", true},
        {W("S-1"), 1337, "", true},
        {W("S-1-5"), 1337, "", true},
        {W("S-2-5-18"), 1337, "", true},
        {W("S-1-5-18 "), 1337, "", true},
        {W("S-1-5-4294967296"), 1337, "", false},
        {W("S-1-281474976710656-1"), 1337, "", false},
        {W(" S-1-5-18"), 1337, "", false},
        {W("S-1-5-18-"), 1337, "", false},
        {W("S-1-5--18"), 1337, "", false},
        {W("S-1-0x5-18"), 1337, "", false},
        {W("S-1-5-1-2-3-4-5-6-7-8-9-10-11-12-13-14-15-16"), 1337, "", false},
    };
    for (const auto& row : kRows) {
        if (!kIsLayer && !row.isPromisedByAll) continue;
        PSID sid = nullptr;
        const BOOL read = ConvertStringSidToSidW(row.text, &sid);
        EXPECT_EQ(read ? 0 : GetLastError(), row.error) << row.back << " row " << &row - kRows;
        if (!read) continue;
        EXPECT_EQ(SidTextOf(sid), row.back);
        EXPECT_TRUE(IsValidSid(sid));
        EXPECT_EQ(GetLengthSid(sid), 8u + 4u * *GetSidSubAuthorityCount(sid));
        LocalFree(sid);
    }
}

TEST(Sids, AreBuiltComparedAndCopied) {
    alignas(DWORD) BYTE room[SECURITY_MAX_SID_SIZE];
    SID_IDENTIFIER_AUTHORITY authority = {{0, 0, 0, 0, 0, 5}};
    ASSERT_TRUE(InitializeSid(room, &authority, 2));
    *GetSidSubAuthority(room, 0) = 32;
    *GetSidSubAuthority(room, 1) = 544;
    const CTestSid administrators(W("BA"));
    const CTestSid users(W("BU"));
    const CTestSid system(W("SY"));
    EXPECT_TRUE(EqualSid(room, administrators.Get()));
    EXPECT_FALSE(EqualSid(room, users.Get())) << "the last part differs";
    EXPECT_FALSE(EqualSid(users.Get(), system.Get())) << "another length";

    alignas(DWORD) BYTE copy[SECURITY_MAX_SID_SIZE];
    EXPECT_FALSE(CopySid(15, copy, room));
    if (kIsLayer) {
        EXPECT_EQ(GetLastError(), 122u);
    }
    EXPECT_TRUE(CopySid(16, copy, room));
    EXPECT_TRUE(EqualSid(copy, room));

    copy[0] = 2;
    EXPECT_FALSE(IsValidSid(copy)) << "another revision";
    copy[0] = 1;
    copy[1] = 16;
    EXPECT_FALSE(IsValidSid(copy)) << "too many parts";
}

TEST(Sids, HaveTheNamesThatEveryComputerGivesThem) {
    const struct {
        LPCWSTR sid;
        LPCWSTR name;
        LPCWSTR domain;
        SID_NAME_USE use;
    } kRows[] = {
        {W("SY"), W("SYSTEM"), W("NT AUTHORITY"), SidTypeWellKnownGroup},
        {W("BA"), W("Administrators"), W("BUILTIN"), SidTypeAlias},
        {W("WD"), W("Everyone"), W(""), SidTypeWellKnownGroup},
    };
    for (const auto& row : kRows) {
        const CTestSid sid(row.sid);
        WCHAR name[64];
        WCHAR domain[64];
        DWORD nameRoom = 64;
        DWORD domainRoom = 64;
        SID_NAME_USE use = SidTypeUnknown;
        ASSERT_TRUE(LookupAccountSidW(nullptr, sid.Get(), name, &nameRoom, domain, &domainRoom, &use));
        EXPECT_EQ(wstr(name), row.name);
        EXPECT_EQ(wstr(domain), row.domain);
        EXPECT_EQ(use, row.use);
        EXPECT_EQ(nameRoom, wstr(row.name).size());
        EXPECT_EQ(domainRoom, wstr(row.domain).size());

        nameRoom = 3;
        domainRoom = 64;
        EXPECT_FALSE(LookupAccountSidW(nullptr, sid.Get(), name, &nameRoom, domain, &domainRoom, &use));
        EXPECT_EQ(GetLastError(), 122u);
        nameRoom = domainRoom = 0;
        EXPECT_FALSE(LookupAccountSidW(nullptr, sid.Get(), nullptr, &nameRoom, nullptr, &domainRoom, &use));
        EXPECT_EQ(nameRoom, wstr(row.name).size() + 1) << "what is needed, for who gave none";
    }
    const CTestSid nobody(W("S-1-5-21-1-2-3-4"));
    DWORD room = 0;
    DWORD domainRoom = 0;
    SID_NAME_USE use = SidTypeUnknown;
    EXPECT_FALSE(LookupAccountSidW(nullptr, nobody.Get(), nullptr, &room, nullptr, &domainRoom, &use));
    EXPECT_EQ(GetLastError(), 1332u);
}

TEST(Tokens, OfTheProcessTellWhoItIs) {
    const CTestToken token = CTestToken::OfProcess();
    ASSERT_EQ(token.Error(), 0u);
    EXPECT_EQ(token.User().substr(0, 4), "S-1-");
    EXPECT_EQ(token.PrimaryGroup().substr(0, 4), "S-1-");
    EXPECT_TRUE(token.IsIn("S-1-1-0:7"));
    EXPECT_TRUE(token.IsIn("S-1-5-32-545:7"));
    EXPECT_EQ(token.Number(TokenType), static_cast<DWORD>(TokenPrimary));
    EXPECT_GE(token.Integrity(), 8192u);
    DWORD session = 0xDEADBEEF;
    EXPECT_TRUE(ProcessIdToSessionId(GetCurrentProcessId(), &session));
    EXPECT_EQ(token.Number(TokenSessionId), session);
    EXPECT_FALSE(ProcessIdToSessionId(0x7FFFFFF0, &session));
    EXPECT_EQ(GetLastError(), 87u);
}

TEST(Tokens, QuestionsFailAsOnThePlatform) {
    const CTestToken token = CTestToken::OfProcess();
    const CTestToken mute = CTestToken::OfProcess(TOKEN_ADJUST_DEFAULT);
    const HANDLE none = reinterpret_cast<HANDLE>(static_cast<LONG_PTR>(0x7FFFFFF0));
    const struct {
        const char* why;
        HANDLE token;
        TOKEN_INFORMATION_CLASS what;
        DWORD room;
        DWORD error;
    } kRows[] = {
        {"no token", nullptr, TokenUser, 256, 6},
        {"a bad one", none, TokenGroups, 256, 6},
        {"no right to ask", mute.Get(), TokenUser, 256, 5},
        {"room for 3 bytes of a number", token.Get(), TokenSessionId, 3, 122},
        {"room for 3 bytes of a user", token.Get(), TokenUser, 3, 122},
        {"room for 3 bytes of a level", token.Get(), TokenImpersonationLevel, 3, 122},
        {"the level of a primary token", token.Get(), TokenImpersonationLevel, 256, 87},
    };
    for (const auto& row : kRows) {
        alignas(8) BYTE buffer[256];
        DWORD needed = 0;
        EXPECT_FALSE(GetTokenInformation(row.token, row.what, buffer, row.room, &needed)) << row.why;
        EXPECT_EQ(GetLastError(), row.error) << row.why;
        if (row.error == 122) {
            EXPECT_GT(needed, 3u) << row.why;
        }
    }
}

TEST(Tokens, OfAThreadAreThereWhileItImpersonates) {
    const auto check = [](const char* when, DWORD error) {
        for (const DWORD access : {DWORD{TOKEN_QUERY}, DWORD{MAXIMUM_ALLOWED}}) {
            for (const BOOL asSelf : {TRUE, FALSE}) {
                HANDLE token = nullptr;
                const BOOL opened = OpenThreadToken(GetCurrentThread(), access, asSelf, &token);
                EXPECT_EQ(opened ? 0 : GetLastError(), error) << when;
                EXPECT_EQ(token != nullptr, error == 0) << when;
                if (opened) CloseHandle(token);
            }
        }
    };
    check("before", 1008);
    for (const auto level : {SecurityIdentification, SecurityImpersonation, SecurityDelegation}) {
        ASSERT_TRUE(ImpersonateSelf(level));
        check("while it acts for itself", 0);
        const CTestToken token = CTestToken::OfThread();
        EXPECT_EQ(token.Number(TokenType), static_cast<DWORD>(TokenImpersonation));
        EXPECT_EQ(token.Number(TokenImpersonationLevel), static_cast<DWORD>(level));
        EXPECT_EQ(token.User(), CTestToken::OfProcess().User());
    }
    EXPECT_TRUE(RevertToSelf());
    EXPECT_TRUE(RevertToSelf()) << "again";
    check("after", 1008);
    ASSERT_TRUE(ImpersonateSelf(SecurityAnonymous));
    check("when nobody may know who it is", 1347);
    EXPECT_TRUE(RevertToSelf());

    HANDLE token = nullptr;
    EXPECT_FALSE(OpenThreadToken(nullptr, TOKEN_QUERY, TRUE, &token));
    EXPECT_EQ(GetLastError(), 6u);
    EXPECT_FALSE(OpenProcessToken(nullptr, TOKEN_QUERY, &token));
    EXPECT_EQ(GetLastError(), 6u);
}

TEST(Tokens, ThereIsNoCallerOutsideOfACall) {
    EXPECT_EQ(CoImpersonateClient(), static_cast<HRESULT>(0x80010117));
    EXPECT_EQ(CTestToken::OfThread().Error(), 1008u);
    EXPECT_EQ(CoRevertToSelf(), static_cast<HRESULT>(0x80010117));
}

class AccessList : public testing::Test {
  protected:
    void SetUp() override { ASSERT_TRUE(InitializeAcl(Get(), sizeof m_room, ACL_REVISION)); }
    PACL Get() { return reinterpret_cast<PACL>(m_room); }

    alignas(DWORD) BYTE m_room[8 + 20 + 24 + 20] = {};
    const CTestSid m_everyone{W("WD")};
    const CTestSid m_administrators{W("BA")};
};

TEST_F(AccessList, TakesEntriesUntilItIsFull) {
    EXPECT_TRUE(AddAccessAllowedAce(Get(), ACL_REVISION, 0x20019, m_everyone.Get()));
    const DWORD inherited = OBJECT_INHERIT_ACE | CONTAINER_INHERIT_ACE;
    EXPECT_TRUE(AddAccessAllowedAceEx(Get(), ACL_REVISION, inherited, 0xF003F, m_administrators.Get()));
    EXPECT_FALSE(AddAccessAllowedAce(Get(), ACL_REVISION, 1, m_administrators.Get())) << "20 of 24 bytes are left";
    EXPECT_EQ(GetLastError(), 1344u);
    EXPECT_TRUE(AddAccessAllowedAce(Get(), ACL_REVISION, 1, m_everyone.Get()));
    EXPECT_EQ(Get()->AceCount, 3u);

    const struct {
        DWORD flags;
        DWORD mask;
        PSID sid;
    } kEntries[] = {
        {0, 0x20019, m_everyone.Get()}, {inherited, 0xF003F, m_administrators.Get()}, {0, 1, m_everyone.Get()}};
    for (DWORD i = 0; i < 3; ++i) {
        void* at = nullptr;
        ASSERT_TRUE(GetAce(Get(), i, &at));
        auto* entry = static_cast<ACCESS_ALLOWED_ACE*>(at);
        EXPECT_EQ(entry->Header.AceType, 0u);
        EXPECT_EQ(entry->Header.AceFlags, kEntries[i].flags);
        EXPECT_EQ(entry->Mask, kEntries[i].mask);
        EXPECT_TRUE(EqualSid(&entry->SidStart, kEntries[i].sid));
    }
    void* at = nullptr;
    EXPECT_FALSE(GetAce(Get(), 3, &at));
    EXPECT_EQ(GetLastError(), 87u);
}

TEST_F(AccessList, TakesWholeEntriesOfAnother) {
    ASSERT_TRUE(AddAccessAllowedAce(Get(), ACL_REVISION, 1, m_everyone.Get()));
    ASSERT_TRUE(AddAccessAllowedAce(Get(), ACL_REVISION, 2, m_administrators.Get()));
    void* entries = nullptr;
    ASSERT_TRUE(GetAce(Get(), 0, &entries));
    alignas(DWORD) BYTE room[8 + 44 + 20];
    const PACL other = reinterpret_cast<PACL>(room);
    ASSERT_TRUE(InitializeAcl(other, sizeof room, ACL_REVISION));
    if (kIsLayer) {
        EXPECT_FALSE(AddAce(other, ACL_REVISION, MAXDWORD, entries, 40)) << "the second is cut";
    }
    EXPECT_TRUE(AddAce(other, ACL_REVISION, MAXDWORD, entries, 44));
    EXPECT_FALSE(AddAce(other, ACL_REVISION, MAXDWORD, entries, 44)) << "no room for both";
    EXPECT_EQ(other->AceCount, 2u);
    EXPECT_EQ(std::memcmp(room + 8, entries, 44), 0);
}

TEST_F(AccessList, DamagedOnesAreRefused) {
    ASSERT_TRUE(AddAccessAllowedAce(Get(), ACL_REVISION, 1, m_everyone.Get()));
    const struct {
        const char* why;
        std::size_t at;
        BYTE value;
        bool isPromisedByAll;
    } kRows[] = {
        {"no such revision", 0, 9, true},
        {"smaller than its head", 2, 4, false},
        {"more entries than there are", 4, 200, false},
        {"an entry beyond its end", 8 + 2, 200, false},
        {"an entry of no size", 8 + 2, 0, false},
    };
    for (const auto& row : kRows) {
        if (!kIsLayer && !row.isPromisedByAll) continue;
        const BYTE before = m_room[row.at];
        m_room[row.at] = row.value;
        EXPECT_FALSE(AddAccessAllowedAce(Get(), ACL_REVISION, 1, m_everyone.Get())) << row.why;
        m_room[row.at] = before;
    }
    EXPECT_TRUE(AddAccessAllowedAce(Get(), ACL_REVISION, 1, m_everyone.Get()));
    EXPECT_FALSE(InitializeAcl(Get(), 4, ACL_REVISION));
    EXPECT_FALSE(InitializeAcl(Get(), sizeof m_room, 1));
}

TEST(SecurityDescriptors, HoldWhatTheyAreGiven) {
    SECURITY_DESCRIPTOR descriptor;
    const CTestSid owner(W("SY"));
    alignas(DWORD) BYTE room[64];
    const PACL acl = reinterpret_cast<PACL>(room);
    ASSERT_TRUE(InitializeAcl(acl, sizeof room, ACL_REVISION));
    EXPECT_FALSE(InitializeSecurityDescriptor(&descriptor, 2));
    EXPECT_EQ(GetLastError(), 1305u);
    ASSERT_TRUE(InitializeSecurityDescriptor(&descriptor, SECURITY_DESCRIPTOR_REVISION));
    EXPECT_TRUE(SetSecurityDescriptorOwner(&descriptor, owner.Get(), FALSE));
    EXPECT_TRUE(SetSecurityDescriptorGroup(&descriptor, owner.Get(), TRUE));
    EXPECT_TRUE(SetSecurityDescriptorDacl(&descriptor, TRUE, acl, FALSE));
    EXPECT_EQ(descriptor.Owner, owner.Get());
    EXPECT_EQ(descriptor.Group, owner.Get());
    EXPECT_EQ(descriptor.Dacl, acl);
    EXPECT_EQ(descriptor.Control, SE_GROUP_DEFAULTED | SE_DACL_PRESENT);
    EXPECT_TRUE(SetSecurityDescriptorDacl(&descriptor, FALSE, nullptr, FALSE));
    EXPECT_EQ(descriptor.Control, SE_GROUP_DEFAULTED);
}

}  // namespace
