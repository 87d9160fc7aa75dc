// A trace output that keeps what it is given, and a computer with trace settings.
#pragma once

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "diagnostics/TraceConfig.h"
#include "diagnostics/TraceScope.h"
#include "support/Registry.h"
#include "support/TestRoot.h"

struct TraceEntry {
    DWORD threadId;
    char tag;
    std::string text;
};

// Owned by the engine; the entries are the test's. Write is called with TraceLock held.
class CRecordingOutput final : public OVTraceNS::COutput {
  public:
    explicit CRecordingOutput(std::vector<TraceEntry>& entries) : m_entries(entries) {}

    void Write(OVTraceNS::TraceRecord* record, DWORD size, OVTraceNS::CTraceScope* scope) noexcept override {
        EXPECT_EQ(size, sizeof *record + record->length);
        EXPECT_NE(scope, nullptr);
        const auto* text = reinterpret_cast<const char*>(record + 1);
        m_entries.push_back({record->threadId, static_cast<char>(record->tag), {text, record->length}});
    }

  private:
    std::vector<TraceEntry>& m_entries;
};

class TraceTest : public RootTest {
  protected:
    static constexpr LPCWSTR kKey = W("SOFTWARE\\Orvantis\\Tracing");

    void SetUp() override { Restart(); }
    // What the test still lets go of traces into nothing.
    void TearDown() override { OVTraceNS::RestartTracing(std::make_unique<OVTraceNS::CNoOutput>()); }

    // The engine as it is when the module was just loaded, but for the output.
    void Restart() { OVTraceNS::RestartTracing(std::make_unique<CRecordingOutput>(m_entries)); }

    void Set(LPCWSTR name, DWORD value) { testreg::PutDword(kKey, name, value); }
    void TraceOn(DWORD verbosity = 0) {
        Set(W("DoTrace"), 1);
        Set(W("Verbosity"), verbosity);
    }
    // As if 30 seconds had passed.
    static void ReadAgain() { OVTraceNS::theTraceState.nextCheckTick = 0; }

    // The records since the last call in one line, "T" and "t" left out: ">name U'text' E'-1 ' <".
    std::string Told() {
        std::string line;
        for (const TraceEntry& entry : m_entries) {
            if (entry.tag == 't' || entry.tag == 'T') continue;
            if (!line.empty()) line += ' ';
            line += entry.tag;
            if (entry.tag == '>') line += entry.text;
            if (entry.tag != '>' && entry.tag != '<') line += '\'' + entry.text + '\'';
        }
        m_entries.clear();
        return line;
    }

    std::vector<TraceEntry> m_entries;
};
