// svinfo set, delete and events.
#include <unistd.h>

#include "svinfo/Output.h"
#include "tools/cli_fixture.h"

namespace {

class CliWrites : public CliTest {
  protected:
    void SetUp() override {
        if (geteuid() != 0) GTEST_SKIP() << "only administrators write";
        const std::filesystem::path bin = std::filesystem::path(OV_SVINFO).parent_path();
        Done({"reg", "add", "HKLM\\SOFTWARE\\Classes\\CLSID\\{337779A6-4848-428E-BE47-5C1C951794A7}\\InprocServer32",
              "@", "REG_SZ", (bin / "OVEventLogger.so").string()});
        Done({"reg", "add", "HKLM\\SOFTWARE\\Orvantis\\EventLog", "AuditFile", "REG_SZ", AuditFile()});
        Done({"reg", "add", "HKLM\\SOFTWARE\\Orvantis\\Core", "BinDir", "REG_SZ", m_root.Path().string()});
    }
    std::string AuditFile() const { return (m_root.Path() / "audit.log").string(); }
    // The events without their times, one a line.
    std::string Events() {
        std::string all;
        const json answer = Json({"events"});
        for (const json& event : answer["events"]) {
            all += event["event"].get<std::string>() + " " + event["item"].get<std::string>() + " '" +
                   event["old"].get<std::string>() + "'" +
                   (event["new"].is_null() ? "" : " '" + event["new"].get<std::string>() + "'") + " " +
                   event["domain"].get<std::string>() + "\\" + event["account"].get<std::string>() + "\n";
        }
        return all;
    }
};

TEST_F(CliWrites, WhatIsWrittenAndShown) {
    const struct {
        std::vector<std::string> arguments;
        int exitCode;
        std::string output;
    } cases[] = {
        {{"set", "A/X", "7"}, 0, "A\\X\t(none)\t7\n"},
        {{"set", "A\\X", "0x10"}, 0, "A\\X\t7\t16\n"},
        {{"set", "A\\X", "string", "16"}, 0, "A\\X\t16\t16\n"},
        {{"set", "A\\X", "8"}, 0, "A\\X\t16\t8\n"},  // of the type that it has
        {{"get", "A\\X"}, 0, "8\n"},
        {{"delete", "A\\X"}, 0, "A\\X\t8\t(none)\n"},
        {{"delete", "A\\X"}, 1, "A\\X\t(none)\t(none)\n"},
        {{"set", "T", "some text"}, 0, "T\t(none)\tsome text\n"},
        {{"set", "LogonPolicy", "masks", "0x1, 10"},
         0,
         "LogonPolicy\t(none)\t0x0000000000000001, 0x000000000000000A\n"},
        {{"set", "LogonPolicy", "0x8000000000000010"},
         0,
         "LogonPolicy\t0x0000000000000001, 0x000000000000000A\t0x8000000000000010\n"},
        {{"set", "LogonPolicy", "dword", "3"}, 0, "LogonPolicy\t0x8000000000000010\t3\n"},
        {{"set", "T", "dword", "4294967296"}, 2, ""},
        {{"set", "T", "number", "1"}, 2, ""},
        {{"set", "T", "dword", "1", "2"}, 2, ""},
        {{"set", "T"}, 2, ""},
        {{"set", "T", "qword", "1"}, 5, ""},
        {{"set", "", "1"}, 2, ""},
        {{"set", "T", "masks", "1"}, 2, ""},
        {{"set", "LogonPolicy", "masks", ""}, 2, ""},
        {{"set", "Big", "4294967296"}, 2, ""},
        {{"set", "Version", "1,2"}, 0, "Version\t(none)\t1,2\n"},
        {{"set", "RuntimePolicyUser", "0x8000000000000010"}, 0, "RuntimePolicyUser\t(none)\t0x8000000000000010\n"},
        {{"set", "RuntimePolicyUser", "1,2"},
         0,
         "RuntimePolicyUser\t0x8000000000000010\t0x0000000000000001, 0x0000000000000002\n"},
    };
    for (const auto& [arguments, exitCode, output] : cases) {
        std::string line;
        for (const std::string& argument : arguments) line += argument + " ";
        const CRunResult result = Run(arguments);
        EXPECT_EQ(result.exitCode, exitCode) << line << result.errors;
        EXPECT_EQ(result.output, output) << line;
    }
    EXPECT_EQ(
        Events(),
        "set A\\X '0' '7' NT AUTHORITY\\SYSTEM\nset A\\X '7' '16' NT AUTHORITY\\SYSTEM\n"
        "set A\\X '' '16' NT AUTHORITY\\SYSTEM\nset A\\X '16' '8' NT AUTHORITY\\SYSTEM\n"
        "deleted A\\X '8' NT AUTHORITY\\SYSTEM\nset T '' 'some text' NT AUTHORITY\\SYSTEM\n"
        "set LogonPolicy '{...}' '{...}' NT AUTHORITY\\SYSTEM\nset LogonPolicy '{...}' '{...}' NT AUTHORITY\\SYSTEM\n"
        "set LogonPolicy '{...}' '{...}' NT AUTHORITY\\SYSTEM\nset Version '' '1,2' NT AUTHORITY\\SYSTEM\n"
        "set RuntimePolicyUser '{...}' '{...}' NT AUTHORITY\\SYSTEM\n"
        "set RuntimePolicyUser '{...}' '{...}' NT AUTHORITY\\SYSTEM\n");
}

// A policy's bits answer before its plain number, and no deletion of the component's takes them away.
TEST_F(CliWrites, AnotherFormOfAPolicyAnswers) {
    Done({"reg", "add", kPolicies + "\\AuthenticationPolicies\\LogonPolicy", "bit", "REG_DWORD", "3"});
    const CRunResult deleted = Run({"delete", "LogonPolicy"});
    EXPECT_EQ(deleted.exitCode, 5);
    EXPECT_NE(deleted.errors.find("still holds 3"), std::string::npos) << deleted.errors;
    const CRunResult set = Run({"set", "LogonPolicy", "dword", "5"});
    EXPECT_EQ(set.exitCode, 6);
    EXPECT_NE(set.errors.find("answers: 3"), std::string::npos) << set.errors;
    Done({"reg", "add", kPolicies, "Odd", "REG_MULTI_SZ", "a"});
    EXPECT_EQ(Done({"delete", "Odd"}), "Odd\t(no value)\t(none)\n");
}

TEST_F(CliWrites, AStrongerSourceHidesIt) {
    Done({"reg", "add", "HKLM\\SOFTWARE\\Policies\\Orvantis", "X", "REG_DWORD", "3"});
    for (const std::vector<std::string>& arguments : {std::vector<std::string>{"set", "X", "7"}, {"delete", "X"}}) {
        const CRunResult result = Run(arguments);
        EXPECT_EQ(result.exitCode, 6);
        EXPECT_NE(result.errors.find(
                      "group-policy (HKEY_LOCAL_MACHINE\\SOFTWARE\\Policies\\Orvantis) hides the local value: 3"),
                  std::string::npos)
            << result.errors;
    }
    EXPECT_EQ(Json({"set", "X", "8"})["hiddenBy"]["kind"], "group-policy");
    EXPECT_EQ(Run({"events"}).exitCode, 1) << "what has no effect for now is no event";
}

TEST_F(CliWrites, OrdinaryAccountsMayNot) {
    for (const std::vector<std::string>& arguments :
         {std::vector<std::string>{"set", "X", "7"}, {"delete", "X"}, {"set", "LogonPolicy", "masks", "1"}}) {
        std::vector<std::string> asNobody = {"--as", "nobody"};
        asNobody.insert(asNobody.end(), arguments.begin(), arguments.end());
        const CRunResult result = Run(asNobody);
        EXPECT_EQ(result.exitCode, 3);
        EXPECT_EQ(result.output, "");
        EXPECT_NE(result.errors.find("0x80070005 access is denied to "), std::string::npos) << result.errors;
        EXPECT_NE(result.errors.find("\\nobody (S-1-22-1-65534)"), std::string::npos) << result.errors;
    }
    EXPECT_EQ(Run({"get", "X"}).exitCode, 1);
    EXPECT_EQ(Run({"events"}).exitCode, 1);
}

TEST_F(CliWrites, ValuesCannotMakeUpEvents) {
    const std::string evil =
        "a\tb\n2026-01-01 00:00:00.000\t0x01100409\tmade up\tX\tgone\tCORP\\\\erika\x01\xC2\x9B\xE2\x80\xAE";
    EXPECT_EQ(Run({"set", "X", "string", evil}).exitCode, 0);
    const json events = Json({"events"})["events"];
    ASSERT_EQ(events.size(), 1u);
    EXPECT_EQ(events[0]["new"], evil);
    EXPECT_EQ(Done({"events"}).find('\x01'), std::string::npos);
    const std::string good = Read(AuditFile());
    for (const char* bad : {"garbage", "2026-01-01\t0xFFFFFFFFFFFFFFFFFF\tm", "2026-01-01\t0x990110040B\tm",
                            "2026-01-01\t0x0110040B\tpolicy item\tA"}) {
        Write("audit.log", std::string(bad) + "\n" + good);
        const CRunResult odd = Run({"events"});
        EXPECT_EQ(odd.exitCode, 1) << bad;
        EXPECT_NE(odd.errors.find("audit.log:1:1: found no event"), std::string::npos) << odd.errors;
        EXPECT_NE(odd.output.find("\tset\tX\t"), std::string::npos) << "the others are shown";
    }
    // A line that was cut off takes nothing with it.
    Write("audit.log", good.substr(0, good.size() - 5));
    EXPECT_EQ(Run({"set", "X", "string", "later"}).exitCode, 0);
    EXPECT_NE(Run({"events"}).output.find("\tlater\t"), std::string::npos);
    Done({"reg", "delete", "HKLM\\SOFTWARE\\Orvantis\\EventLog", "AuditFile"});
    EXPECT_EQ(Run({"set", "X", "b"}).exitCode, 0);
    EXPECT_NE(Run({"events"}).errors.find("names none"), std::string::npos);
}

}  // namespace
