// Whom a host serves: the callers that it declares, what their tokens hold, and that each thread has its own.
#include <fcntl.h>
#include <pwd.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <thread>

#include "support/Registry.h"
#include "support/TestRoot.h"
#include "support/Token.h"

namespace {

constexpr uid_t kNobody = 65534;
constexpr uid_t kUnknown = 3'999'999'999;
constexpr HRESULT kNoCall = static_cast<HRESULT>(0x80010117);
constexpr HRESULT kRefused = static_cast<HRESULT>(0x80070005);

std::string UserText(uid_t user) {
    return user == 0 ? "S-1-5-18" : "S-1-22-1-" + std::to_string(user);
}

// A user whom every system has, with a group of the same name.
struct CDaemon {
    CDaemon() {
        const passwd* entry = getpwnam("daemon");
        EXPECT_TRUE(entry);
        user = entry ? entry->pw_uid : 0;
        group = entry ? entry->pw_gid : 0;
    }
    std::string Sid() const { return UserText(user); }
    std::string GroupSid() const { return "S-1-22-2-" + std::to_string(group); }

    uid_t user;
    gid_t group;
};

DWORD BeginCallOf(std::initializer_list<LPCWSTR> sids, DWORD session = 0) {
    return OvBeginCallOfSids(sids.begin(), static_cast<DWORD>(sids.size()), session);
}

class Calls : public RootTest {
  protected:
    void TearDown() override {
        OvEndCall();
        RevertToSelf();
    }
    // Whom the thread takes on in the call under way, and gives back.
    static std::string Caller() {
        EXPECT_EQ(CoImpersonateClient(), S_OK);
        const std::string user = CTestToken::OfThread().User();
        EXPECT_EQ(CoRevertToSelf(), S_OK);
        return user;
    }
    CDaemon m_daemon;
};

TEST_F(Calls, ShowTheirCallerOnlyToWhoTakesThemOn) {
    ASSERT_EQ(OvBeginCallOfUser(m_daemon.user, 7), 0u);
    EXPECT_EQ(OvBeginCallOfUser(0, 0), 170u) << "not nested";
    EXPECT_EQ(CTestToken::OfThread().Error(), 1008u);
    EXPECT_EQ(CoRevertToSelf(), S_OK) << "nothing to undo";
    EXPECT_EQ(CoImpersonateClient(), S_OK);
    EXPECT_EQ(CoImpersonateClient(), S_OK) << "again";
    {
        const CTestToken token = CTestToken::OfThread(MAXIMUM_ALLOWED);
        EXPECT_EQ(token.User(), m_daemon.Sid());
        EXPECT_EQ(token.PrimaryGroup(), m_daemon.GroupSid());
        EXPECT_TRUE(token.IsIn(m_daemon.GroupSid() + ":7"));
        EXPECT_TRUE(token.IsIn("S-1-1-0:7"));
        EXPECT_TRUE(token.IsIn("S-1-5-32-545:7"));
        EXPECT_FALSE(token.IsIn("S-1-5-32-544:15"));
        EXPECT_EQ(token.Integrity(), 8192u);
        EXPECT_EQ(token.Number(TokenSessionId), 7u);
        EXPECT_EQ(token.Number(TokenImpersonationLevel), static_cast<DWORD>(SecurityImpersonation));
        EXPECT_EQ(CTestToken::OfProcess().User(), UserText(geteuid())) << "the process stays who it is";
    }
    EXPECT_EQ(CoRevertToSelf(), S_OK);
    EXPECT_EQ(CTestToken::OfThread().Error(), 1008u) << "one revert for any number";
    EXPECT_EQ(CoImpersonateClient(), S_OK);
    OvEndCall();
    EXPECT_EQ(CTestToken::OfThread().Error(), 1008u) << "what the callee left";
    EXPECT_EQ(CoImpersonateClient(), kNoCall);
    EXPECT_EQ(CoRevertToSelf(), kNoCall);
}

TEST_F(Calls, GiveTheThreadBackWhatItHad) {
    ASSERT_TRUE(ImpersonateSelf(SecurityIdentification));
    ASSERT_EQ(OvBeginCallOfUser(m_daemon.user, 0), 0u);
    EXPECT_EQ(Caller(), m_daemon.Sid());
    EXPECT_EQ(CTestToken::OfThread().Number(TokenImpersonationLevel), static_cast<DWORD>(SecurityIdentification));
    EXPECT_TRUE(ImpersonateAnonymousToken(GetCurrentThread()));
    OvEndCall();
    EXPECT_EQ(CTestToken::OfThread().User(), UserText(geteuid())) << "the callee's own doing, too";
    OvEndCall();
    EXPECT_EQ(CTestToken::OfThread().Error(), 0u) << "there was no call to end";
}

TEST_F(Calls, OfWhoRefusesShowNobody) {
    ASSERT_EQ(OvBeginCallOfSids(nullptr, 0, 0), 0u);
    EXPECT_EQ(CoImpersonateClient(), kRefused);
    EXPECT_EQ(CTestToken::OfThread().Error(), 1008u);
}

TEST_F(Calls, OfSidsAreAsTheyAreGiven) {
    const struct {
        const char* why;
        std::vector<LPCWSTR> sids;
        DWORD error;
        std::string primary;
        std::vector<std::string> groups;
        DWORD integrity;
    } kRows[] = {
        {"a user alone", {W("S-1-5-21-1-2-3-1001")}, 0, "S-1-5-32-545", {"S-1-1-0:7", "S-1-5-32-545:7"}, 8192},
        {"groups, the primary one first",
         {W("S-1-5-21-1-2-3-1001"), W("S-1-5-21-1-2-3-513"), W("S-1-1-0")},
         0,
         "S-1-5-21-1-2-3-513",
         {"S-1-5-21-1-2-3-513:7", "S-1-1-0:7", "S-1-5-32-545:7"},
         8192},
        {"an administrator",
         {W("S-1-5-21-1-2-3-1001"), W("BA")},
         0,
         "S-1-5-32-544",
         {"S-1-5-32-544:15", "S-1-1-0:7", "S-1-5-32-545:7"},
         12288},
        {"the system", {W("S-1-5-18")}, 0, "S-1-5-32-545", {"S-1-1-0:7", "S-1-5-32-545:7", "S-1-5-32-544:15"}, 12288},
        {"nobody", {W("AN")}, 0, "S-1-1-0", {"S-1-1-0:7"}, 0},
        {"no SID", {W("S-1-5-18"), W("daemon")}, 1337, "", {}, 0},
        {"a null", {W("S-1-5-18"), nullptr}, 87, "", {}, 0},
    };
    for (const auto& row : kRows) {
        const DWORD error = OvBeginCallOfSids(row.sids.data(), static_cast<DWORD>(row.sids.size()), 3);
        EXPECT_EQ(error, row.error) << row.why;
        if (error) {
            EXPECT_EQ(CoImpersonateClient(), kNoCall) << row.why;
            continue;
        }
        ASSERT_EQ(CoImpersonateClient(), S_OK);
        const CTestToken token = CTestToken::OfThread();
        EXPECT_EQ(token.PrimaryGroup(), row.primary) << row.why;
        EXPECT_EQ(token.Groups(), row.groups) << row.why;
        EXPECT_EQ(token.Integrity(), row.integrity) << row.why;
        EXPECT_EQ(token.Number(TokenSessionId), 3u) << row.why;
        OvEndCall();
    }
}

TEST_F(Calls, OfAUserWhomNobodyKnowsHaveNoGroupsOfTheSystem) {
    ASSERT_EQ(OvBeginCallOfUser(kUnknown, 0), 0u);
    ASSERT_EQ(CoImpersonateClient(), S_OK);
    const CTestToken token = CTestToken::OfThread();
    EXPECT_EQ(token.User(), "S-1-22-1-3999999999");
    EXPECT_EQ(token.Groups(), (std::vector<std::string>{"S-1-1-0:7", "S-1-5-32-545:7"}));
}

TEST_F(Calls, OfTwoThreadsDoNotMeet) {
    const auto serve = [](LPCWSTR sid, const char* text) {
        for (int i = 0; i < 2000; ++i) {
            ASSERT_EQ(BeginCallOf({sid}), 0u);
            ASSERT_EQ(Caller(), text);
            OvEndCall();
            ASSERT_TRUE(ImpersonateSelf(SecurityImpersonation));
            ASSERT_EQ(CTestToken::OfThread().User(), UserText(geteuid()));
            ASSERT_TRUE(RevertToSelf());
        }
    };
    std::thread other(serve, W("S-1-5-21-1-2-3-1001"), "S-1-5-21-1-2-3-1001");
    serve(W("S-1-5-21-1-2-3-1002"), "S-1-5-21-1-2-3-1002");
    other.join();
}

TEST_F(Calls, ShowATokenThatOutlivesThem) {
    ASSERT_EQ(OvBeginCallOfUser(m_daemon.user, 0), 0u);
    ASSERT_EQ(CoImpersonateClient(), S_OK);
    const CTestToken token = CTestToken::OfThread();
    OvEndCall();
    std::string seen;
    std::thread([&] { seen = token.User(); }).join();
    EXPECT_EQ(seen, m_daemon.Sid());
}

TEST_F(Calls, OfAPeerAreWhomTheSystemNames) {
    int sockets[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, sockets), 0);
    ASSERT_EQ(OvBeginCallOfPeer(sockets[0]), 0u);
    ASSERT_EQ(CoImpersonateClient(), S_OK);
    DWORD session = 0;
    EXPECT_TRUE(ProcessIdToSessionId(static_cast<DWORD>(getpid()), &session));
    const CTestToken token = CTestToken::OfThread();
    EXPECT_EQ(token.User(), UserText(geteuid()));
    EXPECT_EQ(token.PrimaryGroup(), "S-1-22-2-" + std::to_string(getegid()));
    EXPECT_EQ(token.Number(TokenSessionId), session);
    OvEndCall();
    close(sockets[0]);
    close(sockets[1]);

    const int lonely = socket(AF_UNIX, SOCK_STREAM, 0);
    const int remote = socket(AF_INET, SOCK_STREAM, 0);
    const int file = open("/dev/null", O_RDONLY);
    EXPECT_EQ(OvBeginCallOfPeer(-1), 6u);
    EXPECT_EQ(OvBeginCallOfPeer(file), 6u);
    EXPECT_EQ(OvBeginCallOfPeer(lonely), 87u);
    EXPECT_EQ(OvBeginCallOfPeer(remote), 87u);
    EXPECT_EQ(CoImpersonateClient(), kNoCall);
    for (const int each : {lonely, remote, file}) close(each);
}

// By a group of its own choice, which the system vouches for.
TEST_F(Calls, OfAPeerThatIsSomebodyElseAreThatUsers) {
    if (geteuid() != 0) GTEST_SKIP() << "only root can be somebody else";
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;  // the system finds a name that no file has
    const int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    ASSERT_EQ(bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof(sa_family_t)), 0);
    socklen_t size = sizeof address;
    ASSERT_EQ(getsockname(listener, reinterpret_cast<sockaddr*>(&address), &size), 0);
    ASSERT_EQ(listen(listener, 1), 0);
    const pid_t child = fork();
    if (child == 0) {
        const int peer = socket(AF_UNIX, SOCK_STREAM, 0);
        const bool connected = setgid(m_daemon.group) == 0 && setuid(kNobody) == 0 &&
                               connect(peer, reinterpret_cast<sockaddr*>(&address), size) == 0;
        char end;
        _exit(connected && read(peer, &end, 1) == 0 ? 0 : 1);
    }
    const int peer = accept(listener, nullptr, nullptr);
    ASSERT_EQ(OvBeginCallOfPeer(peer), 0u);
    ASSERT_EQ(CoImpersonateClient(), S_OK);
    const CTestToken token = CTestToken::OfThread();
    EXPECT_EQ(token.User(), UserText(kNobody));
    EXPECT_EQ(token.PrimaryGroup(), m_daemon.GroupSid());
    EXPECT_TRUE(token.IsIn(m_daemon.GroupSid() + ":7"));
    EXPECT_FALSE(token.IsIn("S-1-5-32-544:15"));
    OvEndCall();
    close(peer);
    close(listener);
    int status = 0;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
}

TEST_F(Calls, LeadToTheCallersHive) {
    const std::string text = m_daemon.Sid();
    const wstr sid(text.begin(), text.end());
    const auto openCurrentUser = [] {
        CRegistryKey key;
        HKEY opened = nullptr;
        const LSTATUS error = RegOpenCurrentUser(KEY_READ, &opened);
        if (!error) RegCloseKey(opened);
        return error;
    };
    EXPECT_EQ(openCurrentUser(), 0) << "the process's own is empty";
    ASSERT_TRUE(ImpersonateSelf(SecurityImpersonation));
    EXPECT_EQ(openCurrentUser(), 0) << "by that name as well";
    RevertToSelf();
    ASSERT_EQ(OvBeginCallOfUser(m_daemon.user, 0), 0u);
    ASSERT_EQ(CoImpersonateClient(), S_OK);
    EXPECT_EQ(openCurrentUser(), 2) << "no policy was ever written for the caller";

    CRegistryKey made;
    ASSERT_EQ(made.Create(HKEY_USERS, (sid + W("\\Software")).c_str(), nullptr, 0, KEY_ALL_ACCESS, nullptr, nullptr),
              0);
    HKEY current = nullptr;
    ASSERT_EQ(RegOpenCurrentUser(KEY_READ, &current), 0);
    CRegistryKey found;
    EXPECT_EQ(found.Open(current, W("Software"), KEY_READ), 0);
    EXPECT_EQ(found.Open(HKEY_CURRENT_USER, W("Software"), KEY_READ), 2) << "stays the process's";
    RegCloseKey(current);
    ASSERT_TRUE(ImpersonateAnonymousToken(GetCurrentThread()));
    EXPECT_EQ(openCurrentUser(), 2) << "nobody has none";
}

TEST_F(Calls, OfMembersOfTheNamedGroupsAreAdministrators) {
    const auto integrity = [&] {
        EXPECT_EQ(OvBeginCallOfUser(m_daemon.user, 0), 0u);
        EXPECT_EQ(CoImpersonateClient(), S_OK);
        const CTestToken token = CTestToken::OfThread();
        EXPECT_EQ(token.IsIn("S-1-5-32-544:15"), token.Integrity() == 12288);
        OvEndCall();
        return token.Integrity();
    };
    constexpr LPCWSTR kKey = W("SOFTWARE\\Orvantis\\Platform");
    constexpr LPCWSTR kName = W("AdministratorGroups");
    EXPECT_EQ(integrity(), 8192u);
    testreg::PutList(kKey, kName, {W("no such group"), W("daemon")});
    EXPECT_EQ(integrity(), 12288u);
    testreg::PutList(kKey, kName, {W("no such group")});
    EXPECT_EQ(integrity(), 8192u);
    testreg::PutString(kKey, kName, W("daemon"));
    EXPECT_EQ(integrity(), 8192u) << "no list";
}

TEST(Identities, OfNobodyCanBeOpened) {
    ASSERT_TRUE(ImpersonateAnonymousToken(GetCurrentThread()));
    const CTestToken token = CTestToken::OfThread();
    ASSERT_EQ(token.Error(), 0u);
    EXPECT_EQ(token.User(), "S-1-5-7");
    EXPECT_EQ(token.Groups(), std::vector<std::string>{"S-1-1-0:7"});
    EXPECT_EQ(token.Integrity(), 0u);
    EXPECT_TRUE(RevertToSelf());
    EXPECT_FALSE(ImpersonateAnonymousToken(nullptr));
    EXPECT_EQ(GetLastError(), 6u);
}

TEST(Identities, AreRaisedByTheSystemAlone) {
    const auto set = [](const CTestToken& token, LPCWSTR level, DWORD size = sizeof(TOKEN_MANDATORY_LABEL)) -> DWORD {
        const CTestSid sid(level);
        TOKEN_MANDATORY_LABEL label = {{sid.Get(), 0x20}};
        return SetTokenInformation(token.Get(), TokenIntegrityLevel, &label, size) ? 0 : GetLastError();
    };
    ASSERT_EQ(BeginCallOf({W("S-1-5-21-1-2-3-1001")}), 0u);
    ASSERT_EQ(CoImpersonateClient(), S_OK);
    {
        const CTestToken token = CTestToken::OfThread(TOKEN_QUERY | TOKEN_ADJUST_DEFAULT);
        const CTestToken second = CTestToken::OfThread();
        EXPECT_EQ(set(second, W("S-1-16-4096")), 5u) << "no right";
        EXPECT_EQ(set(token, W("S-1-16-4096"), 4), 24u);
        EXPECT_EQ(set(token, W("S-1-5-18")), 1337u) << "no level";
        EXPECT_EQ(set(token, W("S-1-16-4096")), 0u);
        EXPECT_EQ(token.Integrity(), 4096u);
        EXPECT_EQ(second.Integrity(), 8192u) << "another token";
        EXPECT_EQ(set(token, W("S-1-16-8192")), 1314u);
        EXPECT_EQ(token.Integrity(), 4096u);
    }
    OvEndCall();
    ASSERT_EQ(BeginCallOf({W("SY")}), 0u);
    ASSERT_EQ(CoImpersonateClient(), S_OK);
    EXPECT_EQ(set(CTestToken::OfThread(MAXIMUM_ALLOWED), W("S-1-16-16384")), 0u);
    OvEndCall();
}

TEST(Identities, ThereAreNoRemoteCallsAndNothingToStart) {
    EXPECT_EQ(RpcImpersonateClient(nullptr), 1702);
    EXPECT_EQ(RpcRevertToSelf(), 1702);
    EXPECT_EQ(OleRun(nullptr), E_INVALIDARG);
    EXPECT_FALSE(ImpersonateSelf(static_cast<SECURITY_IMPERSONATION_LEVEL>(4)));
    HANDLE token = nullptr;
    EXPECT_FALSE(OpenProcessToken(GetCurrentProcess(), 0x10000000, &token)) << "a right that tokens do not have";
    EXPECT_EQ(GetLastError(), 87u);
}

}  // namespace
