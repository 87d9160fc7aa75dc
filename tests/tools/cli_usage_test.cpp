// The command line itself: help, version, and what is said to wrong usage.
#include "cli_fixture.h"

namespace {

using CliUsage = CliTest;

TEST_F(CliUsage, WrongUsageIsToldAndGives2) {
    const struct {
        std::vector<std::string> args;
        const char* message;
    } rows[] = {
        {{}, "svinfo: a verb is missing; 'svinfo help' lists them\n"},
        {{"gte", "X"}, "svinfo: unknown verb 'gte'; did you mean 'get'?; 'svinfo help' lists them\n"},
        {{"zzzzzz"}, "svinfo: unknown verb 'zzzzzz'; 'svinfo help' lists them\n"},
        {{"whatif"}, "svinfo: unknown verb 'whatif'; 'svinfo help' lists them\n"},
        {{"reg"}, "svinfo: a verb is missing; 'svinfo help reg' lists them\n"},
        {{"reg", "improt", "x"},
         "svinfo: unknown verb 'reg improt'; did you mean 'reg import'?; 'svinfo help reg' lists them\n"},
        {{"get"}, "svinfo: get: NAME is required\nusage: svinfo get NAME... [--default] [--managed-only]\n"},
        {{"get", "A", "--managed-onyl"}, "svinfo: unknown option '--managed-onyl'; did you mean '--managed-only'?\n"},
        {{"get", "--defualt"}, "svinfo: unknown option '--defualt'; did you mean '--default'?\n"},
        {{"--jsno", "status"}, "svinfo: unknown option '--jsno'; did you mean '--json'?\n"},
        {{"get", "A", "-x"}, "svinfo: unknown option '-x'\n"},
        {{"status", "more"}, "svinfo: status: one argument too many, 'more'\nusage: svinfo status\n"},
        {{"reg", "add", "HKLM\\A", "B", "REG_SZ"},
         "svinfo: reg add: DATA is required\nusage: svinfo reg add KEY VALUE TYPE DATA\n"},
        {{"help", "gte"}, "svinfo: help: unknown verb 'gte'; did you mean 'get'?\n"},
        {{"--root", "", "status"}, "svinfo: --root: found an empty path, expected a folder\n"},
        {{"reg", "query", "HKXX\\A"},
         "svinfo: KEY 'HKXX\\A': found 'HKXX', expected HKLM, HKCU, HKCR or HKU, or a long name\n"},
        {{"status", "--color", "sometimes"},
         "svinfo: status: --color: sometimes not in {auto,always,never}\nusage: svinfo status\n"},
        {{"reg", "add", "HKLM\\A", "v", "REG_DWROD", "1"},
         "svinfo: TYPE: found 'REG_DWROD', expected REG_SZ, REG_EXPAND_SZ, REG_DWORD, REG_QWORD, REG_BINARY or "
         "REG_MULTI_SZ; did you mean 'REG_DWORD'?\n"},
        {{"reg", "delete", "HKLM"}, "svinfo: KEY 'HKLM': found a root, expected a key below it\n"},
    };
    for (const auto& row : rows) {
        std::vector<std::string> command{OV_SVINFO};
        command.insert(command.end(), row.args.begin(), row.args.end());
        const CRunResult result = RunProgram(command, {{"OV_ROOT", m_root.Path().string()}});
        EXPECT_EQ(result.exitCode, 2) << row.message;
        EXPECT_EQ(result.errors, row.message);
        EXPECT_EQ(result.output, "") << row.message;
    }
}

TEST_F(CliUsage, HelpListsWhatWorks) {
    const std::string text = Done({"help"});
    for (const char* verb : {"get NAME...",
                             "list [PREFIX] [--all]",
                             "explain NAME",
                             "sources",
                             "check FILE...",
                             "set NAME [dword|qword|string|masks] VALUE",
                             "delete NAME",
                             "events",
                             "cache show [FILE]",
                             "cache verify [FILE]",
                             "cache diff [FILE]",
                             "trace on [--verbosity N] [--path DIR]",
                             "trace off",
                             "trace status",
                             "trace show FILE... [--thread N] [--since T] [--follow]",
                             "trace summary FILE... [--folded OUT]",
                             "reload",
                             "copy-workgroup [FILE]",
                             "watch [FILTER...] [--once] [--timeout S]",
                             "status",
                             "logon-policy USER [--explain]",
                             "session-policy [USER] [--explain]",
                             "is-admin USER [--explain]",
                             "gpupdate FILE... [--user NAME]",
                             "reg import FILE",
                             "reg export KEY [FILE]",
                             "reg query KEY [VALUE]",
                             "reg add KEY VALUE TYPE DATA",
                             "reg delete KEY [VALUE]",
                             "register",
                             "unregister",
                             "help [VERB]",
                             "version"}) {
        EXPECT_NE(text.find(std::string("\n  ") + verb), std::string::npos) << verb;
    }
    EXPECT_EQ(text.find("whatif"), std::string::npos) << "a verb appears when it works";
    EXPECT_EQ(Done({"--help"}), text);
    EXPECT_EQ(Done({"-h"}), text);
    EXPECT_EQ(Json({"help"})["verbs"].size(), 33u);
}

TEST_F(CliUsage, HelpOfOneVerbAndOfAFamily) {
    EXPECT_TRUE(Done({"help", "get"}).starts_with("usage: svinfo get NAME..."));
    EXPECT_EQ(Done({"get", "--help"}), Done({"help", "get"})) << "no argument is missing to one who asks for help";
    EXPECT_EQ(Done({"reg", "--help"}), Done({"help", "reg"}));
    EXPECT_TRUE(Done({"help", "reg", "add"}).starts_with("usage: svinfo reg add KEY"));
    const std::string family = Done({"help", "reg"});
    for (const char* verb : {"import", "export", "query", "add", "delete"}) {
        EXPECT_NE(family.find(std::string("usage: svinfo reg ") + verb), std::string::npos) << verb;
    }
}

TEST_F(CliUsage, VersionInEveryForm) {
    const std::string version = Done({"version"});
    EXPECT_TRUE(std::isdigit(static_cast<unsigned char>(version.at(0))) && version.ends_with("\n")) << version;
    EXPECT_EQ(RunProgram({OV_SVINFO, "version"}).output, version);
    EXPECT_EQ(RunProgram({OV_SVINFO, "--version"}).output, version);
    EXPECT_EQ(Json({"version"})["version"].get<std::string>() + "\n", version);
}

TEST_F(CliUsage, GlobalOptionsStandBeforeOrBehindTheVerb) {
    const std::string root = m_root.Path().string();
    Done({"reg", "add", "HKLM\\SOFTWARE\\T", "v", "REG_SZ", "x"});
    const std::vector<std::string> query = {"reg", "query", "HKLM\\SOFTWARE\\T", "v"};
    std::vector<std::string> behind{OV_SVINFO};
    behind.insert(behind.end(), query.begin(), query.end());
    behind.insert(behind.end(), {"--root=" + root});
    EXPECT_EQ(RunProgram(behind).output, "v\tREG_SZ\tx\n");
    EXPECT_EQ(RunProgram({OV_SVINFO, "reg", "--root", root, "query", "HKLM\\SOFTWARE\\T", "v"}).output,
              "v\tREG_SZ\tx\n");
}

TEST_F(CliUsage, ArgumentsBehindTwoDashesAreNoOptions) {
    Done({"reg", "add", "--", "HKLM\\SOFTWARE\\T", "-v", "REG_SZ", "--json"});
    EXPECT_EQ(Done({"reg", "query", "HKLM\\SOFTWARE\\T"}), "-v\tREG_SZ\t--json\n");
}

}  // namespace
