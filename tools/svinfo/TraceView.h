// A trace as lines to read: time, thread, and what happened, indented by how deep the thread is in scopes.
#pragma once

#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "svinfo/TraceReader.h"

// What is shown of a trace.
struct CTraceFilter {
    std::optional<DWORD> thread;
    TraceTime since = kNoTime;

    bool Passes(const CTraceRecord& record) const noexcept {
        return (!thread || *thread == record.thread) && (since == kNoTime || record.time >= since);
    }
};

// "20:31", "20:31:12.5", "2026-11-23" or both with a blank or a T between; a time alone is one of the day of `begun`.
// Nothing for anything else.
std::optional<TraceTime> ParseTraceTime(const std::string& text, TraceTime begun);

// The failure in a record: its code; nothing when it is not told.
std::optional<HRESULT> TraceFailure(std::string_view text) noexcept;

// Where each thread of one file is.
class CTraceThreads {
  public:
    struct CThread {
        std::size_t depth = 0;           // of the scopes that were entered
        std::vector<std::string> names;  // of them; as many as depth, the rest is kept for later
    };

    // Follows a record; gives how deep it stands. `name` is that of the scope that is left, empty if it was not seen.
    std::size_t Follow(const CTraceRecord& record, std::string_view& name);

  private:
    CThread& Of(DWORD id);

    std::unordered_map<DWORD, CThread> m_threads;
    DWORD m_lastId = 0;
    CThread* m_last = nullptr;
};

// Appends records of one or several files to a text, a line each.
class CTraceLines {
  public:
    explicit CTraceLines(bool json, bool numbered) noexcept : m_json(json), m_numbered(numbered) {}

    // `depth` and `name` as CTraceThreads has them; `file` counts from 1.
    void Append(const CTraceRecord& record, std::size_t file, std::size_t depth, std::string_view name,
                std::string& out);

  private:
    void AppendJson(const CTraceRecord& record, std::size_t file, std::size_t depth, std::string_view name,
                    std::string& out) const;

    bool m_json;
    bool m_numbered;
    TraceTime m_day = kNoTime;  // that was shown last
};
