// What scopes write, and when they write nothing.
#include "diagnostics/TraceScope.h"

#include <gtest/gtest.h>

#include <map>
#include <stdexcept>
#include <thread>

#include "RecordingOutput.h"

namespace {

using OVFormat::RuntimeFormat;
using OVTraceNS::CTraceScope;

constexpr HRESULT kFacility9 = 0x00090312;

class TraceScopes : public TraceTest {};

// One scope of that level that says everything it can.
void RunScope(LONG level) {
    CTraceScope scope("scope", level);
    scope.Print("message");
    scope.Result("", E_FAIL);
}

TEST_F(TraceScopes, TellEntryMessagesResultAndExit) {
    TraceOn();
    RunScope(0);
    EXPECT_EQ(Told(), ">scope U'message' E'-2147467259 ' <");
}

TEST_F(TraceScopes, AreSilentByTheSettings) {
    const struct {
        const char* why;
        std::vector<std::pair<LPCWSTR, DWORD>> settings;
        LONG level;
        const char* expected;
    } kRows[] = {
        {"off", {{W("DoTrace"), 0}}, 0, ""},
        {"profiling leaves the flow and the failures",
         {{W("DoTrace"), 1}, {W("DoProfiling"), 1}},
         0,
         ">scope E'-2147467259 ' <"},
        {"a level above the verbosity leaves the failures", {{W("DoTrace"), 1}}, 10, "E'-2147467259 '"},
        {"a verbosity below the level by one", {{W("DoTrace"), 1}, {W("Verbosity"), 9}}, 10, "E'-2147467259 '"},
        {"a level that the verbosity names",
         {{W("DoTrace"), 1}, {W("Verbosity"), 10}},
         10,
         ">scope U'message' E'-2147467259 ' <"},
        {"a negative level counts as its positive",
         {{W("DoTrace"), 1}, {W("Verbosity"), 10}},
         -10,
         ">scope U'message' E'-2147467259 ' <"},
        {"a negative level above the verbosity", {{W("DoTrace"), 1}, {W("Verbosity"), 9}}, -10, "E'-2147467259 '"},
        {"a verbosity below zero silences level 0",
         {{W("DoTrace"), 1}, {W("Verbosity"), 0xFFFFFFFF}},
         0,
         "E'-2147467259 '"},
        {"the smallest level has a positive, too",
         {{W("DoTrace"), 1}, {W("Verbosity"), 0x7FFFFFFF}},
         -2147483647 - 1,
         "E'-2147467259 '"},
    };
    for (const auto& row : kRows) {
        CTestRoot root;
        Restart();
        for (const auto& [name, value] : row.settings) Set(name, value);
        RunScope(row.level);
        EXPECT_EQ(Told(), row.expected) << row.why;
    }
    CTestRoot root;
    Restart();
    TraceOn();
    testreg::PutDword(W("SOFTWARE\\Orvantis\\Tracing\\Components"), W("SomeOtherModule"), 0);
    RunScope(0);
    EXPECT_EQ(Told(), "E'-2147467259 '") << "a module that is filtered out";
}

TEST_F(TraceScopes, ResultsAreFailuresAndFacility9) {
    TraceOn(0);
    const struct {
        const char* why;
        HRESULT hr;
        const char* text;
        std::string expected;
    } kRows[] = {
        {"success", S_OK, "", ""},
        {"a local value", S_FALSE, "", ""},
        {"a success of another facility", 0x00070001, "", ""},
        {"a success of facility 9", kFacility9, "", "E'590610 '"},
        {"a failure", E_ACCESSDENIED, "", "E'-2147024891 '"},
        {"a null text", E_ACCESSDENIED, nullptr, "E'-2147024891 '"},
        {"a text", E_ACCESSDENIED, "why", "E'-2147024891 why'"},
    };
    CTraceScope scope("scope", 99);  // above the verbosity
    for (const auto& row : kRows) {
        scope.Result(row.text, row.hr);
        EXPECT_EQ(Told(), row.expected) << row.why;
    }
}

TEST_F(TraceScopes, Names) {
    TraceOn();
    const struct {
        const char* why;
        std::string name;
        std::string expected;
    } kRows[] = {
        {"99 bytes are whole", std::string(99, 'n'), std::string(99, 'n')},
        {"100 bytes are cut", std::string(99, 'n') + "X", std::string(99, 'n')},
        {"empty", "", ""},
    };
    for (const auto& row : kRows) {
        { CTraceScope scope(row.name.c_str(), 0); }
        EXPECT_EQ(Told(), ">" + row.expected + " <") << row.why;
    }
    { CTraceScope scope(nullptr, 0); }
    EXPECT_EQ(Told(), ">???? <");
}

TEST_F(TraceScopes, Messages) {
    TraceOn();
    const WCHAR wide[] = {0x00E9, 0x4E2D, 0xD83D, 0xDE00, 0};
    CTraceScope scope("scope", 0);
    Told();

    scope.Print("%s|%c|%ls", "narrow", 'n', W("wide"));
    EXPECT_EQ(Told(), "U'narrow|n|wide'") << "bare conversions are narrow";
    scope.Print("%5s|%-4s|", W("w"), W("x"));
    EXPECT_EQ(Told(), "U'    w|x   |'") << "those with a width are wide";
    scope.Print("0x%016I64X", 0x1Full);
    EXPECT_EQ(Told(), "U'0x000000000000001F'");
    scope.Print("%ls", wide);
    EXPECT_EQ(Told(), "U'\xC3\xA9\xE4\xB8\xAD\xF0\x9F\x98\x80'") << "UTF-8";
    scope.Print("caf\xE9");
    EXPECT_EQ(Told(), "U'caf\xC3\xA9'") << "the format is in the code page of the thread";
    scope.Print("100%%");
    EXPECT_EQ(Told(), "U'100%'");
    scope.Print("100%%s");
    EXPECT_EQ(Told(), "U'100%hs'") << "the h goes in wherever the two characters stand";
    scope.Print(nullptr);
    EXPECT_EQ(Told(), "U''");
    scope.Print("");
    EXPECT_EQ(Told(), "U''");
}

TEST_F(TraceScopes, LongMessagesAreCut) {
    TraceOn();
    CTraceScope scope("scope", 0);
    Told();
    const wstr text(500, W('x'));
    scope.Print("%ls", text.c_str());
    EXPECT_EQ(Told(), "U'" + std::string(399, 'x') + "'");

    // 200 characters of two bytes: the last one does not fit whole.
    const wstr umlauts(200, WCHAR{0x00E9});
    scope.Print("%ls", umlauts.c_str());
    std::string expected;
    for (int i = 0; i < 199; ++i) expected += "\xC3\xA9";
    EXPECT_EQ(Told(), "U'" + expected + "'");
}

TEST_F(TraceScopes, AFormatThatDoesNotFitIsNoMessage) {
    TraceOn();
    CTraceScope scope("scope", 0);
    Told();
    const std::string fits(399, 'x');
    scope.Print(RuntimeFormat{fits.c_str()});
    EXPECT_EQ(Told(), "U'" + fits + "'");
    const std::string tooLong(400, 'x');
    scope.Print(RuntimeFormat{tooLong.c_str()});
    EXPECT_EQ(Told(), "");
    // Room for the format as it stands, but not for the h of its last conversion.
    const std::string grows = std::string(397, 'x') + "%s";
    scope.Print(RuntimeFormat{grows.c_str()}, "narrow");
    EXPECT_EQ(Told(), "");
    const std::string justGrows = std::string(396, 'x') + "%s";
    scope.Print(RuntimeFormat{justGrows.c_str()}, "narrow");
    EXPECT_EQ(Told(), "U'" + std::string(396, 'x') + "nar'");
}

TEST_F(TraceScopes, CloseWhenAnExceptionPasses) {
    TraceOn();
    try {
        CTraceScope scope("throws", 0);
        throw std::runtime_error("out");
    } catch (const std::runtime_error&) {
    }
    EXPECT_EQ(Told(), ">throws <") << "and no result, which no handler gave";
}

TEST_F(TraceScopes, TheTimeIsToldOnceAMillisecond) {
    TraceOn();
    for (int i = 0; i < 100; ++i) RunScope(0);
    ASSERT_FALSE(m_entries.empty());
    EXPECT_EQ(m_entries[0].tag, 't') << "the date comes before all else";
    std::string last;
    for (const TraceEntry& entry : m_entries) {
        if (entry.tag != 'T') continue;
        EXPECT_NE(entry.text, last);
        last = entry.text;
    }
    EXPECT_FALSE(last.empty());
}

TEST_F(TraceScopes, OfATimeWithoutTracingTellTheirFailureOnly) {
    Set(W("DoTrace"), 0);
    {
        CTraceScope scope("before", 0);
        Set(W("DoTrace"), 1);
        ReadAgain();
        RunScope(0);
        EXPECT_EQ(Told(), ">scope U'message' E'-2147467259 ' <");
        scope.Print("message");
        scope.Result("", E_FAIL);
        EXPECT_EQ(Told(), "E'-2147467259 '");
    }
    EXPECT_EQ(Told(), "");
}

TEST_F(TraceScopes, GoOnUnderNewSettings) {
    TraceOn();
    CTraceScope scope("open", 0);
    Told();
    Set(W("DoProfiling"), 1);
    ReadAgain();
    { CTraceScope inner("inner", 0); }
    scope.Print("message");
    EXPECT_EQ(Told(), ">inner <");
}

TEST_F(TraceScopes, LeaveTheLastErrorAlone) {
    TraceOn();
    SetLastError(4711);
    {
        CTraceScope scope("scope", 0);
        EXPECT_EQ(GetLastError(), 4711u) << "entry, with a reading of the settings";
        const wstr umlauts(500, WCHAR{0x00E9});  // more than the message can hold: the conversion fails
        scope.Print("%ls", umlauts.c_str());
        EXPECT_EQ(GetLastError(), 4711u) << "a message that is cut";
        scope.Result("", E_FAIL);
    }
    EXPECT_EQ(GetLastError(), 4711u) << "exit";
}

TEST_F(TraceScopes, RecordsBearTheThreadThatWritesThem) {
    TraceOn();
    { CTraceScope scope("first", 0); }
    DWORD other = 0;
    std::thread([&] {
        other = GetCurrentThreadId();
        CTraceScope scope("second", 0);
    }).join();
    for (const TraceEntry& entry : m_entries) {
        if (entry.tag != '>') continue;
        EXPECT_EQ(entry.threadId, entry.text == "first" ? GetCurrentThreadId() : other);
    }
    EXPECT_EQ(Told(), ">first < >second <");
}

// While settings change, every record still is whole and every thread's own records stay in order.
TEST_F(TraceScopes, EachThreadsRecordsStayInOrderWhileSettingsChange) {
    TraceOn();
    { CTraceScope scope("warm", 0); }
    Told();
    std::vector<std::thread> threads;
    for (int i = 0; i < 3; ++i) {
        threads.emplace_back([] {
            for (int step = 0; step < 200; ++step) {
                CTraceScope scope("scope", 0);
                scope.Print("%ld", step);
            }
        });
    }
    for (DWORD change = 0; change < 20; ++change) {
        Set(W("DoLog"), change % 2);
        ReadAgain();
    }
    for (std::thread& thread : threads) thread.join();
    std::map<DWORD, std::string> told;
    for (const TraceEntry& entry : m_entries) {
        if (entry.tag != 't' && entry.tag != 'T') told[entry.threadId] += entry.tag + entry.text;
    }
    std::string expected;
    for (int step = 0; step < 200; ++step) expected += ">scopeU" + std::to_string(step) + "<";
    EXPECT_EQ(told.size(), 3u);
    for (const auto& [thread, records] : told) EXPECT_EQ(records, expected);
}

}  // namespace
