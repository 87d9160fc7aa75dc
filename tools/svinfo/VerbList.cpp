// list: the items of the store in key order, and with --all those of the local levels and what is hidden.
#include <map>
#include <memory>
#include <nlohmann/json.hpp>

#include "svinfo/Levels.h"
#include "svinfo/StoreView.h"
#include "svinfo/Text.h"
#include "svinfo/Verb.h"

namespace {

struct CListOptions {
    std::string prefix;
    bool all = false;
};

// One level's value of an item.
struct CHeld {
    const char* kind;  // of the source
    CPlace place;
    CItem item;
};

// By name, each with what the levels hold, the strongest first.
using CHoldings = std::map<wstr, std::vector<CHeld>, CNameLess>;

bool HasPrefix(const wstr& name, const wstr& prefix) noexcept {
    return name.size() >= prefix.size() &&
           CompareNames(wstr_view(name).substr(0, prefix.size()), wstr_view(prefix)) == 0;
}

void Add(CHoldings& holdings, const wstr& name, const char* kind, CPlace place, const CPolicyValue& value,
         HRESULT result) {
    CItem item(name);
    item.Copy(value.Raw(), result);
    holdings[name].push_back({kind, std::move(place), std::move(item)});
}

CHoldings Collect(const wstr& prefix, bool all) {
    CHoldings holdings;
    CSourceLedger ledger;
    const CStoreView view(&ledger);
    for (const AuthPolicyName& policy : kAuthPolicyNames) {
        const wstr name = policy.name;
        if (!policy.userScoped || !HasPrefix(name, prefix)) continue;
        CLevel level = UserLevelOf(name, view);
        if (level.state == LevelState::kWon) holdings[name].push_back({level.kind, level.place, std::move(level.held)});
    }
    for (const CSourceEntry& entry : ledger.Sources()) {
        for (const CDelivery& delivery : entry.deliveries) {
            const wstr& name = delivery.item.name;
            if (!HasPrefix(name, prefix) || (!all && (!delivery.kept || holdings.contains(name)))) continue;
            Add(holdings, name, entry.source->kind, delivery.place, delivery.item.value, S_OK);
        }
    }
    if (!all) return holdings;
    for (const wstr& name : LocalItemNames(LocalLevel::Both)) {
        if (!HasPrefix(name, prefix)) continue;
        for (CLevel& level : LocalLevelsOf(name, holdings.contains(name))) {
            if (level.state != LevelState::kWon && level.state != LevelState::kHidden) continue;
            holdings[name].push_back({level.kind, std::move(level.place), std::move(level.held)});
        }
    }
    return holdings;
}

json AnswerOf(const CHoldings& holdings, bool all) {
    json answer = JsonAnswer();
    answer["items"] = json::array();
    for (const auto& [name, levels] : holdings) {
        json item = ItemJson(levels[0].item);
        if (all) {
            item["origin"] = OriginJson(levels[0].kind, levels[0].place);
            item["hidden"] = json::array();
            for (std::size_t i = 1; i < levels.size(); ++i) {
                json hidden = OriginJson(levels[i].kind, levels[i].place);
                hidden["type"] = levels[i].item.TypeName();
                hidden["value"] = levels[i].item.Json();
                item["hidden"].push_back(std::move(hidden));
            }
        }
        answer["items"].push_back(std::move(item));
    }
    return answer;
}

CTable TableOf(const CHoldings& holdings, bool all) {
    CTable table{{"NAME", "VALUE", "TYPE", "STATE"}, {}};
    if (all) table.header.emplace_back("FROM");
    for (const auto& [name, levels] : holdings) {
        for (std::size_t i = 0; i < levels.size(); ++i) {
            const CItem& item = levels[i].item;
            const bool hidden = i > 0;
            const Tone tone = hidden ? Tone::Faint : Tone::Plain;
            std::vector<std::string> lines = item.Lines();
            if (lines.empty()) lines.emplace_back();
            for (const std::string& line : lines) {
                std::vector<CCell> row = {
                    {ToUtf8(item.Name()), tone},
                    {line, tone},
                    {item.TypeName(), tone},
                    {hidden ? "hidden" : StateName(item.State()), hidden ? Tone::Faint : ToneOf(item.State())}};
                if (all) row.push_back({levels[i].kind, tone});
                table.rows.push_back(std::move(row));
            }
        }
    }
    return table;
}

ExitCode List(const CListOptions& options, COutput& output) {
    const CHoldings holdings = Collect(ItemNameArgument(options.prefix), options.all);
    if (output.Style().json) {
        output.Json(AnswerOf(holdings, options.all));
    } else {
        output.Table(TableOf(holdings, options.all));
    }
    return holdings.empty() ? ExitCode::No : ExitCode::Ok;
}

}  // namespace

CAction DefineList(CArguments& arguments) {
    const auto options = std::make_shared<CListOptions>();
    arguments.Optional("PREFIX", options->prefix);
    arguments.Flag("--all", options->all);
    return [options](COutput& output) { return List(*options, output); };
}
