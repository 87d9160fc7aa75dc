// svinfo where only this home can show it: rights, links, devices, bytes that are no text, transactions, and the order
// in which the registry lists what it holds.
#include <pwd.h>
#include <unistd.h>

#include <chrono>
#include <future>

#include "svinfo/PolFile.h"
#include "tools/cli_reg_fixture.h"

namespace {

using CliLinux = CliRegTest;

TEST_F(CliLinux, AnArgumentMustBeUtf8) {
    const CRunResult result = Run({"get", "a\xFF"});
    EXPECT_EQ(result.exitCode, 2);
    EXPECT_EQ(result.errors, "svinfo: NAME 'a\\xFF' is no UTF-8\n");
    Done({"reg", "add", kKey, "v", "REG_SZ", "x"});
    EXPECT_EQ(Run({"reg", "export", kKey, (m_root.Path() / "f\xFF").string()}).exitCode, 0)
        << "but a file's name need not";
    EXPECT_TRUE(std::filesystem::exists(m_root.Path() / "f\xFF"));
}

TEST_F(CliLinux, AFullOutputIsAFailure) {
    const CRunResult result =
        RunProgram({"sh", "-c", "exec \"$0\" \"$@\" > /dev/full", OV_SVINFO, "--root", m_root.Path().string(), "help"});
    EXPECT_EQ(result.exitCode, 5);
    EXPECT_TRUE(result.errors.starts_with("svinfo: write to standard output: ")) << result.errors;
    EXPECT_EQ(RunProgram({"sh", "-c", "exec \"$0\" version > /dev/full", OV_SVINFO}).exitCode, 5);
}

TEST_F(CliLinux, WithoutTheRightNothingIsWritten) {
    Done({"reg", "add", kKey, "v", "REG_SZ", "before"});
    const std::string before = Tree();
    const std::string file = Write("f.reg", kHeader + "[" + kLongKey + "]\r\n\"v\"=\"after\"\r\n");
    namespace fs = std::filesystem;
    fs::permissions(file, fs::perms::others_read, fs::perm_options::add);
    fs::permissions(m_root.Path(), fs::perms::others_read | fs::perms::others_exec, fs::perm_options::add);
    const std::vector<std::string> writes[] = {
        {"reg", "import", file},
        {"reg", "add", kKey, "v", "REG_SZ", "after"},
        {"reg", "add", kKey + "\\New", "v", "REG_SZ", "after"},
        {"reg", "delete", kKey, "v"},
        {"reg", "delete", kKey},
    };
    for (const std::vector<std::string>& write : writes) {
        std::vector<std::string> command = WithoutRights();
        if (command.empty()) GTEST_SKIP() << "this process has no rights to give up";
        command.insert(command.end(), {OV_SVINFO, "--root", m_root.Path().string()});
        command.insert(command.end(), write.begin(), write.end());
        const CRunResult result = RunProgram(command);
        EXPECT_EQ(result.exitCode, 3) << write[1] << ": " << result.errors;
        EXPECT_TRUE(result.errors.ends_with("0x80070005 access is denied\n")) << result.errors;
        EXPECT_EQ(Tree(), before) << write[1];
    }
}

TEST_F(CliLinux, AFailedWriteTakesEverythingBack) {
    Done({"reg", "add", kKey, "v", "REG_SZ", "before"});
    const std::string before = Tree();
    // The last key can be made by nobody: HKEY_USERS holds hives, and no key of its own.
    const CRunResult result = Import("[" + kLongKey + "]\r\n\"v\"=\"after\"\r\n[-" + kLongKey + "\\X]\r\n[" + kLongKey +
                                     "\\New]\r\n[HKEY_USERS\\NoSuchUser\\Software]\r\n\"x\"=\"y\"\r\n");
    EXPECT_EQ(result.exitCode, 5) << result.errors;
    EXPECT_NE(result.errors.find("key of line 7: create HKEY_USERS\\NoSuchUser\\Software: 0x8007"), std::string::npos)
        << result.errors;
    EXPECT_EQ(Tree(), before);
}

TEST_F(CliLinux, TheSampleIsWhatAnExportWouldBe) {
    ImportSample();
    EXPECT_TRUE(Done({"reg", "export", "HKLM\\SOFTWARE\\Orvantis"}) == Read(OV_SAMPLES "/machine.reg"));
}

TEST_F(CliLinux, ExportReplacesAFileInOneStep) {
    namespace fs = std::filesystem;
    Done({"reg", "add", kKey, "v", "REG_SZ", "x"});
    const fs::path file = Write("old.reg", std::string(100000, 'o')), link = m_root.Path() / "link.reg";
    fs::permissions(file, fs::perms::owner_read | fs::perms::owner_write);
    fs::create_symlink(file, link);
    const std::size_t before = static_cast<std::size_t>(std::distance(fs::directory_iterator(m_root.Path()), {}));
    EXPECT_EQ(Run({"reg", "export", kKey, link.string()}).exitCode, 0);
    EXPECT_TRUE(fs::is_symlink(link)) << "the file behind a link is meant";
    EXPECT_EQ(regtext::ReadText(Read(file.string())), "[" + kLongKey + "] v=\"x\"");
    EXPECT_EQ(fs::status(file).permissions(), fs::perms::owner_read | fs::perms::owner_write);
    EXPECT_EQ(static_cast<std::size_t>(std::distance(fs::directory_iterator(m_root.Path()), {})), before)
        << "nothing is left beside it";
    EXPECT_EQ(Run({"reg", "export", kKey, "/dev/null"}).exitCode, 0);
    EXPECT_TRUE(fs::is_character_file("/dev/null"));
}

TEST_F(CliLinux, StatusKnowsTheHives) {
    Done({"reg", "add", kKey, "v", "REG_SZ", "x"});
    Done({"reg", "add", "HKCU\\Software\\T", "v", "REG_SZ", "x"});
    const auto hives = Json({"status"})["hives"];
    ASSERT_EQ(hives.size(), 2u) << hives;
    EXPECT_EQ(hives[0]["file"], "machine.db");
    EXPECT_GT(hives[0]["bytes"], 4096);
    EXPECT_TRUE(hives[1]["file"].get<std::string>().starts_with("users/S-1-")) << hives;
}

TEST_F(CliLinux, TheVerbsLieBesideTheProgram) {
    const std::filesystem::path alone = m_root.Path() / "svinfo";
    std::filesystem::copy(OV_SVINFO, alone);
    EXPECT_EQ(RunProgram({alone.string(), "version"}).output, Done({"version"}));
    const CRunResult result = RunProgram({alone.string(), "status"});
    EXPECT_EQ(result.exitCode, 5);
    EXPECT_TRUE(result.errors.starts_with("svinfo: load the verbs: ")) << result.errors;
}

// Deeper than the stack that it is given: every walk keeps its way on the heap.
TEST_F(CliLinux, ADeepTreeIsWalkedAndDeleted) {
    const auto run = [this](std::vector<std::string> args) {
        const std::vector<std::string> shell = {"/bin/sh", "-c",     "ulimit -s 512 && exec \"$@\"", "sh",
                                                OV_SVINFO, "--root", m_root.Path().string()};
        args.insert(args.begin(), shell.begin(), shell.end());
        return RunProgram(args, {});
    };
    std::string path = "HKEY_LOCAL_MACHINE\\SOFTWARE\\Policies\\Orvantis";
    for (int level = 0; level < 3'000; ++level) path += "\\a";
    EXPECT_EQ(Run({"reg", "import", Write("f.reg", kHeader + "[" + path + "]\r\n\"v\"=dword:1\r\n")}).exitCode, 0);
    EXPECT_EQ(run({"list"}).exitCode, 0);
    EXPECT_EQ(run({"reg", "delete", "HKLM\\SOFTWARE\\Policies"}).exitCode, 0);
    EXPECT_EQ(Run({"list"}).exitCode, 1);
}

std::string PolicyFile(DWORD number) {
    const auto byte = [number](int shift) { return static_cast<BYTE>(number >> shift); };
    return WritePolFile(
        {{W("Software\\Policies\\Orvantis"), W("A"), REG_DWORD, {byte(0), byte(8), byte(16), byte(24)}, 0}});
}

TEST_F(CliLinux, AWatchTellsAPolicyChangeOfAnotherProcess) {
    ASSERT_EQ(Run({"gpupdate", Write("0.pol", PolicyFile(0))}).exitCode, 0);
    auto watching = std::async(std::launch::async, [this] {
        return Run({"watch", "a", "A", "--once", "--timeout", "30", "--json"});
    });
    // Nobody knows when it has begun to listen, so the policy goes on changing.
    for (DWORD number = 1; watching.wait_for(std::chrono::milliseconds(50)) != std::future_status::ready; ++number) {
        ASSERT_EQ(Run({"gpupdate", "-q", Write("1.pol", PolicyFile(number))}).exitCode, 0);
    }
    const CRunResult result = watching.get();
    EXPECT_EQ(result.exitCode, 0) << result.errors;
    const auto line = nlohmann::json::parse(result.output);
    EXPECT_EQ(line["item"]["name"], "A");
    EXPECT_EQ(line["item"]["state"], "managed");
    EXPECT_EQ(line["old"]["value"].get<int>() + 1, line["item"]["value"].get<int>());
    EXPECT_EQ(Run({"watch", "--timeout", "0.05", "-q"}).exitCode, 1) << "nothing came";
    EXPECT_NE(Json({"status"})["lastSignal"], nullptr);
}

TEST_F(CliLinux, AUsersPolicyGoesIntoTheirHive) {
    if (geteuid() != 0) GTEST_SKIP() << "only root writes another user's policy";
    EXPECT_EQ(Run({"gpupdate", "--user", "nobody", Write("u.pol", PolicyFile(5))}).exitCode, 0);
    const passwd* nobody = getpwnam("nobody");
    ASSERT_TRUE(nobody);
    const std::string key = "HKU\\S-1-22-1-" + std::to_string(nobody->pw_uid) + "\\Software\\Policies\\Orvantis";
    EXPECT_EQ(Done({"reg", "query", key, "A"}), "A\tREG_DWORD\t5\n");
    EXPECT_EQ(Run({"list"}).exitCode, 1) << "it is no policy of the machine's";
}

}  // namespace
