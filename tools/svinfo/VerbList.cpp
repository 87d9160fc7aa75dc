// list: the items of the store in key order, and with --all those of the local levels and what is hidden.
#include <map>
#include <memory>
#include <nlohmann/json.hpp>

#include "store/PolicyNames.h"
#include "svinfo/Items.h"
#include "svinfo/LocalItems.h"
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
    LPCWSTR key;       // below HKEY_LOCAL_MACHINE
    CItem item;
};

// By name, each with what the levels hold, the strongest first.
using CHoldings = std::map<wstr, std::vector<CHeld>, CNameLess>;

bool HasPrefix(const wstr& name, const wstr& prefix) noexcept {
    return name.size() >= prefix.size() &&
           CompareNames(wstr_view(name).substr(0, prefix.size()), wstr_view(prefix)) == 0;
}

void Add(CHoldings& holdings, const wstr& name, const char* kind, LPCWSTR key, const CPolicyValue& value,
         HRESULT result) {
    CItem item(name);
    item.Copy(value.Raw(), result);
    holdings[name].push_back({kind, key, std::move(item)});
}

CHoldings Collect(const wstr& prefix, bool all) {
    CHoldings holdings;
    const CPolicyMap managed = CStoreView().ManagedItems();
    for (std::size_t rank = 0; rank < managed.Size(); ++rank) {
        const CPolicyItem& item = managed.At(rank);
        if (!HasPrefix(item.name, prefix)) continue;
        Add(holdings, item.name, "group-policy", W("SOFTWARE\\Policies\\Orvantis"), item.value, S_OK);
    }
    if (!all) return holdings;
    for (const LocalLevel level : {LocalLevel::Local, LocalLevel::Default}) {
        for (const wstr& name : LocalItemNames(level)) {
            if (!HasPrefix(name, prefix)) continue;
            const std::optional<CPolicyValue> value = ReadLocalItem(level, name);
            const char* kind = level == LocalLevel::Local ? "local" : "default";
            if (value) Add(holdings, name, kind, LocalLevelKey(level), *value, S_FALSE);
        }
    }
    return holdings;
}

std::string KeyText(const CHeld& held) {
    return "HKEY_LOCAL_MACHINE\\" + ToUtf8(held.key);
}

json AnswerOf(const CHoldings& holdings, bool all) {
    json answer = JsonAnswer();
    answer["items"] = json::array();
    for (const auto& [name, levels] : holdings) {
        json item = ItemJson(levels[0].item);
        if (all) {
            item["origin"] = {{"kind", levels[0].kind}, {"path", KeyText(levels[0])}};
            item["hidden"] = json::array();
            for (std::size_t i = 1; i < levels.size(); ++i) {
                item["hidden"].push_back({{"kind", levels[i].kind},
                                          {"path", KeyText(levels[i])},
                                          {"type", levels[i].item.TypeName()},
                                          {"value", levels[i].item.Json()}});
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
