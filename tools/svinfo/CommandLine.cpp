#include "svinfo/CommandLine.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdlib>
#include <exception>
#include <map>
#include <optional>

#include "svinfo/Caller.h"
#include "svinfo/Host.h"
#include "svinfo/Suggest.h"
#include "svinfo/Text.h"
#include "svinfo/Verb.h"

namespace {

const CVerb kVerbs[] = {
    {"get", "NAME... [--default] [--managed-only]", "values as the component answers them",
     "\nOne NAME prints the bare value and nothing else; several, or -v, a table of name, value, type and state "
     "(managed,\n"
     "local, absent, error). Arrays have one mask a line. A/B/C means A\\B\\C where the whole name has no backslash.\n"
     "  --default        ask for the product's default alone\n"
     "  --managed-only   a local value gives 1, and is not printed bare\n",
     DefineGet},
    {"list", "[PREFIX] [--all]", "managed items in the order of their names",
     "\nPREFIX is the beginning of names, in any case.\n"
     "  --all   the local values and the defaults too, and with each item what it hides\n",
     DefineList},
    {"explain", "NAME", "why an item has its value: every level, and what it holds",
     "\nFrom the strongest level to the weakest: whether it won, is hidden, absent or passed over, its key or file "
     "and\n"
     "line, what it holds, and why it does not count.\n",
     DefineExplain},
    {"sources", "", "what each source of managed policy gave, and what is odd about it",
     "\nItems are what a source delivers; in force is what no stronger source had already. Damage and oddities are "
     "told\n"
     "with line and column; past twenty of a source only with -v. Ends with 1 when there are any.\n",
     DefineSources},
    {"check", "FILE...", "what a policy file would deliver, and every oddity; changes nothing",
     "\nFILE is a settings document, an authentication-policy document or a Registry.pol, as its content tells. Ends "
     "with "
     "1\n"
     "when something is odd, with 4 when a FILE is damaged.\n",
     DefineCheck},
    {"set", "NAME [dword|qword|string|masks] VALUE", "writes a local value, under the component's access check",
     "\nNumbers in decimal or with 0x, masks with commas between them. Without a type: the type the item has, else by "
     "the\n"
     "look of VALUE. Shows what the local key held and what it holds. For administrators; ends with 3 for all others, "
     "with\n"
     "6 when a managed value hides what was written.\n",
     DefineSet},
    {"delete", "NAME", "deletes a local value, under the component's access check",
     "\nShows what the local key held. Ends with 1 when that was nothing, with 3 and 6 as set does.\n", DefineDelete},
    {"events", "", "the audit trail: who changed what from what to what",
     "\nFrom the file that AuditFile of HKLM\\SOFTWARE\\Orvantis\\EventLog names. Ends with 1 when there are no "
     "events.\n",
     DefineEvents},
    {"reload", "", "reads all sources again and tells every process to do so",
     "\nPolicy files are read when a process asks for the first time, and again at each signal: this gives one.\n",
     DefineReload},
    {"copy-workgroup", "[FILE]", "copies the settings of a document into the local key",
     "\nWithout FILE those of PluginData\\OV_WgClient_Data.xml below the data root. What the local key has beside them "
     "stays.\n"
     "Ends with 6 when a managed value hides one that was written.\n",
     DefineCopyWorkgroup},
    {"watch", "[FILTER...] [--once] [--timeout S]", "changes of the managed items as they come",
     "\nShows time, item, what it was, what it is and where that comes from; with --json one object a line. A FILTER "
     "is "
     "an\n"
     "item or a key, which passes all below it. Ends with 0 when something was seen, else with 1.\n"
     "  --once        ends behind the first change, and those that came with it\n"
     "  --timeout S   ends after S seconds\n",
     DefineWatch},
    {"logon-policy", "USER [--explain]", "which credentials apply to a user at logon",
     "\nUSER is an account, DOMAIN\\account, a SID, or Recovery. One mask a line; they are alternatives.\n"
     "  --explain   the road to the list, step by step\n",
     DefineLogonPolicy},
    {"session-policy", "[USER] [--explain]", "which credentials apply in a session",
     "\nWithout USER to the caller in the caller's session: you, or whom --as and --session name.\n"
     "  --explain   the road to the list, step by step\n",
     DefineSessionPolicy},
    {"is-admin", "USER [--explain]", "whether a user is an administrator of this computer",
     "\nEnds with 0 for yes and 1 for no, also when it cannot be found out.\n"
     "  --explain   how that was found out\n",
     DefineIsAdmin},
    {"status", "", "root, hives, module, items, the last load, the cache, tracing", "", DefineStatus},
    {"gpupdate", "FILE... [--user NAME]", "applies Registry.pol files as the machine's or one user's policy",
     "\nWhat the last application set is taken back first; all of it happens or nothing. Then every process that "
     "watches "
     "is\n"
     "told. Of several FILEs later ones stand over earlier ones. Records outside of SOFTWARE\\Policies and "
     "instructions\n"
     "that are not known are passed over and told. A damaged FILE is told with the byte at which it breaks.\n"
     "  --user NAME   the policy of that user: an account or a SID\n",
     DefineGpupdate},
    {"reg import", "FILE", "reads a registration file, all of it or none",
     "\nWhat other registry tools skip in silence is told with its line and column, and skipped as well.\n",
     DefineRegImport},
    {"reg export", "KEY [FILE]", "a key with all below it, as a registration file",
     "\nWithout FILE the same bytes go to standard output.\n", DefineRegExport},
    {"reg query", "KEY [VALUE]", "a key's values and subkeys, or one value", "", DefineRegQuery},
    {"reg add", "KEY VALUE TYPE DATA", "sets a value, and creates its key",
     "\nKEY begins with HKLM, HKCU, HKCR, HKU or the long name. VALUE '' or @ is the key's default value. TYPE and "
     "DATA:\n"
     "  REG_SZ, REG_EXPAND_SZ   text\n"
     "  REG_DWORD, REG_QWORD    a number, in decimal or with 0x\n"
     "  REG_BINARY              two hexadecimal digits for each byte\n"
     "  REG_MULTI_SZ            texts with \\0 between them\n",
     DefineRegAdd},
    {"reg delete", "KEY [VALUE]", "deletes a value, or the key with all below it", "", DefineRegDelete},
    {"cache show", "[FILE]", "what a cache file holds: the store of the last object, from one to the next",
     "\nWithout FILE the root's own: svinfo.cch in the folder that BinDir of HKLM\\SOFTWARE\\Orvantis\\Core names, "
     "else in "
     "the\n"
     "folder the program is in. Ends with 1 when there is none, with 4 when it is cut off or damaged.\n",
     DefineCacheShow},
    {"cache verify", "[FILE]", "whether a cache file is whole: sizes, digest, form",
     "\nWithout FILE the root's own. Ends with 1 when something is odd or there is none, with 4 when the file is cut "
     "off or\n"
     "damaged.\n",
     DefineCacheVerify},
    {"cache diff", "[FILE]", "what differs between a cache file and what is managed now",
     "\nWithout FILE the root's own. Ends with 0 when they are the same, with 1 when they differ. The file stays as it "
     "is.\n",
     DefineCacheDiff},
    {"trace on", "[--verbosity N] [--path DIR]", "has every process write down what it does",
     "\nSets DoTrace of HKLM\\SOFTWARE\\Orvantis\\Tracing. Processes that run notice within 30 seconds.\n"
     "  --verbosity N   0, or 10 for what writes of the audit log and of names say as well\n"
     "  --path DIR      the folder of the trace files; it is made. Without it: as set before, else beside the module\n",
     DefineTraceOn},
    {"trace off", "", "ends that", "\nThe files stay.\n", DefineTraceOff},
    {"trace status", "", "the settings of tracing, and the trace files there are",
     "\nEnds with 0 when tracing is on, with 1 when it is off.\n", DefineTraceStatus},
    {"trace show", "FILE... [--thread N] [--since T] [--follow]", "what stands in trace files, in the order of time",
     "\nThe head, then a line for each record: time, thread, and indented by scopes: '>' entered, '<' left, '!' "
     "failed.\n"
     "Several files have a number in front of the thread. A damaged file is shown up to the damage; ends with 4 then.\n"
     "  --thread N   records of that thread alone\n"
     "  --since T    from a time on: 20:31, 20:31:12.5, 2026-11-23, '2026-11-23 20:31'; without a day, that on which\n"
     "               the file was begun\n"
     "  --follow     goes on with what is written\n"
     "With --json one object a line.\n",
     DefineTraceShow},
    {"trace summary", "FILE... [--folded OUT]", "calls, failures and time by scope",
     "\nTotal time counts a scope with all below it, self time without. Both are as fine as the times in the file: "
     "milliseconds.\n"
     "  --folded OUT   self times by call stack, in microseconds, as flame graphs are made from\n",
     DefineTraceSummary},
    {"register", "", "enters the module in the suite's list of components",
     "\nThrough the module's own exports. The list is HKLM\\SOFTWARE\\Orvantis\\Core\\SysComponents.\n",
     DefineRegister},
    {"unregister", "", "takes the module out of the list of components",
     "\nWhat it leaves behind is noted in Cleanup.txt of the installation directory. Ends with 1 when there is no "
     "list.\n",
     DefineUnregister},
    {"help", "[VERB]", "this page, or that of a verb", "", DefineHelp},
    {"version", "", "the version", "", DefineVersion},
};

// The parser would take an argument like "[a,b]" for two values. A name may well look so: it gets an end that no
// argument can have, and loses it again before anyone sees it.
constexpr char kWholeArgument = '\0';

std::string MarkWhole(std::string argument) {
    if (argument.starts_with('[') && argument.ends_with(']')) argument += kWholeArgument;
    return argument;
}

std::string UnmarkWhole(std::string argument) {
    if (argument.ends_with(kWholeArgument)) argument.pop_back();
    return argument;
}

struct CGlobalOptions {
    std::optional<std::string> root;
    std::optional<std::string> as;
    std::optional<std::string> session;
    std::string color = "auto";
    bool help = false;
    COutputStyle style;
};

// The arguments of one verb, on its own parser. The parser would take an argument of its own kind ("{}") for no value
// at all, so that optional ones are taken as they stand.
class CParserArguments final : public CArguments {
  public:
    explicit CParserArguments(CLI::App& parser) noexcept : m_parser(parser) {}

    void Required(const char* name, std::string& value) override { m_parser.add_option(name, value)->required(); }
    void Required(const char* name, std::vector<std::string>& values) override {
        m_parser.add_option(name, values)->required();
    }
    void Optional(const char* name, std::string& value) override { m_parser.add_option(name, value); }
    void Optional(const char* name, std::optional<std::string>& value) override {
        m_parser.add_option_function<std::string>(name, [&value](const std::string& given) { value = given; });
    }
    void Optional(const char* name, std::vector<std::string>& values) override { m_parser.add_option(name, values); }
    void Flag(const char* name, bool& value) override { m_parser.add_flag(name, value); }
    void Seconds(const char* name, double& value) override {
        m_parser.add_option(name, value)->check(CLI::Range(0.001, 1e9));
    }

  private:
    CLI::App& m_parser;
};

// One verb on the parser, and what it does.
struct CDefinedVerb {
    const CVerb* verb;
    CLI::App* parser;
    CAction action;
};

class CParser {
  public:
    CParser();

    // Throws CCommandFailure for wrong usage, unless help is asked for, which needs no more.
    void Parse(std::vector<std::string> args);

    CGlobalOptions& Options() noexcept { return m_options; }
    // The verb that was asked for; null if none was.
    const CDefinedVerb* Chosen() const noexcept;
    // Its name, or that of the family when only that was given; empty if nothing was.
    std::string ChosenName() const;

  private:
    CLI::App* Define(const CVerb& verb);
    void RefuseUnknownOption() const;
    void RefuseUnknownVerb() const;
    std::vector<std::string> OptionNames() const;
    std::vector<std::string> LeftOver() const;

    CLI::App m_app;
    CGlobalOptions m_options;
    std::map<std::string, CLI::App*> m_families;
    std::vector<CDefinedVerb> m_verbs;
};

void Prepare(CLI::App& parser) {
    parser.set_help_flag();
    parser.allow_windows_style_options(false);  // "/x" is part of an item's name
    parser.fallthrough();                       // global options may stand behind the verb
    parser.require_subcommand(0, 1);
}

CParser::CParser() {
    Prepare(m_app);
    m_app.allow_extras();
    m_app.add_option("--root", m_options.root);
    m_app.add_option("--as", m_options.as);
    m_app.add_option("--session", m_options.session);
    m_app.add_option("--color", m_options.color)->check(CLI::IsMember({"auto", "always", "never"}));
    m_app.add_flag("--json", m_options.style.json);
    m_app.add_flag("-q", m_options.style.quiet);
    m_app.add_flag("-v", m_options.style.verbose);
    m_app.add_flag("-h,--help", m_options.help);
    for (const CVerb& verb : kVerbs) {
        CLI::App* parser = Define(verb);
        CParserArguments arguments(*parser);
        m_verbs.push_back({&verb, parser, verb.define(arguments)});
        for (CLI::Option* option : parser->get_options()) option->transform(UnmarkWhole);
    }
    for (CLI::Option* option : m_app.get_options()) option->transform(UnmarkWhole);
}

// "reg import" becomes a subcommand of "reg".
CLI::App* CParser::Define(const CVerb& verb) {
    const std::string name = verb.name;
    const std::size_t blank = name.find(' ');
    CLI::App* parent = &m_app;
    if (blank != std::string::npos) {
        CLI::App*& family = m_families[name.substr(0, blank)];
        if (!family) {
            family = m_app.add_subcommand(name.substr(0, blank));
            Prepare(*family);
        }
        parent = family;
    }
    CLI::App* parser = parent->add_subcommand(name.substr(blank == std::string::npos ? 0 : blank + 1));
    Prepare(*parser);
    return parser;
}

const CDefinedVerb* CParser::Chosen() const noexcept {
    for (const CDefinedVerb& defined : m_verbs) {
        if (defined.parser->parsed()) return &defined;
    }
    return nullptr;
}

std::string CParser::ChosenName() const {
    if (const CDefinedVerb* chosen = Chosen()) return chosen->verb->name;
    for (const auto& [name, parser] : m_families) {
        if (parser->parsed()) return name;
    }
    return {};
}

std::vector<std::string> CParser::OptionNames() const {
    std::vector<std::string> names;
    const auto add = [&names](const CLI::App& parser) {
        for (const CLI::Option* option : parser.get_options()) {
            if (!option->get_lnames().empty()) names.push_back("--" + option->get_lnames().front());
        }
    };
    add(m_app);
    if (const CDefinedVerb* chosen = Chosen()) add(*chosen->parser);
    return names;
}

// What no parser took. The two dashes before arguments are among it, though they have done their work.
std::vector<std::string> CParser::LeftOver() const {
    std::vector<std::string> left = m_app.remaining(true);
    std::erase(left, "--");
    for (std::string& word : left) word = UnmarkWhole(word);
    return left;
}

void CParser::RefuseUnknownOption() const {
    const std::vector<std::string> left = LeftOver();
    if (left.empty() || left[0].size() < 2 || left[0][0] != '-') return;
    throw CCommandFailure(ExitCode::Usage, "unknown option " + Quoted(left[0]) + Suggestion(left[0], OptionNames()));
}

void CParser::RefuseUnknownVerb() const {
    const std::string family = ChosenName();
    const std::vector<std::string> left = LeftOver();
    const std::string pages = "; 'svinfo help" + (family.empty() ? "" : " " + family) + "' lists them";
    if (left.empty()) throw CCommandFailure(ExitCode::Usage, "a verb is missing" + pages);
    const std::string verb = (family.empty() ? "" : family + " ") + left[0];
    std::vector<std::string> names;
    for (const CVerb& known : kVerbs) names.emplace_back(known.name);
    throw CCommandFailure(ExitCode::Usage, "unknown verb " + Quoted(verb) + Suggestion(verb, names) + pages);
}

void CParser::Parse(std::vector<std::string> args) {
    for (std::string& arg : args) arg = MarkWhole(std::move(arg));
    std::reverse(args.begin(), args.end());  // as the parser takes them
    std::string wrong;
    try {
        m_app.parse(std::move(args));
        const std::vector<std::string> left = LeftOver();
        if (!left.empty()) wrong = "one argument too many, " + Quoted(left[0]);
    } catch (const CLI::ParseError& error) {
        wrong = error.what();
    }
    if (m_options.help) return;
    RefuseUnknownOption();
    const CDefinedVerb* chosen = Chosen();
    if (!chosen && (wrong.empty() || !LeftOver().empty())) RefuseUnknownVerb();
    if (wrong.empty()) return;
    throw CCommandFailure(
        ExitCode::Usage,
        chosen ? std::string(chosen->verb->name) + ": " + wrong + "\n" + UsageLine(*chosen->verb) : wrong);
}

bool WantsColor(const std::string& when, bool terminal) {
    if (when != "auto") return when == "always";
    const char* refused = std::getenv("NO_COLOR");
    const char* kind = std::getenv("TERM");
    if ((refused && *refused) || (kind && std::string(kind) == "dumb")) return false;
    return terminal;
}

void UseRoot(const std::string& path) {
    if (path.empty()) throw CCommandFailure(ExitCode::Usage, "--root: found an empty path, expected a folder");
    if (const DWORD error = OvSetRoot(path.c_str())) {
        throw FailureOf("use the root " + Quoted(path), HRESULT_FROM_WIN32(error));
    }
}

ExitCode Run(const std::vector<std::string>& args, bool terminal) {
    CParser parser;
    parser.Parse(args);
    CGlobalOptions& options = parser.Options();
    options.style.color = WantsColor(options.color, terminal);
    options.style.terminal = terminal;
    COutput output(options.style, stdout, stderr);
    if (options.help) {
        ShowHelp(parser.ChosenName(), output);
        output.Finish();
        return ExitCode::Ok;
    }
    if (options.root) UseRoot(*options.root);
    const CApartment apartment;
    const CCaller caller(options.as, options.session);
    const ExitCode code = parser.Chosen()->action(output);
    output.Finish();
    return code;
}

}  // namespace

std::span<const CVerb> Verbs() noexcept {
    return kVerbs;
}

ExitCode RunCommandLine(const std::vector<std::string>& args, bool terminal) noexcept {
    try {
        return Run(args, terminal);
    } catch (const CCommandFailure& failure) {
        std::fflush(stdout);
        // "FILE:LINE:COLUMN: ..." stands at the start of its line, where editors look for it.
        const char* program = failure.Code() == ExitCode::BadInput ? "" : "svinfo: ";
        std::fprintf(stderr, "%s%s\n", program, failure.Line().c_str());
        return failure.Code();
    } catch (const std::bad_alloc&) {
        std::fputs("svinfo: 0x8007000E out of memory\n", stderr);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "svinfo: %s\n", error.what());
    } catch (...) {
        std::fputs("svinfo: 0x8000FFFF an unexpected failure\n", stderr);
    }
    return ExitCode::Failed;
}
