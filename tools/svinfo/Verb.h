// What a verb is, and where each one is defined.
#pragma once

#include <functional>
#include <span>

#include "svinfo/Failure.h"
#include "svinfo/Output.h"

namespace CLI {
class App;
}

// What a verb does once its arguments are read. Fails by CCommandFailure.
using CAction = std::function<ExitCode(COutput&)>;

struct CVerb {
    const char* name;       // "get", or "reg import" for one of a family
    const char* arguments;  // as help shows them
    const char* summary;    // one line
    const char* details;    // what help VERB adds, in whole lines
    // Declares the verb's arguments on its own parser, and gives what to do with them.
    CAction (*define)(CLI::App& parser);
};

// All verbs that work, in the order of help.
std::span<const CVerb> Verbs() noexcept;

CAction DefineGet(CLI::App& parser);
CAction DefineStatus(CLI::App& parser);
CAction DefineRegImport(CLI::App& parser);
CAction DefineRegExport(CLI::App& parser);
CAction DefineRegQuery(CLI::App& parser);
CAction DefineRegAdd(CLI::App& parser);
CAction DefineRegDelete(CLI::App& parser);
CAction DefineHelp(CLI::App& parser);
CAction DefineVersion(CLI::App& parser);

// The page of one verb, of a family ("reg"), or of all for no name; nothing for an unknown one.
std::string HelpText(const std::string& verb);
// "usage: svinfo VERB ARGUMENTS"
std::string UsageLine(const CVerb& verb);
