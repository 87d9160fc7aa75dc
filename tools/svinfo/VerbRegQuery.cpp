// reg query: one key, or one value of it.
#include <memory>
#include <nlohmann/json.hpp>

#include "svinfo/RegData.h"
#include "svinfo/RegTree.h"
#include "svinfo/Text.h"
#include "svinfo/Verb.h"

namespace {

struct CQueryOptions {
    std::string key;
    std::optional<std::string> value;
};

CRegKeyContent Content(const CRegPath& key, const CQueryOptions& options) {
    if (!options.value) return ReadRegKey(key);
    const wstr name = ValueArgument(*options.value);
    std::optional<CRegEntry> entry = ReadRegValue(key, name);
    if (!entry) throw RegistryFailureOf("read " + ValueText(key, name), ERROR_FILE_NOT_FOUND);
    CRegKeyContent content;
    content.entries.push_back(*std::move(entry));
    return content;
}

ExitCode Query(const CQueryOptions& options, COutput& output) {
    const CRegPath key = KeyArgument(options.key);
    const CRegKeyContent content = Content(key, options);
    if (output.Style().json) {
        json answer = JsonAnswer();
        answer["key"] = ToUtf8(key.Full());
        answer["values"] = json::array();
        for (const CRegEntry& entry : content.entries) answer["values"].push_back(RegEntryJson(entry));
        if (!options.value) {
            answer["keys"] = json::array();
            for (const wstr& name : content.subkeys) answer["keys"].push_back(ToUtf8(name));
        }
        output.Json(answer);
        return ExitCode::Ok;
    }
    CTable table{{"NAME", "TYPE", "DATA"}, {}};
    for (const CRegEntry& entry : content.entries) {
        table.rows.push_back({{entry.name.empty() ? "@" : ToUtf8(entry.name), Tone::Plain},
                              {RegTypeText(entry.type), Tone::Plain},
                              {RegDataText(entry), Tone::Plain}});
    }
    for (const wstr& name : content.subkeys) {
        table.rows.push_back({{ToUtf8(name), Tone::Strong}, {"key", Tone::Plain}, {"", Tone::Plain}});
    }
    output.Table(table);
    return ExitCode::Ok;
}

}  // namespace

CAction DefineRegQuery(CArguments& arguments) {
    const auto options = std::make_shared<CQueryOptions>();
    arguments.Required("KEY", options->key);
    arguments.Optional("VALUE", options->value);
    return [options](COutput& output) { return Query(*options, output); };
}
