// get: values as the component answers them.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <memory>
#include <nlohmann/json.hpp>

#include "store/PolicyNames.h"
#include "svinfo/Host.h"
#include "svinfo/Items.h"
#include "svinfo/LocalItems.h"
#include "svinfo/Suggest.h"
#include "svinfo/Text.h"
#include "svinfo/Verb.h"

namespace {

struct CGetOptions {
    std::vector<std::string> names;
    bool defaultOnly = false;
    bool managedOnly = false;
};

ExitCode ExitCodeOf(const CItem& item, bool managedOnly) noexcept {
    switch (item.State()) {
        case ItemState::Managed:
            return ExitCode::Ok;
        case ItemState::Local:
            return managedOnly ? ExitCode::No : ExitCode::Ok;
        case ItemState::Absent:
            return ExitCode::No;
        case ItemState::Error:
            break;
    }
    return ExitCode::Failed;
}

CTable TableOf(const std::vector<CItem>& items) {
    CTable table{{"NAME", "VALUE", "TYPE", "STATE"}, {}};
    for (const CItem& item : items) {
        std::vector<std::string> lines = item.Lines();
        if (lines.empty()) lines.emplace_back();
        for (const std::string& line : lines) {
            table.rows.push_back({{ToUtf8(item.Name()), Tone::Plain},
                                  {line, Tone::Plain},
                                  {item.TypeName(), Tone::Plain},
                                  {StateName(item.State()), ToneOf(item.State())}});
        }
    }
    return table;
}

// A value that no item can be is passed over by the component like one that is not there.
std::string Hint(const CItem& item, const CGetOptions& options) {
    std::vector<std::string> known;
    for (const wstr& name : LocalItemNames(options.defaultOnly ? LocalLevel::Default : LocalLevel::Both)) {
        if (CompareNames(wstr_view(name), wstr_view(item.Name())) == 0) {
            return "; what the registry holds under this name is of a wrong type or damaged";
        }
        known.push_back(ToUtf8(name));
    }
    return Suggestion(ToUtf8(item.Name()), known);
}

// Why there is no value: for every item without one, and for the local ones that were not wanted.
void TellMissing(COutput& output, const CItem& item, const CGetOptions& options) {
    std::string line = "svinfo: " + EscapeControls(ToUtf8(item.Name())) + ": ";
    if (SUCCEEDED(item.Result())) {
        output.Problem(line + "only a local value");
        return;
    }
    line += ResultText(item.Result());
    if (item.State() == ItemState::Absent) line += Hint(item, options);
    output.Problem(line);
}

ExitCode Get(const CGetOptions& options, COutput& output) {
    std::vector<wstr> names;
    for (const std::string& name : options.names) names.push_back(ItemNameArgument(name));
    const CHost host;
    const std::vector<CItem> items = AskItems(host.Info(), names, options.defaultOnly ? OV_QUERY_DEFAULT : OV_QUERY);

    if (output.Style().json) {
        json answer = JsonAnswer();
        for (const CItem& item : items) answer["items"].push_back(ItemJson(item));
        output.Json(answer);
    } else if (items.size() > 1 || output.Style().verbose) {
        output.Table(TableOf(items));
    } else if (ExitCodeOf(items[0], options.managedOnly) == ExitCode::Ok) {
        for (const std::string& line : items[0].Lines()) output.Line(line);
    }

    ExitCode worst = ExitCode::Ok;
    for (const CItem& item : items) {
        const ExitCode code = ExitCodeOf(item, options.managedOnly);
        if (code != ExitCode::Ok) TellMissing(output, item, options);
        worst = std::max(worst, code);
    }
    return worst;
}

}  // namespace

CAction DefineGet(CLI::App& parser) {
    const auto options = std::make_shared<CGetOptions>();
    parser.add_option("NAME", options->names)->required();
    CLI::Option* defaultOnly = parser.add_flag("--default", options->defaultOnly);
    parser.add_flag("--managed-only", options->managedOnly)->excludes(defaultOnly);
    return [options](COutput& output) { return Get(*options, output); };
}
