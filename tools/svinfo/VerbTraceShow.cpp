// trace show, trace summary: what stands in trace files.
#include <chrono>
#include <memory>
#include <nlohmann/json.hpp>
#include <thread>

#include "svinfo/FileIo.h"
#include "svinfo/Text.h"
#include "svinfo/TraceSummary.h"
#include "svinfo/TraceView.h"
#include "svinfo/Verb.h"

namespace {

constexpr std::size_t kWriteAt = 64 * 1024;  // bytes of lines

// A file that is shown, and the record that is its next.
struct CShownFile {
    explicit CShownFile(const std::string& path) : reader(std::make_unique<CTraceReader>(path)) { Step(); }
    void Step() { hasRecord = reader->Next(record); }

    std::unique_ptr<CTraceReader> reader;
    CTraceThreads threads;
    CTraceRecord record = {};
    bool hasRecord = false;
};

struct CShowArguments {
    std::vector<std::string> files;
    std::optional<std::string> thread, since;
    bool follow = false;
};

class CShow {
  public:
    CShow(const CShowArguments& arguments, COutput& output)
        : m_output(output), m_lines(output.Style().json, arguments.files.size() > 1) {
        for (const std::string& path : arguments.files) m_files.emplace_back(path);
        if (arguments.thread) m_filter.thread = ThreadFrom(*arguments.thread);
        if (arguments.since) m_filter.since = SinceFrom(*arguments.since);
        for (std::size_t i = 0; i < m_files.size(); ++i) ShowHead(i);
    }

    // All that is there, in the order of time; where times are equal, in that of the files.
    void ShowRecords() {
        for (;;) {
            std::size_t next = m_files.size();
            for (std::size_t i = 0; i < m_files.size(); ++i) {
                if (!m_files[i].hasRecord) continue;
                if (next == m_files.size() || m_files[i].record.time < m_files[next].record.time) next = i;
            }
            if (next == m_files.size()) break;
            ShowRecord(next);
            m_files[next].Step();
            if (m_text.size() > kWriteAt) Write();
        }
        Write();
    }

    // And what is still to come, until somebody ends it.
    void Follow() {
        for (;;) {
            for (std::size_t i = 0; i < m_files.size(); ++i) {
                CShownFile& file = m_files[i];
                if (!file.reader->Fault().empty()) continue;
                if (!file.reader->WasBegunAnew()) {
                    file.Step();
                } else {
                    Reopen(i);
                }
            }
            ShowRecords();
            m_output.Finish();  // whoever reads may have gone
            if (TellFaults(false)) return;
            std::this_thread::sleep_for(std::chrono::milliseconds(200));
        }
    }

    // Files that are damaged or, when no more is to come, cut. True when all are.
    bool TellFaults(bool ended) {
        std::size_t bad = 0;
        for (CShownFile& file : m_files) {
            const std::string fault = ended ? file.reader->CutFault() : file.reader->Fault();
            if (fault.empty()) continue;
            ++bad;
            m_hasFaults = true;
            if (ended) m_output.Problem(EscapeControls(file.reader->Path()) + ": " + fault);
        }
        return bad == m_files.size();
    }
    bool HasFaults() const noexcept { return m_hasFaults; }

  private:
    static DWORD ThreadFrom(const std::string& text) {
        std::size_t end = 0;
        try {
            const unsigned long number = std::stoul(text, &end, 0);
            if (end == text.size() && text[0] != '-' && number <= MAXDWORD) return static_cast<DWORD>(number);
        } catch (const std::exception&) {
        }
        throw CCommandFailure(ExitCode::Usage, "--thread: found " + Quoted(text) + ", expected a thread's number");
    }
    TraceTime SinceFrom(const std::string& text) const {
        TraceTime begun = kNoTime;
        for (const CShownFile& file : m_files) {
            if (begun == kNoTime || (file.reader->Begun() != kNoTime && file.reader->Begun() < begun)) {
                begun = file.reader->Begun();
            }
        }
        if (const std::optional<TraceTime> time = ParseTraceTime(text, begun)) return *time;
        throw CCommandFailure(ExitCode::Usage, "--since: found " + Quoted(text) +
                                                   ", expected 20:31, 20:31:12.5, 2026-11-23 or '2026-11-23 20:31'");
    }

    void ShowHead(std::size_t at) {
        const CTraceReader& reader = *m_files[at].reader;
        if (m_output.Style().json) {
            json line = JsonAnswer();
            line["file"] = at + 1;
            line["path"] = reader.Path();
            line["head"] = reader.Head();
            m_text += line.dump(-1, ' ', false, json::error_handler_t::replace) + "\n";
            return;
        }
        if (m_files.size() > 1) m_text += std::to_string(at + 1) + "  " + EscapeControls(reader.Path()) + "\n";
        for (const std::string& line : reader.Head()) m_text += EscapeControls(line) + "\n";
        m_text += "\n";
    }
    void ShowRecord(std::size_t at) {
        CShownFile& file = m_files[at];
        std::string_view name;
        const std::size_t depth = file.threads.Follow(file.record, name);
        if (m_filter.Passes(file.record)) m_lines.Append(file.record, at + 1, depth, name, m_text);
    }
    void Reopen(std::size_t at) {
        try {
            m_files[at] = CShownFile(m_files[at].reader->Path());
            ShowHead(at);
        } catch (const CCommandFailure&) {
            return;  // its new head is not whole yet
        }
    }
    void Write() {
        m_output.Bytes(m_text);
        m_text.clear();
    }

    COutput& m_output;
    std::vector<CShownFile> m_files;
    CTraceFilter m_filter;
    CTraceLines m_lines;
    std::string m_text;
    bool m_hasFaults = false;
};

ExitCode Show(const CShowArguments& arguments, COutput& output) {
    CShow show(arguments, output);
    show.ShowRecords();
    if (arguments.follow) show.Follow();
    show.TellFaults(true);
    return show.HasFaults() ? ExitCode::BadInput : ExitCode::Ok;
}

json SummaryJson(const CTraceSummary& summary) {
    json answer = JsonAnswer();
    answer["stillOpen"] = summary.StillOpen();
    answer["scopes"] = json::array();
    for (const CTraceSummary::CScope& scope : summary.Scopes()) {
        answer["scopes"].push_back({{"name", scope.name},
                                    {"calls", scope.calls},
                                    {"failures", scope.failures},
                                    {"totalMs", scope.total},
                                    {"selfMs", scope.self}});
    }
    return answer;
}

ExitCode Summarize(const std::vector<std::string>& files, const std::string& folded, COutput& output) {
    CTraceSummary summary;
    bool damaged = false;
    for (const std::string& path : files) {
        CTraceReader reader(path);
        for (CTraceRecord record; reader.Next(record);) summary.Add(record);
        summary.EndFile();
        if (reader.CutFault().empty()) continue;
        damaged = true;
        output.Problem(EscapeControls(path) + ": " + reader.CutFault());
    }
    if (!folded.empty()) WriteWholeFile(folded, summary.Folded());
    if (output.Style().json) {
        output.Json(SummaryJson(summary));
    } else {
        CTable table{{"SCOPE", "CALLS", "FAILURES", "TOTAL MS", "SELF MS"}, {}};
        for (const CTraceSummary::CScope& scope : summary.Scopes()) {
            table.rows.push_back({{scope.name, Tone::Strong},
                                  {std::to_string(scope.calls), Tone::Plain},
                                  {std::to_string(scope.failures), scope.failures ? Tone::Bad : Tone::Faint},
                                  {std::to_string(scope.total), Tone::Plain},
                                  {std::to_string(scope.self), Tone::Plain}});
        }
        output.Table(table);
        if (summary.StillOpen()) {
            output.Note(CountText(summary.StillOpen(), "scope was", "scopes were") +
                        " still open at the end; they are counted up to it");
        }
    }
    return damaged ? ExitCode::BadInput : ExitCode::Ok;
}

}  // namespace

CAction DefineTraceShow(CArguments& arguments) {
    const auto given = std::make_shared<CShowArguments>();
    arguments.Required("FILE", given->files);
    arguments.Optional("--thread", given->thread);
    arguments.Optional("--since", given->since);
    arguments.Flag("--follow", given->follow);
    return [given](COutput& output) { return Show(*given, output); };
}

CAction DefineTraceSummary(CArguments& arguments) {
    const auto files = std::make_shared<std::vector<std::string>>();
    const auto folded = std::make_shared<std::string>();
    arguments.Required("FILE", *files);
    arguments.Optional("--folded", *folded);
    return [files, folded](COutput& output) { return Summarize(*files, *folded, output); };
}
