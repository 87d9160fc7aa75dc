// svinfo logon-policy, session-policy and is-admin, and what --as and --session make of the other verbs.
#include <unistd.h>

#include "svinfo/Output.h"
#include "tools/cli_fixture.h"

namespace {

const std::string kClass = "HKLM\\SOFTWARE\\Classes\\CLSID\\{D01AC23A-B04B-4BD2-B9D4-FBC9AD8A0A03}\\InprocServer32";
const std::string kUserKey = "HKU\\S-1-22-1-65534\\SOFTWARE\\Policies\\Orvantis";

class CliDecisions : public CliTest {
  protected:
    void SetUp() override {
        const std::filesystem::path service = std::filesystem::path(OV_SVINFO).parent_path() / "OVUserService.so";
        Done({"reg", "add", kClass, "@", "REG_SZ", service.string()});
        Done({"reg", "add", kPolicies, "LogonPolicyAdmin", "REG_DWORD", "3"});
        Done({"reg", "add", kPolicies, "LogonPolicyUser", "REG_DWORD", "4"});
    }
    static bool IsRoot() { return geteuid() == 0; }
};

TEST_F(CliDecisions, ListsAndTheRoadToThem) {
    EXPECT_EQ(Done({"logon-policy", "root"}),
              "0x0000000000000001\tthe recovery account's, where it stands alone\n"
              "0x0000000000000002\t\n0x0000000000000040\tpart of every logon list\n"
              "0x0000000000000008\tspare key\n");
    const json user = Json({"logon-policy", "nobody", "--explain"});
    EXPECT_EQ(user["list"].dump(), R"(["0000000000000004","0000000000000040","0000000000000008"])");
    EXPECT_EQ(user["steps"].dump(),
              R"x(["lock agent: the computer is not locked","recovery account: no",)x"
              R"x("item LogonPolicy: 0x80070002 it does not exist","account 'nobody' of this computer: privilege 1",)x"
              R"x("administrator: no","item LogonPolicyUser: found, local","added: 0x0000000000000040",)x"
              R"x("spare key: allowed, for nothing says otherwise","added: 0x0000000000000008"])x");
    EXPECT_EQ(Json({"logon-policy", "recovery"})["list"].dump(), R"(["0000000000000001"])");
    EXPECT_EQ(Run({"is-admin", "root"}).exitCode, 0);
    EXPECT_EQ(Run({"is-admin", "nobody"}).exitCode, 1);
    EXPECT_EQ(Run({"is-admin", "no-such-user"}).exitCode, 2);
    EXPECT_EQ(Run({"session-policy", "nobody"}).exitCode, 1) << "no policy of a session says anything";
    Done({"reg", "delete", kClass});
    EXPECT_EQ(Run({"logon-policy", "nobody"}).exitCode, 5);
    EXPECT_EQ(Run({"is-admin", "nobody"}).exitCode, 5) << "not no, but unknown";
}

TEST_F(CliDecisions, RootAsksAsOthersAndInOtherSessions) {
    if (!IsRoot()) GTEST_SKIP() << "only root asks as others";
    Done({"reg", "add", kUserKey, "RuntimePolicy", "REG_DWORD", "16"});
    Done({"reg", "add", kPolicies, "RuntimePolicy", "REG_DWORD", "1"});
    EXPECT_EQ(Done({"get", "RuntimePolicy"}), "1\n");
    EXPECT_EQ(Done({"--as", "nobody", "get", "RuntimePolicy"}), "16\n");
    EXPECT_EQ(Json({"--as", "nobody", "session-policy"})["list"].dump(), R"(["0000000000000010"])");
    EXPECT_EQ(Done({"--as", "nobody", "list"}), "RuntimePolicy\t16\tdword\tmanaged\n");
    const json level = Json({"explain", "RuntimePolicy", "--as", "nobody"})["levels"][0];
    EXPECT_EQ(level["kind"], "user");
    EXPECT_EQ(level["state"], "won");
    EXPECT_EQ(level["path"], "HKEY_USERS\\S-1-22-1-65534\\SOFTWARE\\Policies\\Orvantis");
    Done({"reg", "add", "HKLM\\SOFTWARE\\Orvantis\\Kiosk\\Logon", "KioskLogon", "REG_DWORD", "1"});
    Done({"reg", "add", "HKLM\\SOFTWARE\\Wow6432Node\\Orvantis\\Kiosk\\Session\\7", "KioskAccount", "REG_DWORD", "0"});
    Done({"reg", "add", kPolicies, "KioskRuntimePolicy", "REG_DWORD", "2"});
    EXPECT_EQ(Json({"session-policy", "--session", "6"})["list"].dump(), R"(["0000000000000002"])");
    EXPECT_EQ(Json({"session-policy", "--session", "7"})["list"].dump(), R"(["0000000000000001"])");
    EXPECT_EQ(Run({"session-policy", "--session", "x"}).exitCode, 2);

    std::vector<std::string> command = WithoutRights();
    std::filesystem::permissions(m_root.Path(),
                                 std::filesystem::perms::others_read | std::filesystem::perms::others_exec,
                                 std::filesystem::perm_options::add);
    command.insert(command.end(),
                   {OV_SVINFO, "--root", m_root.Path().string(), "--as", "root", "get", "RuntimePolicy"});
    EXPECT_EQ(RunProgram(command).exitCode, 3) << "for root alone";
}

}  // namespace
