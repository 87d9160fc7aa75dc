// Trace files as the tool reads them, and tracing as it turns it on.
#include <gtest/gtest.h>

#include "cli_fixture.h"
#include "diagnostics/TraceCipher.h"
#include "svinfo/Failure.h"
#include "svinfo/TraceSummary.h"
#include "svinfo/TraceView.h"

namespace {

constexpr const char* kHead = "trace3\r\nMachine name: box\r\n11/23/2026 20:31:12.763\r\n.\r\n";

std::string Record(DWORD thread, char tag, std::string text = "") {
    OVTraceNS::EncipherTraceText(text.data(), text.size());
    std::string bytes(reinterpret_cast<const char*>(&thread), sizeof thread);
    bytes += tag;
    bytes += static_cast<char>(text.size());
    bytes += static_cast<char>(text.size() >> 8);
    return bytes + text;
}
std::string At(const char* time) {
    return Record(1, 'T', time);
}

class CliTrace : public CliTest {
  protected:
    std::string Write(const char* name, const std::string& bytes) {
        const std::filesystem::path path = m_root.Path() / name;
        std::ofstream(path, std::ios::binary) << bytes;
        return path.string();
    }
    // Whole lines of `show` behind the head.
    std::string Lines(std::vector<std::string> args) {
        args.insert(args.begin(), {"trace", "show"});
        const std::string all = Done(std::move(args));
        return all.substr(all.find("\n\n") + 2);
    }
};

TEST_F(CliTrace, WhatIsShown) {
    const std::string file = Write(
        "a.trc3", kHead + Record(1, 't', "11/23/26") + At("20:31:12.763") + Record(1, '>', "Outer") +
                      Record(22, '>', "Other") + Record(1, '>', "Inner") + Record(1, 'U', "text \xD0\x96 \x1B[1m") +
                      Record(1, 'E', "-2147024891 ") + At("20:31:12.800") + Record(1, '<') + Record(1, '<') +
                      Record(1, '<') + Record(1, 'U') + Record(1, 't', "11/24/26") + At("00:00:00.001") +
                      Record(22, 'U', "next day") + Record(1, 'N', "11-25-2026") + Record(1, 't', "11/25/26") +
                      At("09:00:00.000") + Record(1, '>', "Outer"));
    EXPECT_EQ(Lines({file}),
              "2026-11-23\n"
              "20:31:12.763        1  > Outer\n"
              "20:31:12.763       22  > Other\n"
              "20:31:12.763        1    > Inner\n"
              "20:31:12.763        1      text \xD0\x96 \\x1B[1m\n"
              "20:31:12.763        1      ! 0x80070005 access is denied\n"
              "20:31:12.800        1    < Inner\n"
              "20:31:12.800        1  < Outer\n"
              "20:31:12.800        1  < (entered before)\n"
              "20:31:12.800        1  \n"
              "2026-11-24\n"
              "00:00:00.001       22    next day\n"
              "00:00:00.001        1  -- another process goes on here, 11-25-2026\n"
              "2026-11-25\n"
              "09:00:00.000        1  > Outer\n");
    EXPECT_EQ(Lines({file, "--thread", "22"}),
              "2026-11-23\n20:31:12.763       22  > Other\n2026-11-24\n00:00:00.001       22    next day\n");
    EXPECT_EQ(Lines({file, "--thread", "0x16", "--since", "2026-11-24"}),
              "2026-11-24\n00:00:00.001       22    next day\n");
    EXPECT_EQ(Lines({file, "--since", "20:31:12.8", "--thread", "1"}).substr(0, 40),
              "2026-11-23\n20:31:12.800        1    < In");
    const std::string json = Done({"trace", "show", file, "--json"});
    EXPECT_EQ(json.substr(0, json.find('\n')),
              "{\"schema\":1,\"file\":1,\"path\":" + nlohmann::json(file).dump() +
                  ",\"head\":[\"trace3\",\"Machine name: box\",\"11/23/2026 20:31:12.763\"]}");
    EXPECT_NE(json.find("\n{\"schema\":1,\"file\":1,\"time\":\"2026-11-23T20:31:12.763\",\"thread\":1,\"depth\":2,"
                        "\"kind\":\"failure\",\"scope\":null,"
                        "\"text\":\"access is denied\",\"hr\":\"0x80070005\"}\n"),
              json.npos);
    EXPECT_NE(json.find("\"depth\":1,\"kind\":\"leave\",\"scope\":\"Inner\",\"text\":null,\"hr\":null}\n"), json.npos);
}

TEST_F(CliTrace, SeveralFilesByTime) {
    const auto file = [&](const char* name, const char* first, const char* second) {
        return Write(name, kHead + Record(1, 't', "11/23/26") + At(first) + Record(1, 'U', "one") + At(second) +
                               Record(1, 'U', "two"));
    };
    const std::string a = file("a.trc3", "10:00:00.000", "10:00:00.200"),
                      b = file("b.trc3", "10:00:00.100", "10:00:00.200");
    const std::string all = Done({"trace", "show", a, b});
    EXPECT_EQ(all.substr(all.find("2026-11-23\n")),
              "2026-11-23\n"
              "10:00:00.000  1        1  one\n"
              "10:00:00.100  2        1  one\n"
              "10:00:00.200  1        1  two\n"
              "10:00:00.200  2        1  two\n");
    EXPECT_EQ(all.find("1  " + a + "\ntrace3\n"), 0u);
}

// Cut at each byte: what is whole is shown, and the rest is told; never more, never a crash.
TEST_F(CliTrace, CutAndDamaged) {
    const std::string records[] = {Record(1, 't', "11/23/26"), At("20:31:12.763"), Record(1, '>', "A"),
                                   Record(1, 'U', std::string(300, 'x')), Record(1, '<')};
    std::string whole = kHead;
    std::vector<std::size_t> ends = {whole.size()};
    for (const std::string& record : records) {
        whole += record;
        ends.push_back(whole.size());
    }
    const std::size_t headEnd = ends[0];
    for (std::size_t size = 0; size < whole.size(); ++size) {
        const std::string file = Write("cut.trc3", whole.substr(0, size));
        if (size < headEnd) {
            EXPECT_THROW(CTraceReader{file}, CCommandFailure) << size;
            continue;
        }
        CTraceReader reader(file);
        std::size_t shown = 0, due = 0;
        for (CTraceRecord record; reader.Next(record);) ++shown;
        for (std::size_t i = 3; i < ends.size(); ++i) due += ends[i] <= size;
        EXPECT_EQ(shown, due) << size;
        const bool atEnd = std::find(ends.begin(), ends.end(), size) != ends.end();
        EXPECT_EQ(reader.CutFault().empty(), atEnd) << size;
        // More comes, and the reader goes on.
        std::ofstream(file, std::ios::binary | std::ios::app) << whole.substr(size);
        for (CTraceRecord record; reader.Next(record);) ++shown;
        EXPECT_EQ(shown, 3u) << size;
        EXPECT_EQ(reader.CutFault(), "");
    }
    const std::string first = kHead + Record(1, '>', "A");
    const std::string place = std::to_string(first.size());
    const std::pair<std::string, std::string> rows[] = {
        {Record(1, '?', "x"), "at byte " + place + ": found the tag 3f, expected one of tT><UEN"},
        {Record(1, '<', "x"), "at byte " + place + ": found a text of 1 bytes, expected at most 0"},
        {Record(1, 'U', std::string(400, 'x')),
         "at byte " + place + ": found a text of 400 bytes, expected at most 399"},
        {Record(1, 'T', "20:31:99.763"),
         "at byte " + place + ": found a time that is none, expected a date or a time of day"},
        {Record(1, 't', "13/31/26"),
         "at byte " + place + ": found a time that is none, expected a date or a time of day"},
        {"half", "at byte " + place + ": found 4 bytes and the end, expected a whole record"},
    };
    for (const auto& [bytes, fault] : rows) {
        const std::string file = Write("bad.trc3", first + bytes);
        const CRunResult result = Run({"trace", "show", file});
        EXPECT_EQ(result.exitCode, 4);
        EXPECT_NE(result.output.find("        1  > A\n"), std::string::npos) << fault;
        EXPECT_EQ(result.errors, file + ": " + fault + "\n");
        EXPECT_EQ(Run({"trace", "summary", file}).exitCode, 4);
    }
    for (const char* content : {"", "trace4\r\n.\r\n", "trace3\r\nno end"}) {
        EXPECT_EQ(Run({"trace", "show", Write("none.trc3", content)}).exitCode, 4) << content;
    }
    EXPECT_EQ(Run({"trace", "show", "none at all"}).exitCode, 4);
    for (const auto& option :
         {std::pair("--thread", "x"), {"--thread", "-1"}, {"--since", "25:00"}, {"--since", "2026-02-30"}}) {
        EXPECT_EQ(Run({"trace", "show", Write("a.trc3", whole), option.first, option.second}).exitCode, 2)
            << option.second;
    }
}

TEST_F(CliTrace, WhereTheTimeWent) {
    const std::string file = Write(
        "a.trc3", kHead + Record(1, 't', "11/23/26") + At("10:00:00.000") + Record(1, '>', "A") + Record(2, '>', "B") +
                      At("10:00:00.010") + Record(1, '>', "B") + At("10:00:00.030") + Record(1, 'E', "-1 ") +
                      Record(1, '>', "A") + At("10:00:00.035") + Record(1, '<') + Record(1, '<') + At("10:00:00.050") +
                      Record(1, '<') + Record(1, 'E', "-1 ") + At("10:00:01.000") + Record(3, '<'));
    EXPECT_EQ(Run({"trace", "summary", file}).output,
              "B\t2\t1\t1025\t1020\n"
              "A\t2\t0\t50\t30\n"
              "(no scope)\t0\t1\t0\t0\n");
    EXPECT_EQ(Run({"trace", "summary", file}).errors, "1 scope was still open at the end; they are counted up to it\n");
    const std::string folded = (m_root.Path() / "folded").string();
    Run({"trace", "summary", file, "--folded", folded});
    std::ifstream lines(folded);
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(lines), {}), "A 25000\nB 1000000\nA;B 20000\nA;B;A 5000\n");
}

TEST_F(CliTrace, FromOnToOff) {
    const std::string folder = (m_root.Path() / "traces").string();
    EXPECT_EQ(Run({"trace", "status"}).exitCode, 1);
    EXPECT_EQ(Run({"trace", "on", "--verbosity", "x"}).exitCode, 2);
    EXPECT_EQ(Run({"trace", "off", "-q"}).output, "tracing is off\n");
    EXPECT_EQ(Run({"trace", "on", "-q", "--path", folder, "--verbosity", "10"}).output,
              "tracing is on: verbosity 10, files in " + folder + "\n");
    EXPECT_EQ(Run({"get", "A"}).exitCode, 1);
    const auto status = Json({"trace", "status"});
    ASSERT_EQ(status["files"].size(), 1u);
    EXPECT_EQ(status["verbosity"], 10);
    const std::string shown = Done({"trace", "show", status["files"][0]["path"].get<std::string>()});
    std::string version = Done({"version"});
    version.pop_back();
    EXPECT_NE(shown.find("FileVersion: " + version + ".0\n"), shown.npos);
    EXPECT_NE(shown.find("  > CServerInfo::GetInfo\n"), shown.npos);
    EXPECT_NE(shown.find("! 0x80070002 it does not exist\n"), shown.npos);
    EXPECT_NE(shown.find("  < CServerInfo::FinalRelease\n"), shown.npos);
    EXPECT_NE(Run({"trace", "on", "--verbosity", "0"}).errors.find("the verbosity alone"), std::string::npos);
    EXPECT_EQ(Run({"trace", "off", "-q"}).exitCode, 0);
    EXPECT_EQ(Run({"trace", "status"}).exitCode, 1);
}

}  // namespace
