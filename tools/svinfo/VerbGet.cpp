// get: values as the component answers them.
#include <algorithm>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>

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
std::string Hint(const CItem& item, const std::vector<wstr>& names) {
    std::vector<std::string> known;
    for (const wstr& name : names) {
        if (CompareNames(wstr_view(name), wstr_view(item.Name())) == 0) {
            return "; what the registry holds under this name is of a wrong type or damaged";
        }
        known.push_back(ToUtf8(name));
    }
    return Suggestion(ToUtf8(item.Name()), known);
}

// Why there is no value: for every item without one, and for the local ones that were not wanted.
void TellMissing(COutput& output, const CItem& item, const std::vector<wstr>& known) {
    std::string line = "svinfo: " + EscapeControls(ToUtf8(item.Name())) + ": ";
    if (SUCCEEDED(item.Result())) {
        output.Problem(line + "only a local value");
        return;
    }
    line += ResultText(item.Result());
    if (item.State() == ItemState::Absent) line += Hint(item, known);
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
    for (const CItem& item : items) worst = std::max(worst, ExitCodeOf(item, options.managedOnly));
    if (worst == ExitCode::Ok) return worst;

    // To the component a registry that cannot be read holds nothing. Here that is no answer.
    std::vector<wstr> known;
    std::optional<CCommandFailure> unreadable;
    try {
        known = LocalItemNames(options.defaultOnly ? LocalLevel::Default : LocalLevel::Both);
    } catch (const CCommandFailure& failure) {
        unreadable = failure;
    }
    for (const CItem& item : items) {
        if (ExitCodeOf(item, options.managedOnly) != ExitCode::Ok) TellMissing(output, item, known);
    }
    if (unreadable) throw *unreadable;
    return worst;
}

}  // namespace

CAction DefineGet(CArguments& arguments) {
    const auto options = std::make_shared<CGetOptions>();
    arguments.Required("NAME", options->names);
    arguments.Flag("--default", options->defaultOnly);
    arguments.Flag("--managed-only", options->managedOnly);
    return [options](COutput& output) { return Get(*options, output); };
}
