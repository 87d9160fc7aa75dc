// help and version.
#include <memory>
#include <nlohmann/json.hpp>

#include "Version.h"
#include "svinfo/Suggest.h"
#include "svinfo/Text.h"
#include "svinfo/Verb.h"

namespace {

constexpr const char* kOptions =
    "Options, before or behind the verb:\n"
    "  --root DIR                  work on the computer whose state lies in DIR, instead of $OV_ROOT or\n"
    "                              this computer's own\n"
    "  --json                      one JSON object instead of text\n"
    "  --color auto|always|never   colors; auto heeds NO_COLOR and asks whether the output is a terminal\n"
    "  --as USER, --session N      ask as that user, or in that session; for root\n"
    "  -q                          no summaries, only data and what went wrong\n"
    "  -v                          more: get prints its table for a single name, too\n"
    "  -h, --help                  this page, or that of the verb\n"
    "  --                          what follows is no option, whatever it looks like\n";

constexpr const char* kExitCodes =
    "Exit codes: 0 yes, found, done; 1 no, absent; 2 wrong usage; 3 access denied; 4 an input file is bad, nothing "
    "was\n"
    "changed; 5 the component or the registry failed.\n";

bool BelongsTo(const CVerb& verb, const std::string& family) {
    return std::string(verb.name).starts_with(family + " ");
}

std::string Padded(std::string text, std::size_t width) {
    text.append(text.size() < width ? width - text.size() : 1, ' ');
    return text;
}

std::string OverviewText() {
    constexpr std::size_t kSynopsisWidth = 46;
    std::string text =
        "svinfo: what policy holds on this computer, for this user, in this session\n\n"
        "Usage: svinfo [OPTIONS] VERB [ARGUMENTS]\n\n"
        "Verbs:\n";
    for (const CVerb& verb : Verbs()) {
        const std::string synopsis = std::string(verb.name) + (*verb.arguments ? " " : "") + verb.arguments;
        text += "  " + Padded(synopsis, kSynopsisWidth) + verb.summary + "\n";
    }
    return text + "\n" + kOptions + "\n" + kExitCodes;
}

ExitCode Help(const std::vector<std::string>& words, COutput& output) {
    std::string verb;
    for (const std::string& word : words) verb += (verb.empty() ? "" : " ") + word;
    if (verb.empty() && output.Style().json) {
        json answer = JsonAnswer();
        for (const CVerb& known : Verbs()) {
            answer["verbs"].push_back(
                {{"name", known.name}, {"arguments", known.arguments}, {"summary", known.summary}});
        }
        output.Json(answer);
        return ExitCode::Ok;
    }
    if (HelpText(verb).empty()) {
        std::vector<std::string> names;
        for (const CVerb& known : Verbs()) names.emplace_back(known.name);
        throw CCommandFailure(ExitCode::Usage, "help: unknown verb " + Quoted(verb) + Suggestion(verb, names));
    }
    ShowHelp(verb, output);
    return ExitCode::Ok;
}

ExitCode Version(COutput& output) {
    if (output.Style().json) {
        json answer = JsonAnswer();
        answer["version"] = kVersion;
        output.Json(answer);
    } else {
        output.Line(kVersion);
    }
    return ExitCode::Ok;
}

}  // namespace

std::string UsageLine(const CVerb& verb) {
    return std::string("usage: svinfo ") + verb.name + (*verb.arguments ? " " : "") + verb.arguments;
}

std::string HelpText(const std::string& name) {
    if (name.empty()) return OverviewText();
    std::string text;
    for (const CVerb& verb : Verbs()) {
        if (verb.name != name && !BelongsTo(verb, name)) continue;
        if (!text.empty()) text += "\n";
        text += UsageLine(verb) + "\n\n" + verb.summary + "\n" + verb.details;
    }
    return text;
}

void ShowHelp(const std::string& verb, COutput& output) {
    const std::string text = HelpText(verb);
    if (!output.Style().json) {
        output.Bytes(text);
        return;
    }
    json answer = JsonAnswer();
    answer["help"] = text;
    output.Json(answer);
}

CAction DefineHelp(CArguments& arguments) {
    const auto words = std::make_shared<std::vector<std::string>>();
    arguments.Optional("VERB", *words);
    return [words](COutput& output) { return Help(*words, output); };
}

CAction DefineVersion(CArguments&) {
    return [](COutput& output) { return Version(output); };
}
