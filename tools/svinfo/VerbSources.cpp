// sources: the ledger of what each source gave.
#include <algorithm>
#include <nlohmann/json.hpp>

#include "svinfo/Findings.h"
#include "svinfo/StoreView.h"
#include "svinfo/Text.h"
#include "svinfo/Verb.h"

namespace {

Tone ToneOf(SourceState state) noexcept {
    switch (state) {
        case SourceState::kFound:
            return Tone::Good;
        case SourceState::kDamaged:
            return Tone::Bad;
        case SourceState::kEmpty:
            return Tone::Notice;
        default:
            return Tone::Faint;
    }
}

CTable TableOf(const std::vector<CSourceEntry>& sources) {
    CTable table{{"SOURCE", "STATE", "ITEMS", "IN FORCE", "FINDINGS", "WHERE"}, {}};
    for (const CSourceEntry& entry : sources) {
        const Tone rest = ToneOf(entry.state) == Tone::Faint ? Tone::Faint : Tone::Plain;
        table.rows.push_back({{entry.source->kind, rest},
                              {SourceStateName(entry.state), ToneOf(entry.state)},
                              {std::to_string(entry.deliveries.size()), rest},
                              {std::to_string(entry.KeptCount()), rest},
                              {std::to_string(entry.findings.size()), entry.findings.empty() ? rest : Tone::Notice},
                              {entry.path.empty() ? "(no data root)" : entry.path, rest}});
    }
    return table;
}

json AnswerOf(const std::vector<CSourceEntry>& sources) {
    json answer = JsonAnswer();
    answer["sources"] = json::array();
    for (const CSourceEntry& entry : sources) {
        json source = {{"kind", entry.source->kind},
                       {"path", entry.path},
                       {"state", SourceStateName(entry.state)},
                       {"items", entry.deliveries.size()},
                       {"inForce", entry.KeptCount()}};
        AddFindings(source, entry);
        answer["sources"].push_back(std::move(source));
    }
    return answer;
}

ExitCode Sources(COutput& output) {
    CSourceLedger ledger;
    const CStoreView view(&ledger);
    const std::vector<CSourceEntry>& sources = ledger.Sources();
    if (output.Style().json) {
        output.Json(AnswerOf(sources));
    } else {
        output.Table(TableOf(sources));
        for (const CSourceEntry& entry : sources) TellFindings(entry, output);
    }
    const bool sound = std::none_of(sources.begin(), sources.end(), HasFindings);
    return sound ? ExitCode::Ok : ExitCode::No;
}

}  // namespace

CAction DefineSources(CArguments&) {
    return [](COutput& output) { return Sources(output); };
}
