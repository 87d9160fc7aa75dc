// svinfo as scripts see it: a process, its output, its exit code, on a computer of the test's own.
#pragma once

#include <filesystem>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <optional>

#include "support/RunProgram.h"
#include "support/TestRoot.h"

// Where the programs lie, found out before any test goes to a folder of its own, or to another drive.
inline const std::filesystem::path kPrograms = std::filesystem::absolute(OV_SVINFO).parent_path();

class CliTest : public RootTest {
  protected:
    // Runs svinfo on this test's root.
    CRunResult Run(std::vector<std::string> args) { return RunAt(m_root.Path().string(), std::move(args)); }

    CRunResult RunAt(const std::string& root, std::vector<std::string> args) {
        args.insert(args.begin(), {OV_SVINFO, "--root", root});
        return RunProgram(args, {{"NO_COLOR", ""}});
    }

    // Runs it, expects it to do what was asked without a word on standard error, and gives what it printed.
    std::string Done(std::vector<std::string> args) {
        const std::string verb = args.at(0);
        const CRunResult result = Run(std::move(args));
        EXPECT_EQ(result.exitCode, 0) << verb << ": " << result.errors;
        EXPECT_EQ(result.errors, "") << verb;
        return result.output;
    }

    nlohmann::ordered_json Json(std::vector<std::string> args) {
        args.push_back("--json");
        const CRunResult result = Run(std::move(args));
        auto answer = nlohmann::ordered_json::parse(result.output, nullptr, false);
        EXPECT_TRUE(answer.is_object()) << result.output << result.errors;
        EXPECT_EQ(answer.value("schema", 0), 1);
        return answer;
    }

    // A file beside the root's own.
    std::string Write(const std::string& name, const std::string& bytes) {
        const std::filesystem::path path = m_root.Path() / name;
        std::ofstream(path, std::ios::binary) << bytes;
        return path.string();
    }

    static std::string Read(const std::string& path) {
        std::ifstream in(path, std::ios::binary);
        return {std::istreambuf_iterator<char>(in), {}};
    }

    void ImportSample() {
        const CRunResult result = Run({"reg", "import", OV_SAMPLES "/machine.reg"});
        ASSERT_EQ(result.exitCode, 0) << result.errors;
    }
};

inline const std::string kPolicies = "HKLM\\SOFTWARE\\Orvantis\\Policies";
inline const std::string kHeader = "Windows Registry Editor Version 5.00\r\n\r\n";
