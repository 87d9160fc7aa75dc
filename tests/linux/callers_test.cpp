// Callers of a host: each gets its own answer, through a daemon and on many threads at once.
#include <grp.h>
#include <gtest/gtest.h>
#include <pwd.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <thread>

#include "authpolicy/UserService.h"
#include "store/PolicyKey.h"
#include "support/Document.h"
#include "support/Registry.h"
#include "support/RunProgram.h"
#include "support/StoreDoor.h"
#include "support/TestRoot.h"

namespace {

using namespace testreg;

// A user's own policy: one number for RuntimePolicy.
void PutUserPolicy(const wstr& sid, DWORD number) {
    HKEY key = nullptr;
    ASSERT_EQ(RegCreateKeyExW(HKEY_USERS, (sid + W("\\SOFTWARE\\Policies\\Orvantis")).c_str(), 0, nullptr, 0,
                              KEY_ALL_ACCESS, nullptr, &key, nullptr),
              ERROR_SUCCESS);
    EXPECT_EQ(
        RegSetValueExW(key, W("RuntimePolicy"), 0, REG_DWORD, reinterpret_cast<const BYTE*>(&number), sizeof number),
        ERROR_SUCCESS);
    RegCloseKey(key);
}

wstr SidOfUser(uid_t user) {
    const std::string text = "S-1-22-1-" + std::to_string(user);
    return {text.begin(), text.end()};
}

// An account of this computer that is made for the test and goes with it.
class CAccount {
  public:
    explicit CAccount(std::string name) : m_name(std::move(name)) {
        RunProgram({"userdel", m_name});  // left by a run that was killed
        EXPECT_EQ(RunProgram({"useradd", "-M", "-N", "-s", "/bin/false", m_name}).exitCode, 0);
        if (const passwd* entry = getpwnam(m_name.c_str())) m_user = entry->pw_uid;
    }
    ~CAccount() { RunProgram({"userdel", m_name}); }
    CAccount(const CAccount&) = delete;
    CAccount& operator=(const CAccount&) = delete;
    uid_t User() const noexcept { return m_user; }

  private:
    std::string m_name;
    uid_t m_user = static_cast<uid_t>(-1);
};

class CDaemon {
  public:
    CDaemon(const std::string& root, std::string socket) : m_socket(std::move(socket)) {
        m_process = fork();
        if (m_process == 0) {
            setenv("OV_ROOT", root.c_str(), 1);
            execl(OV_BINARIES "/policy_daemon", "policy_daemon", m_socket.c_str(), nullptr);
            _exit(127);
        }
    }
    ~CDaemon() {
        kill(m_process, SIGKILL);
        waitpid(m_process, nullptr, 0);
    }
    CDaemon(const CDaemon&) = delete;
    CDaemon& operator=(const CDaemon&) = delete;

    // What the daemon answers to that user.
    std::string AskAs(uid_t user, const std::string& question) const {
        int ends[2];
        if (pipe(ends) != 0) return "no pipe";
        const pid_t child = fork();
        if (child == 0) {
            if (setgroups(0, nullptr) != 0 || setgid(65534) != 0 || setuid(user) != 0) _exit(1);
            const std::string answer = Ask(question + "\n");
            _exit(write(ends[1], answer.data(), answer.size()) < 0);
        }
        close(ends[1]);
        char answer[128] = {};
        const ssize_t got = read(ends[0], answer, sizeof answer - 1);
        close(ends[0]);
        waitpid(child, nullptr, 0);
        return got > 0 ? std::string(answer, static_cast<std::size_t>(got)) : "no answer";
    }

  private:
    std::string Ask(const std::string& question) const {
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        std::strncpy(address.sun_path, m_socket.c_str(), sizeof address.sun_path - 1);
        for (int attempt = 0; attempt < 2'000; ++attempt) {
            const int connection = socket(AF_UNIX, SOCK_STREAM, 0);
            if (connect(connection, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0) {
                char answer[128] = {};
                if (write(connection, question.data(), question.size()) < 0) return "not written";
                const ssize_t got = read(connection, answer, sizeof answer);
                return {answer, got > 0 ? static_cast<std::size_t>(got) : 0};
            }
            close(connection);
            usleep(5'000);
        }
        return "no daemon";
    }

    std::string m_socket;
    pid_t m_process;
};

TEST(Callers, OfADaemonSeeTheirOwnPolicyAndNobodyElses) {
    if (geteuid() != 0) GTEST_SKIP() << "only root makes accounts, and serves others";
    const CTestRoot root;
    std::filesystem::permissions(root.Path(), std::filesystem::perms::all);
    const CAccount first("ovtest-one"), second("ovtest-two"), third("ovtest-three");
    PutUserPolicy(SidOfUser(first.User()), 111);
    PutUserPolicy(SidOfUser(second.User()), 222);
    PutDword(kLocalPolicyKey, W("RuntimePolicy"), 5);
    PutDword(kLocalPolicyKey, W("Plain"), 6);
    const CDaemon daemon(root.Path().string(), (root.Path() / "policy.socket").string());
    for (int round = 0; round < 3; ++round) {
        EXPECT_EQ(daemon.AskAs(first.User(), "RuntimePolicy"), "managed 111\n");
        EXPECT_EQ(daemon.AskAs(second.User(), "RuntimePolicy"), "managed 222\n");
        EXPECT_EQ(daemon.AskAs(third.User(), "RuntimePolicy"), "local 5\n");
        EXPECT_EQ(daemon.AskAs(0, "RuntimePolicy"), "local 5\n") << "the system has no policy of its own";
        EXPECT_EQ(daemon.AskAs(first.User(), "Plain"), "local 6\n");
    }
}

// OV_CALLS=100000 for as many calls in all.
TEST(Callers, OnEightThreadsAreNotMixedUp) {
    const char* wanted = std::getenv("OV_CALLS");
    const int calls = (wanted ? std::atoi(wanted) : 4'000) / 8;
    const CTestRoot root;
    for (DWORD i = 0; i < 8; i += 2) PutUserPolicy(SidOfUser(51'000 + i), 1u << i);  // every other one has a policy
    PutDword(kLocalPolicyKey, W("RuntimePolicy"), 0x100);
    CTestInstance object;
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (DWORD i = 0; i < 8; ++i) {
        threads.emplace_back([&, i] {
            const wstr sid = SidOfUser(51'000 + i);
            const LPCWSTR sids[] = {sid.c_str(), W("S-1-22-2-100")};
            const DWORD expected = i % 2 == 0 ? 1u << i : 0x100;
            for (int call = 0; call < calls; ++call) {
                if (OvBeginCallOfSids(sids, 2, i) != ERROR_SUCCESS) ++wrong;
                OV_SERVER_INFO_EX record = {W("RuntimePolicy"), OV_QUERY, {}};
                DWORD count = 0;
                ULONGLONG* list = nullptr;
                if (call % 2 == 0) {
                    if (FAILED(object->GetInfo(1, &record)) || record.value.data != expected) ++wrong;
                } else {
                    if (FAILED(object->GetSessionPolicyList(&count, &list)) || count != 1 || list[0] != expected)
                        ++wrong;
                    CoTaskMemFree(list);
                }
                OvEndCall();
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(wrong, 0);
}

TEST(UserService, TranslatesNamesAndLocksTheComputer) {
    const CTestRoot root;
    CComPtr<IOVUserNames> names;
    EXPECT_EQ(OpenUserService(IID_IOVUserNames, names), REGDB_E_CLASSNOTREG);
    const wstr server = WidePath(OV_BINARIES "/OVUserService.so");
    PutString(W("SOFTWARE\\Classes\\CLSID\\{D01AC23A-B04B-4BD2-B9D4-FBC9AD8A0A03}\\InprocServer32"), W(""), server);
    ASSERT_EQ(OpenUserService(IID_IOVUserNames, names), S_OK);
    const auto translate = [&](LPCWSTR name, DWORD format, DWORD wanted) -> std::string {
        COVNameResult result;
        const HRESULT hr = names->TranslateName(name, format, 1, &wanted, &result);
        const OV_NAME_ENTRY* const entry = result.Find(wanted);
        return std::to_string(hr) + " " + (entry ? Narrow(entry->name) : "none");
    };
    EXPECT_EQ(translate(W(".\\nobody"), kNameSam, kNameSid), "1 S-1-22-1-65534");
    // Another domain's name is nobody's here, though this computer has an account of its last part.
    for (LPCWSTR other : {W("CORP\\nobody"), W("nobody@corp.example"), W("CORP\\root")}) {
        EXPECT_EQ(translate(other, kNameSam, kNameSid), std::to_string(static_cast<LONG>(0x80070534)) + " none");
    }
    EXPECT_TRUE(translate(W("S-1-22-1-65534"), kNameSid, kNameSam).ends_with("\\nobody"));
    EXPECT_EQ(translate(W("X\\no such user"), kNameSam, kNameSid),
              std::to_string(static_cast<LONG>(0x80070534)) + " none");
    EXPECT_EQ(translate(W("nobody"), 99, kNameSid), std::to_string(E_INVALIDARG) + " none");
    PutList(W("SOFTWARE\\Orvantis\\UserService"), W("DomainAccounts"), {W("NOBODY"), W("system")});
    EXPECT_EQ(translate(W(".\\nobody"), kNameSam, kNameSid), "0 S-1-22-1-65534") << "of a domain, as the setting says";

    // The roads of the decision on the system's own accounts.
    CTestInstance object;
    EXPECT_EQ(object->IsAdmin(W("S-1-5-18"), kNameSid), S_OK);
    EXPECT_EQ(object->IsAdmin(W(".\\nobody"), kNameSam), S_FALSE);
    PutDword(W("SOFTWARE\\Orvantis\\DB\\Users\\S-1-22-1-65534"), W("other"), 1);
    EXPECT_EQ(object->IsAdmin(W(".\\nobody"), kNameSam), S_FALSE);
    EXPECT_EQ(Get(W("SOFTWARE\\Orvantis\\DB\\Users\\S-1-22-1-65534"), W("UserRights")).bytes, std::vector<BYTE>(4, 0))
        << "remembered, where the suite has a key for it";
    PutString(W("SOFTWARE\\Orvantis\\DB\\Users\\S-1-22-1-65534"), W("UserRights"), W("1"));
    EXPECT_EQ(object->IsAdmin(W(".\\nobody"), kNameSam), S_FALSE) << "a text is no answer, and is overwritten";
    EXPECT_EQ(Get(W("SOFTWARE\\Orvantis\\DB\\Users\\S-1-22-1-65534"), W("UserRights")).type,
              static_cast<DWORD>(REG_DWORD));

    // The system as an account of a domain: found among the administrators, and remembered as one.
    Make(W("SOFTWARE\\Orvantis\\DB\\Users\\S-1-5-18"));
    EXPECT_EQ(object->IsAdmin(W("S-1-5-18"), kNameSid), S_OK);
    EXPECT_EQ(Get(W("SOFTWARE\\Orvantis\\DB\\Users\\S-1-5-18"), W("UserRights")).bytes,
              (std::vector<BYTE>{1, 0, 0, 0}));
    PutDword(W("SOFTWARE\\Orvantis\\DB\\Users\\S-1-5-18"), W("UserRights"), 0);
    EXPECT_EQ(object->IsAdmin(W("S-1-5-18"), kNameSid), S_FALSE) << "as it was found once";

    // A list without its end is read to where its bytes end.
    PutBytes(W("SOFTWARE\\Orvantis\\UserService"), W("LockedMasks"), REG_MULTI_SZ, "4\0002\0", 4);
    CComPtr<IOVLockPolicy> agent;
    ASSERT_EQ(OpenUserService(IID_IOVLockPolicy, agent), S_OK);
    DWORD count = 7;
    ULONGLONG* list = nullptr;
    EXPECT_EQ(agent->GetLockPolicyList(&count, &list), S_OK);
    EXPECT_EQ(std::vector<ULONGLONG>(list, list + count), std::vector<ULONGLONG>{0x42});
    CoTaskMemFree(list);
    RegDeleteValueW(Make(W("SOFTWARE\\Orvantis\\UserService")).Get(), W("LockedMasks"));
    EXPECT_EQ(agent->GetLockPolicyList(&count, &list), S_FALSE);
    PutList(W("SOFTWARE\\Orvantis\\UserService"), W("LockedMasks"), {W("8000000000000000"), W("2")});
    ASSERT_EQ(object->GetUserLogonPolicyList(W("anybody"), kNameAsItStands, &count, &list), S_OK);
    EXPECT_EQ(std::vector<ULONGLONG>(list, list + count), (std::vector<ULONGLONG>{0x8000000000000000, 2}));
    CoTaskMemFree(list);
}

}  // namespace
