// svinfo status.
#include "cli_fixture.h"
#include "svinfo/LocalItems.h"
#include "svinfo/Text.h"

namespace {

using CliStatus = CliTest;

TEST_F(CliStatus, AComputerWithNothingOnIt) {
    const std::string root = (m_root.Path() / "none").string();
    const CRunResult result = RunAt(root, {"status", "--json"});
    EXPECT_EQ(result.exitCode, 0) << result.errors;
    const auto answer = nlohmann::ordered_json::parse(result.output);
    EXPECT_EQ(answer["root"]["path"], root);
    EXPECT_EQ(answer["root"]["exists"], false);
    EXPECT_EQ(answer["hives"].dump(), "[]");
    EXPECT_EQ(answer["items"].dump(), R"({"local":0,"default":0})");
    EXPECT_EQ(answer["tracing"].dump(), R"({"on":false,"toFile":true,"verbosity":0,"path":null})");
}

TEST_F(CliStatus, TheSample) {
    ImportSample();
    const auto answer = Json({"status"});
    EXPECT_EQ(answer["version"].get<std::string>() + "\n", Done({"version"}));
    EXPECT_EQ(answer["root"]["exists"], true);
    const std::filesystem::path module = answer["module"].get<std::string>();
    EXPECT_TRUE(std::filesystem::is_regular_file(module));
    EXPECT_TRUE(std::filesystem::equivalent(module.parent_path(), kPrograms));
    EXPECT_EQ(answer["items"].dump(), R"({"local":27,"default":12})");
    EXPECT_EQ(answer["tracing"].dump(), R"({"on":false,"toFile":true,"verbosity":2,"path":null})");
    EXPECT_EQ(answer["lastSignal"], nullptr);
    EXPECT_TRUE(Done({"status"}).find("\nlocal items\t27\ndefaults\t12\nlast load\tnumber 1, first-query, ") !=
                std::string::npos);
}

TEST_F(CliStatus, TracingAsItIsSet) {
    const std::string key = "HKLM\\SOFTWARE\\Orvantis\\Tracing";
    const std::string folder = (m_root.Path() / "traces").string();  // made by whoever traces
    const std::string path = R"("path":)" + nlohmann::json(folder).dump() + "}";
    Done({"reg", "add", key, "TracePath", "REG_SZ", folder});  // first: what traces from here on traces there
    Done({"reg", "add", key, "DoTrace", "REG_DWORD", "1"});
    EXPECT_EQ(Json({"status"})["tracing"].dump(), R"({"on":true,"toFile":true,"verbosity":0,)" + path);
    Done({"reg", "add", key, "TraceToFile", "REG_DWORD", "0"});
    Done({"reg", "add", key, "DoTrace", "REG_SZ", "1"});
    EXPECT_EQ(Json({"status"})["tracing"].dump(), R"({"on":false,"toFile":false,"verbosity":0,)" + path)
        << "a value of another type does not count";
}

TEST_F(CliStatus, EachItemCountsOnce) {
    ImportSample();
    std::string names;
    for (const wstr& name : LocalItemNames(LocalLevel::Default)) names += ToUtf8(name) + "\n";
    EXPECT_EQ(names,
              "CommonSettings\\{0F6D2C85-A91B-4E37-8D40-6B5C7E92F318}\\MaxPinRetries\n"
              "CommonSettings\\{B3C9E1A4-52D7-4F0B-9C68-1D7E03A5F246}\\AllowOfflineLogon\n"
              "CommonSettings\\{B3C9E1A4-52D7-4F0B-9C68-1D7E03A5F246}\\SupportUrl\n"
              "DisableCredentials\nKioskRuntimePolicy\nLockTimeout\nLogonPolicy\nPasswordMaxAge\nPasswordMinLength\n"
              "ServerName\nSpareKey\\SpareKeyAllowed\nWelcomeText\n");
    const std::size_t local = LocalItemNames(LocalLevel::Local).size();
    Done({"reg", "add", "HKLM\\SOFTWARE\\Orvantis\\Policies\\AuthenticationPolicies\\logonpolicy", "x", "REG_DWORD",
          "1"});
    Done({"reg", "add", kPolicies, "LOGONPOLICY", "REG_DWORD", "1"});
    EXPECT_EQ(LocalItemNames(LocalLevel::Local).size(), local) << "one policy in all of its forms";
}

}  // namespace
