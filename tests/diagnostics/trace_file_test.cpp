// The trace file: what it is called, its head, its records, and who shares it.
#include "diagnostics/TraceFile.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <thread>

#include "DecodeTrace.h"
#include "RecordingOutput.h"
#include "diagnostics/TraceCipher.h"
#include "diagnostics/TraceFileName.h"
#include "support/Document.h"

namespace {

using namespace OVTraceNS;
namespace fs = std::filesystem;

TEST(TraceCipher, TextsAsAnotherProgramWritesThem) {
    const std::pair<std::string, std::vector<BYTE>> rows[] = {
        {"", {}},
        {"a", {0xb9}},
        {"CServer", {0x9b, 0xca, 0x7c, 0x85, 0x86, 0x9e, 0xa6}},
        {"12:34:56", {0xe9, 0xab, 0x23, 0xc4, 0xc4, 0xc1, 0xe1, 0x11}},
        {"CServerInfo::", {0x9b, 0xca, 0x7c, 0x85, 0x86, 0x9e, 0xa6, 0x6e, 0x84, 0xc0, 0xc3, 0xbd, 0x76}},
        {"\xD0\x96 and 33 bytes of text, no more!",
         {0x08, 0x0f, 0x39, 0x96, 0x9e, 0x9f, 0xf4, 0x14, 0x70, 0xfa, 0xf8, 0xe6, 0x86, 0xd8, 0x22, 0xa1, 0xc1,
          0x77, 0x71, 0x3e, 0xdf, 0x85, 0xdf, 0xd6, 0xd5, 0xf0, 0xd4, 0x4e, 0x26, 0x95, 0x48, 0xe4, 0x4e}},
    };
    for (const auto& [text, cipher] : rows) {
        std::string made = text;
        EncipherTraceText(made.data(), made.size());
        EXPECT_EQ(made, std::string(cipher.begin(), cipher.end())) << text;
    }
    for (std::size_t length = 0; length <= 399; ++length) {
        std::string text(length, '\0');
        for (std::size_t i = 0; i < length; ++i) text[i] = static_cast<char>(i * 7 + length);
        std::string made = text;
        EncipherTraceText(made.data(), length);
        std::string plainly = made;
        DecipherTraceText(made.data(), length);
        EXPECT_EQ(made, text) << length;
        DecipherPlainly(plainly);
        EXPECT_EQ(plainly, text) << length;
    }
}

class TraceFile : public TraceTest {
  protected:
    void SetUp() override { OVTraceNS::RestartTracing(nullptr); }

    void SetText(LPCWSTR name, const wstr& text) { testreg::PutString(kKey, name, text); }
    // As a module that was just loaded traces: one scope with a message.
    static void TraceSomething() {
        RestartTracing(nullptr);
        CTraceScope scope("scope", 0);
        scope.Print("%ls", W("text"));
        scope.Result("", E_ACCESSDENIED);
    }
    static std::string NameNow() {
        CRegistryKey key;
        key.Open(HKEY_LOCAL_MACHINE, kKey, KEY_READ);
        WCHAR path[MAX_PATH];
        return BuildTraceFileName(key, path) ? Narrow(path) : "none";
    }
    // The records without their times, as Told has them.
    static std::string Records(const DecodedTrace& trace) {
        std::string line;
        for (const DecodedRecord& record : trace.records) {
            if (record.tag != 't' && record.tag != 'T') line += record.tag + ("'" + record.text) + "' ";
        }
        return line;
    }
    std::string File(const char* name) const { return (m_root.Path() / name).string(); }
};

TEST(TraceFileName, PartsOfPaths) {
    const struct {
        LPCWSTR path, directory, base, extension;
    } rows[] = {{W("C:\\Suite\\OvSvInfo.dll"), W("C:\\Suite\\"), W("OvSvInfo"), W(".dll")},
                {W("/usr/lib/a.b/OvSvInfo.so"), W("/usr/lib/a.b/"), W("OvSvInfo"), W(".so")},
                {W("/usr/bin.d/host"), W("/usr/bin.d/"), W("host"), W("")},
                {W("two.dots.exe"), W(""), W("two.dots"), W(".exe")},
                {W(".hidden"), W(""), W(""), W(".hidden")},
                {W(""), W(""), W(""), W("")}};
    for (const auto& row : rows) {
        const CPathParts parts = SplitPath(row.path);
        EXPECT_EQ(parts.directory, row.directory);
        EXPECT_EQ(parts.base, row.base);
        EXPECT_EQ(parts.extension, row.extension);
    }
}

// Here the module is the program itself, which has no trace settings of its own.
TEST_F(TraceFile, NamesAndSettings) {
    WCHAR own[MAX_PATH];
    GetModuleFileNameW(nullptr, own, MAX_PATH);
    const CPathParts parts = SplitPath(own);
    DWORD session = 0;
    ProcessIdToSessionId(GetCurrentProcessId(), &session);
    const std::string leaf =
        Narrow(wstr(parts.base).append(W(".")).append(parts.base).append(parts.extension).c_str()) + ".x64." +
        std::to_string(session) + ".trc3";
    const std::string folder = Narrow(WidePath(m_root.Path()).c_str());
    const std::string beside = Narrow(wstr(parts.directory).c_str()) + leaf;
    const auto text = [](const wstr& value) {
        return std::vector<WCHAR>(value.c_str(), value.c_str() + value.size() + 1);
    };
    const auto wide = [](const std::string& value) { return wstr(value.begin(), value.end()); };
    struct Value {
        LPCWSTR name;
        DWORD type;
        std::vector<WCHAR> units;
        std::size_t bytes = ~std::size_t{0};
    };
    const wstr path = wide(folder);
    const struct {
        const char* why;
        std::vector<Value> values;
        std::string name;
    } rows[] = {
        {"beside the module", {}, beside},
        {"a file",
         {{W("FileName"), REG_SZ, text(W("x.trc"))}, {W("TracePath"), REG_SZ, text(path + W("/no"))}},
         "x.trc"},
        {"not expanded", {{W("FileName"), REG_EXPAND_SZ, text(W("%X%"))}}, "%X%"},
        {"an empty file name", {{W("FileName"), REG_SZ, text(W(""))}}, ""},
        {"a file name without a byte", {{W("FileName"), REG_SZ, {}, 0}}, ""},
        {"no NUL", {{W("FileName"), REG_SZ, {W('x')}}}, beside},
        {"an odd size", {{W("FileName"), REG_SZ, text(W("x")), 3}}, beside},
        {"a number", {{W("FileName"), REG_DWORD, {1, 0}}}, beside},
        {"too long for a setting", {{W("FileName"), REG_SZ, text(wstr(260, W('x')))}}, beside},
        {"the longest", {{W("FileName"), REG_SZ, text(wstr(259, W('x')))}}, std::string(259, 'x')},
        {"a folder", {{W("TracePath"), REG_SZ, text(path + W("/made/deep"))}}, folder + "/made/deep\\" + leaf},
        {"with its end", {{W("TracePath"), REG_SZ, text(path + W("/made2/"))}}, folder + "/made2/" + leaf},
        {"a folder that cannot be made",
         {{W("TracePath"), REG_SZ, text(path + W("/machine.db/x"))}},
         folder + "/machine.db/x\\" + leaf},
        {"a folder too long", {{W("TracePath"), REG_SZ, text(wstr(250, W('x')))}}, "none"},
    };
    for (const auto& row : rows) {
        testreg::Make(kKey);
        for (const Value& value : row.values) {
            testreg::PutBytes(kKey, value.name, value.type, value.units.data(),
                              std::min(value.bytes, value.units.size() * sizeof(WCHAR)));
        }
        EXPECT_EQ(NameNow(), row.name) << row.why;
        CRegistryKey key;
        key.Open(HKEY_LOCAL_MACHINE, kKey, KEY_ALL_ACCESS);
        for (const Value& value : row.values) RegDeleteValueW(key.Get(), value.name);
    }
    EXPECT_TRUE(fs::is_directory(m_root.Path() / "made" / "deep"));
    EXPECT_TRUE(fs::is_directory(m_root.Path() / "made2"));
    EXPECT_FALSE(fs::exists(m_root.Path() / "no")) << "a whole name has no use for a folder";
}

TEST_F(TraceFile, HeadAndRecords) {
    TraceOn();
    SetText(W("FileName"), WidePath(m_root.Path() / "t.trc3"));
    TraceSomething();
    RestartTracing(nullptr);
    const DecodedTrace trace = DecodeTrace(File("t.trc3"));
    EXPECT_TRUE(trace.whole);
    EXPECT_EQ(Records(trace), ">'scope' U'text' E'-2147024891 ' <'' ");
    ASSERT_GE(trace.records.size(), 2u);
    EXPECT_EQ(trace.records[0].tag, 't');
    EXPECT_EQ(trace.records[0].text.size(), 8u);
    EXPECT_EQ(trace.records[1].tag, 'T');
    EXPECT_EQ(trace.records[0].thread, GetCurrentThreadId());
    const char* const kLines[] = {"trace3",
                                  "Compiled: ",
                                  "File location: ",
                                  "OS: ",
                                  "ServicePack: ",
                                  "Machine name: ",
                                  "Trace Ver: 3.0.1",
                                  "FileVersion: ",
                                  "No Ellarium products found",
                                  "installation: NETWORK",
                                  "",
                                  "."};
    ASSERT_EQ(trace.head.size(), std::size(kLines));
    for (std::size_t i = 0; i < std::size(kLines); ++i) EXPECT_EQ(trace.head[i].find(kLines[i]), 0u) << trace.head[i];
    EXPECT_EQ(trace.head[10].size(), std::string("11/23/2026 20:31:12.763").size()) << trace.head[10];
}

TEST_F(TraceFile, ProductsAndInstallation) {
    constexpr LPCWSTR kProducts = W("SOFTWARE\\Orvantis\\Products\\");
    TraceOn();
    SetText(W("FileName"), WidePath(m_root.Path() / "t.trc3"));
    testreg::PutString((wstr(kProducts) + W("A")).c_str(), W("Version"), W("1.2"));
    testreg::PutBytes((wstr(kProducts) + W("B")).c_str(), W("Version"), REG_BINARY, "7.8", 4);
    testreg::Make((wstr(kProducts) + W("C")).c_str());
    testreg::PutString((wstr(kProducts) + wstr(240, W('d'))).c_str(), W("Version"), W("1"));
    testreg::PutDword(W("SOFTWARE\\Policies\\Orvantis"), W("WorkWithoutNetwork"), 1);
    TraceSomething();
    RestartTracing(nullptr);
    const DecodedTrace trace = DecodeTrace(File("t.trc3"));
    ASSERT_EQ(trace.head.size(), 15u);
    EXPECT_EQ(trace.head[8], "Product: A; Version: 1.2");
    EXPECT_EQ(trace.head[9], "Product: B; Version: 7.8");
    EXPECT_EQ(trace.head[10], "Product: C; Version: ERROR(0x2)");
    EXPECT_EQ(trace.head[11], ("Product: " + std::string(240, 'd') + "; Version: 1").substr(0, 257))
        << "cut, with its end";
    EXPECT_EQ(trace.head[12], "installation: LOCAL");
    EXPECT_EQ(Records(trace), ">'scope' U'text' E'-2147024891 ' <'' ");
}

// Appended to, begun anew, or not there.
TEST_F(TraceFile, ASecondRun) {
    TraceOn();
    SetText(W("FileName"), WidePath(m_root.Path() / "t.trc3"));
    const std::string once = ">'scope' U'text' E'-2147024891 ' <'' ";
    const struct {
        DWORD anew;
        bool emptied;
        const char* records;
    } rows[] = {{0, false, "O"}, {0, false, "ONO"}, {1, false, "O"}, {0, true, "O"}, {2, false, "O"}};
    for (const auto& row : rows) {
        if (row.emptied) std::ofstream(File("t.trc3"), std::ios::trunc);
        Set(W("NewFileAlways"), row.anew);
        TraceSomething();
        RestartTracing(nullptr);
        const DecodedTrace trace = DecodeTrace(File("t.trc3"));
        EXPECT_TRUE(trace.whole);
        EXPECT_EQ(trace.head.size(), 12u) << "one head";
        std::string runs;
        for (std::size_t i = 0; i < trace.records.size(); ++i) {
            const DecodedRecord& record = trace.records[i];
            if (record.tag == 'N') {
                EXPECT_EQ(record.text.size(), 10u) << record.text;
                EXPECT_EQ(trace.records[i + 1].tag, 't') << "the record stands before the first time";
                runs += 'N';
            }
            if (record.tag == '>') runs += 'O';
        }
        EXPECT_EQ(runs, row.records) << row.anew;
    }
}

// Nothing that happens to the file is noticed by what is traced, not even by its last error.
TEST_F(TraceFile, WhatGoesWrong) {
    TraceOn();
    fs::create_directory(m_root.Path() / "folder.trc3");
    const wstr names[] = {W(""), WidePath(m_root.Path() / "folder.trc3"), WidePath(m_root.Path() / "none" / "x.trc3"),
                          W("?*|<>")};
    for (const wstr& name : names) {
        SetText(W("FileName"), name);
        SetLastError(77);
        TraceSomething();
        EXPECT_EQ(GetLastError(), 77u);
    }
    // The folder goes while the file is open, where the system lets it.
    fs::create_directory(m_root.Path() / "gone");
    SetText(W("FileName"), WidePath(m_root.Path() / "gone" / "t.trc3"));
    TraceSomething();
    std::error_code ignored;
    fs::remove_all(m_root.Path() / "gone", ignored);
    SetLastError(77);
    {
        CTraceScope scope("later", 0);
        scope.Print("text");
    }
    EXPECT_EQ(GetLastError(), 77u);
    RestartTracing(nullptr);
}

TEST_F(TraceFile, WhoeverSharesItLosesNothing) {
    const char* asked = std::getenv("OV_TRACE_RECORDS");  // of each thread
    const int records = asked ? std::atoi(asked) : 500;
    constexpr int kThreads = 8;
    TraceOn();
    SetText(W("FileName"), WidePath(m_root.Path() / "t.trc3"));
    std::vector<std::thread> threads;
    std::vector<DWORD> ids(kThreads);
    for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back([&ids, i, records] {
            ids[static_cast<std::size_t>(i)] = GetCurrentThreadId();
            for (int n = 0; n < records; ++n) {
                CTraceScope scope("work", 0);
                scope.Print("%d of thread %d%hs", n, i, std::string(static_cast<std::size_t>(n % 50), '.').c_str());
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    RestartTracing(nullptr);
    const DecodedTrace trace = DecodeTrace(File("t.trc3"));
    EXPECT_TRUE(trace.whole);
    std::vector<int> next(kThreads, 0), depth(kThreads, 0);
    for (const DecodedRecord& record : trace.records) {
        const auto who = static_cast<std::size_t>(std::find(ids.begin(), ids.end(), record.thread) - ids.begin());
        ASSERT_LT(who, ids.size());
        depth[who] += record.tag == '>' ? 1 : record.tag == '<' ? -1 : 0;
        ASSERT_TRUE(depth[who] == 0 || depth[who] == 1);
        if (record.tag != 'U') continue;
        const int n = next[who]++;
        ASSERT_EQ(record.text, std::to_string(n) + " of thread " + std::to_string(who) +
                                   std::string(static_cast<std::size_t>(n % 50), '.'));
    }
    EXPECT_EQ(next, std::vector<int>(kThreads, records));
}

}  // namespace
