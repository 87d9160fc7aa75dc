// explain: why an item has the value that it has.
#include <memory>
#include <nlohmann/json.hpp>

#include "svinfo/Levels.h"
#include "svinfo/StoreView.h"
#include "svinfo/Suggest.h"
#include "svinfo/Text.h"
#include "svinfo/Verb.h"

namespace {

std::string JoinedLines(const CItem& item) {
    std::string text;
    for (const std::string& line : item.Lines()) text += (text.empty() ? "" : ", ") + line;
    return text;
}

CTable TableOf(const std::vector<CLevel>& levels) {
    CTable table{{"STATE", "LEVEL", "HOLDS", "WHERE", "WHY"}, {}};
    for (const CLevel& level : levels) {
        const Tone tone = ToneOf(level.state);
        const Tone rest = tone == Tone::Faint ? Tone::Faint : Tone::Plain;
        table.rows.push_back({{LevelStateName(level.state), tone},
                              {level.kind, rest},
                              {JoinedLines(level.held), level.state == LevelState::kWon ? Tone::Strong : rest},
                              {PlaceText(level.place), rest},
                              {level.why, rest}});
    }
    return table;
}

json LevelJson(const CLevel& level) {
    json out = OriginJson(level.kind, level.place);
    out["column"] = level.place.column;
    out["state"] = LevelStateName(level.state);
    out["type"] = level.held.TypeName();
    out["value"] = level.held.Json();
    out["why"] = level.why;
    return out;
}

json AnswerOf(const CItem& item, const std::vector<CLevel>& levels) {
    json answer = JsonAnswer();
    answer["item"] = ItemJson(item);
    const CLevel* const winner = WinnerOf(levels);
    answer["item"]["origin"] = winner ? OriginJson(winner->kind, winner->place) : json(nullptr);
    answer["item"]["hidden"] = json::array();
    answer["levels"] = json::array();
    for (const CLevel& level : levels) {
        answer["levels"].push_back(LevelJson(level));
        if (level.state != LevelState::kHidden) continue;
        json hidden = OriginJson(level.kind, level.place);
        hidden["type"] = level.held.TypeName();
        hidden["value"] = level.held.Json();
        answer["item"]["hidden"].push_back(std::move(hidden));
    }
    return answer;
}

// "ServerName = x", then where that comes from.
void Tell(const CItem& item, const std::vector<CLevel>& levels, COutput& output) {
    const CLevel* const winner = WinnerOf(levels);
    std::string line = EscapeControls(ToUtf8(item.Name()));
    if (SUCCEEDED(item.Result())) {
        line += " = " + JoinedLines(item) + "  (" + StateName(item.State());
        if (winner) line += ", from " + std::string(winner->kind);
        line += ")";
    } else {
        line += ": " + ResultText(item.Result());
    }
    output.Note(line);
    output.Table(TableOf(levels));
}

// The nearest name that some level has.
std::string HintFor(const wstr& name, const CSourceLedger& ledger) {
    std::vector<std::string> known;
    for (const wstr& local : LocalItemNames(LocalLevel::Both)) known.push_back(ToUtf8(local));
    for (const CSourceEntry& entry : ledger.Sources()) {
        for (const CDelivery& delivery : entry.deliveries) known.push_back(ToUtf8(delivery.item.name));
    }
    return Suggestion(ToUtf8(name), known);
}

ExitCode Explain(const std::string& argument, COutput& output) {
    const wstr asked = ItemNameArgument(argument);
    const wstr name = ReduceName(asked.c_str());
    CSourceLedger ledger;
    const CStoreView view(&ledger);
    const std::vector<CItem> items = AskItems(view.Info(), {name}, OV_QUERY);
    const std::vector<CLevel> levels = LevelsOf(name, ledger, view);
    if (output.Style().json) {
        output.Json(AnswerOf(items[0], levels));
    } else {
        Tell(items[0], levels, output);
    }
    if (SUCCEEDED(items[0].Result())) return ExitCode::Ok;
    if (items[0].State() != ItemState::Absent) return ExitCode::Failed;
    const std::string hint = HintFor(name, ledger);
    if (!hint.empty()) output.Problem("svinfo: " + EscapeControls(ToUtf8(name)) + ": no such item" + hint);
    return ExitCode::No;
}

}  // namespace

CAction DefineExplain(CArguments& arguments) {
    const auto name = std::make_shared<std::string>();
    arguments.Required("NAME", *name);
    return [name](COutput& output) { return Explain(*name, output); };
}
