// Accounts of this computer, what access lists allow them, and the lists that are stored with registry keys.
#include <grp.h>
#include <pwd.h>
#include <unistd.h>

#include <cstring>

#include "Home.h"
#include "support/Document.h"
#include "support/Registry.h"
#include "support/TestRoot.h"
#include "support/Token.h"

namespace {

std::string NumberOf(const char* user) {
    const passwd* entry = getpwnam(user);
    return entry ? std::to_string(entry->pw_uid) : "none";
}

class CTestList {
  public:
    CTestList() { EXPECT_TRUE(InitializeAcl(Get(), sizeof m_room, ACL_REVISION)); }
    CTestList& Allow(LPCWSTR sid, DWORD mask, DWORD flags = 0) {
        EXPECT_TRUE(AddAccessAllowedAceEx(Get(), ACL_REVISION, flags, mask, CTestSid(sid).Get()));
        return *this;
    }
    CTestList& Deny(LPCWSTR sid, DWORD mask) {
        Allow(sid, mask);
        void* entry = nullptr;
        EXPECT_TRUE(GetAce(Get(), Get()->AceCount - 1u, &entry));
        static_cast<ACE_HEADER*>(entry)->AceType = 1;
        return *this;
    }
    PACL Get() { return reinterpret_cast<PACL>(m_room); }
    std::size_t Size() const { return sizeof m_room; }

  private:
    alignas(DWORD) BYTE m_room[512] = {};
};

wstr Wide(const std::string& text) {
    return wstr(text.begin(), text.end());
}

TEST(Accounts, AreNamedByTheirSids) {
    const group* daemons = getgrnam("daemon");
    ASSERT_TRUE(daemons);
    char host[256] = {};
    gethostname(host, sizeof host - 1);
    const struct {
        std::string sid;
        std::string name;
        std::string domain;
        SID_NAME_USE use;
    } kRows[] = {
        {"S-1-22-1-" + NumberOf("daemon"), "daemon", host, SidTypeUser},
        {"S-1-22-1-0", "root", host, SidTypeUser},
        {"S-1-22-2-" + std::to_string(daemons->gr_gid), "daemon", host, SidTypeGroup},
        {"S-1-5-7", "ANONYMOUS LOGON", "NT AUTHORITY", SidTypeWellKnownGroup},
        {"S-1-22-1-3999999999", "", "", SidTypeUnknown},
        {"S-1-22-3-0", "", "", SidTypeUnknown},
    };
    for (const auto& row : kRows) {
        const CTestSid sid(Wide(row.sid).c_str());
        WCHAR name[256];
        WCHAR domain[256];
        DWORD nameRoom = 256;
        DWORD domainRoom = 256;
        SID_NAME_USE use = SidTypeUnknown;
        const BOOL found = LookupAccountSidW(nullptr, sid.Get(), name, &nameRoom, domain, &domainRoom, &use);
        EXPECT_EQ(use, row.use) << row.sid;
        EXPECT_EQ(found ? 0 : GetLastError(), row.use == SidTypeUnknown ? 1332u : 0u) << row.sid;
        if (!found) continue;
        EXPECT_EQ(wstr(name), Wide(row.name));
        EXPECT_EQ(wstr(domain), Wide(row.domain));
    }
}

TEST(Accounts, AreFoundByTheirNames) {
    const struct {
        LPCWSTR name;
        std::string sid;
        SID_NAME_USE use;
    } kRows[] = {
        {W("root"), "S-1-5-18", SidTypeUser},
        {W("daemon"), "S-1-22-1-" + NumberOf("daemon"), SidTypeUser},
        {W(".\\daemon"), "S-1-22-1-" + NumberOf("daemon"), SidTypeUser},
        {W("WORKGROUP\\daemon"), "", SidTypeUnknown},  // another domain's, whatever this computer has
        {W("daemon@elsewhere.invalid"), "", SidTypeUnknown},
        {W("tty"), "S-1-22-2-" + std::to_string(getgrnam("tty")->gr_gid), SidTypeGroup},
        {W("administrators"), "S-1-5-32-544", SidTypeAlias},
        {W("NT Authority\\system"), "S-1-5-18", SidTypeWellKnownGroup},
        {W("BUILTIN\\system"), "", SidTypeUnknown},
        {W("no such name"), "", SidTypeUnknown},
        {W(""), "", SidTypeUnknown},
    };
    for (const auto& row : kRows) {
        alignas(DWORD) BYTE sid[SECURITY_MAX_SID_SIZE];
        DWORD size = sizeof sid;
        WCHAR domain[64];
        DWORD room = 64;
        SID_NAME_USE use = SidTypeUnknown;
        const BOOL found = LookupAccountNameW(nullptr, row.name, sid, &size, domain, &room, &use);
        EXPECT_EQ(use, row.use) << row.sid;
        EXPECT_EQ(found ? SidTextOf(sid) : "", row.sid);
    }
}

TEST(Accounts, TellTheirUsers) {
    const passwd* root = getpwnam("root");
    ASSERT_TRUE(root);
    BYTE* buffer = nullptr;
    ASSERT_EQ(NetUserGetInfo(nullptr, W("root"), 11, &buffer), 0u);
    const auto* info = reinterpret_cast<const USER_INFO_11*>(buffer);
    EXPECT_EQ(Narrow(info->usri11_name), "root");
    EXPECT_EQ(Narrow(info->usri11_home_dir), root->pw_dir);
    EXPECT_EQ(Narrow(info->usri11_full_name), std::string(root->pw_gecos).substr(0, std::strcspn(root->pw_gecos, ",")));
    EXPECT_EQ(Narrow(info->usri11_parms), "");
    EXPECT_EQ(info->usri11_priv, USER_PRIV_ADMIN);
    EXPECT_EQ(NetApiBufferFree(buffer), 0u);
    ASSERT_EQ(NetUserGetInfo(W(""), W("daemon"), 11, &buffer), 0u);
    EXPECT_EQ(reinterpret_cast<const USER_INFO_11*>(buffer)->usri11_priv, USER_PRIV_USER);
    NetApiBufferFree(buffer);

    const struct {
        LPCWSTR server;
        LPCWSTR user;
        DWORD level;
        DWORD error;
    } kRows[] = {
        {nullptr, W("no such name"), 11, 2221},
        {nullptr, W("root"), 1, 124},
        {W("\\\\elsewhere.invalid"), W("root"), 11, 53},
        {nullptr, nullptr, 11, 87},
    };
    for (const auto& row : kRows) EXPECT_EQ(NetUserGetInfo(row.server, row.user, row.level, &buffer), row.error);
}

TEST(Accounts, HaveTheRightsOfAllTheirGroups) {
    const passwd* daemon = getpwnam("daemon");
    ASSERT_TRUE(daemon);
    const wstr user = Wide("S-1-22-1-" + std::to_string(daemon->pw_uid));
    const wstr group = Wide("S-1-22-2-" + std::to_string(daemon->pw_gid));
    const struct {
        const char* why;
        CTestList list;
        DWORD rights;
    } kRows[] = {
        {"nobody is allowed anything", CTestList(), 0},
        {"the user and its groups",
         CTestList().Allow(user.c_str(), 1).Allow(group.c_str(), 2).Allow(W("WD"), 4).Allow(W("BU"), 8), 15},
        {"others", CTestList().Allow(W("S-1-22-1-3999999999"), 1).Allow(W("BA"), 2).Allow(W("SY"), 4), 0},
        {"what only is handed down", CTestList().Allow(W("WD"), 1, 8).Allow(W("WD"), 2, 1), 2},
        {"denied first", CTestList().Deny(group.c_str(), 3).Allow(W("WD"), 7), 4},
        {"denied too late", CTestList().Allow(W("WD"), 1).Deny(user.c_str(), 3).Allow(W("WD"), 7), 5},
    };
    for (const auto& row : kRows) {
        CTestList list = row.list;
        const CTestSid sid(user.c_str());
        for (const LPCWSTR name : {W("daemon"), W(".\\daemon"), LPCWSTR()}) {
            TRUSTEE_W trustee;
            BuildTrusteeWithNameW(&trustee, const_cast<LPWSTR>(name));
            if (!name) {
                trustee.TrusteeForm = TRUSTEE_IS_SID;
                trustee.ptstrName = static_cast<LPWSTR>(sid.Get());
            }
            DWORD rights = 0xDEADBEEF;
            EXPECT_EQ(GetEffectiveRightsFromAclW(list.Get(), &trustee, &rights), 0u) << row.why;
            EXPECT_EQ(rights, row.rights) << row.why;
        }
    }
    CTestList list;
    TRUSTEE_W trustee;
    DWORD rights = 0;
    BuildTrusteeWithNameW(&trustee, const_cast<LPWSTR>(W("HOST\\no such name")));
    EXPECT_EQ(GetEffectiveRightsFromAclW(list.Get(), &trustee, &rights), 1332u);
    list.Get()->AclRevision = 9;
    EXPECT_EQ(GetEffectiveRightsFromAclW(list.Get(), &trustee, &rights), 1336u);
}

class KeySecurity : public RootTest {
  protected:
    static constexpr LPCWSTR kPath = W("SOFTWARE\\OvTest\\Guarded");

    static DWORD Set(HKEY key, PACL list, DWORD what = DACL_SECURITY_INFORMATION) {
        return SetSecurityInfo(key, SE_REGISTRY_KEY, what, nullptr, nullptr, list, nullptr);
    }
    // The bytes of the list; "none", or the error.
    static std::string Get(HKEY key) {
        PACL list = nullptr;
        PSECURITY_DESCRIPTOR descriptor = nullptr;
        const DWORD error = GetSecurityInfo(key, SE_REGISTRY_KEY, DACL_SECURITY_INFORMATION, nullptr, nullptr, &list,
                                            nullptr, &descriptor);
        EXPECT_EQ(descriptor != nullptr, error == 0);
        if (error) return std::to_string(error);
        const std::string bytes = list ? std::string(reinterpret_cast<const char*>(list), list->AclSize) : "none";
        LocalFree(descriptor);
        return bytes;
    }
    static std::string BytesOf(CTestList& list) {
        return std::string(reinterpret_cast<const char*>(list.Get()), list.Size());
    }
    // Everything that is in memory goes; so do the handles.
    void ReadAfresh() const { ASSERT_EQ(OvSetRoot(m_root.Path().c_str()), 0u); }
};

TEST_F(KeySecurity, IsStoredWithTheKey) {
    CTestList first;
    first.Allow(W("WD"), 0x20019);
    CTestList second;
    second.Allow(W("BA"), 0xF003F).Allow(W("BU"), 0x20019);
    {
        const CRegistryKey key = testreg::Make(kPath);
        const CRegistryKey other = testreg::Make(W("SOFTWARE\\OvTest\\Other"));
        EXPECT_EQ(Get(key.Get()), "none");
        ASSERT_EQ(Set(key.Get(), first.Get()), 0u);
        EXPECT_EQ(Get(key.Get()), BytesOf(first));
        ASSERT_EQ(Set(key.Get(), second.Get(), DACL_SECURITY_INFORMATION | PROTECTED_DACL_SECURITY_INFORMATION), 0u);
        EXPECT_EQ(Get(key.Get()), BytesOf(second)) << "in place of the first";
        EXPECT_EQ(Get(other.Get()), "none");
    }
    ReadAfresh();
    {
        const CRegistryKey key = testreg::Make(kPath);
        EXPECT_EQ(Get(key.Get()), BytesOf(second)) << "from the file";
        ASSERT_EQ(Set(key.Get(), nullptr), 0u);
        EXPECT_EQ(Get(key.Get()), "none");
        ASSERT_EQ(Set(key.Get(), first.Get()), 0u);
    }
    ASSERT_EQ(RegDeleteKeyW(HKEY_LOCAL_MACHINE, kPath), 0);
    EXPECT_EQ(Get(testreg::Make(kPath).Get()), "none") << "a new key of that name";
    ReadAfresh();
    EXPECT_EQ(Get(testreg::Make(kPath).Get()), "none");
}

TEST_F(KeySecurity, IsPartOfABatch) {
    CTestList list;
    list.Allow(W("WD"), 0x20019);
    const CRegistryKey key = testreg::Make(kPath);
    for (const BOOL commit : {FALSE, TRUE}) {
        ASSERT_EQ(OvBeginRegistryBatch(), 0);
        ASSERT_EQ(Set(key.Get(), list.Get()), 0u);
        EXPECT_EQ(Get(key.Get()), BytesOf(list)) << "for who wrote it";
        ASSERT_EQ(OvEndRegistryBatch(commit), 0);
        EXPECT_EQ(Get(key.Get()), commit ? BytesOf(list) : "none");
    }
}

TEST_F(KeySecurity, WantsItsRights) {
    CTestList list;
    list.Allow(W("WD"), 0x20019);
    const CRegistryKey key = testreg::Make(kPath);
    const struct {
        REGSAM access;
        DWORD set;
        const char* get;
    } kRows[] = {
        {KEY_READ, 5, "none"}, {KEY_WRITE, 5, "none"},   {KEY_QUERY_VALUE, 5, "5"},
        {WRITE_DAC, 0, "5"},   {MAXIMUM_ALLOWED, 0, ""},
    };
    for (const auto& row : kRows) {
        CRegistryKey opened;
        ASSERT_EQ(opened.Open(HKEY_LOCAL_MACHINE, kPath, row.access), 0);
        EXPECT_EQ(Set(opened.Get(), list.Get()), row.set) << row.access;
        EXPECT_EQ(Get(opened.Get()), *row.get ? row.get : BytesOf(list)) << row.access;
    }
}

TEST_F(KeySecurity, RefusesWhatItDoesNotKeep) {
    CTestList list;
    const CRegistryKey key = testreg::Make(kPath);
    EXPECT_EQ(
        SetSecurityInfo(key.Get(), SE_FILE_OBJECT, DACL_SECURITY_INFORMATION, nullptr, nullptr, list.Get(), nullptr),
        87u);
    for (const DWORD what : {0x1u, 0x2u, 0x8u, 0x5u, 0u}) EXPECT_EQ(Set(key.Get(), list.Get(), what), 87u) << what;
    EXPECT_EQ(Set(nullptr, list.Get()), 6u);
    list.Get()->AceCount = 1000;
    EXPECT_EQ(Set(key.Get(), list.Get()), 1336u);
    EXPECT_EQ(Get(key.Get()), "none");
}

}  // namespace
