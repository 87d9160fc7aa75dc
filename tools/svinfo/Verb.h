// What a verb is, and where each one is defined.
#pragma once

#include <functional>
#include <span>

#include "svinfo/Arguments.h"
#include "svinfo/Failure.h"
#include "svinfo/Output.h"

// What a verb does once its arguments are read. Fails by CCommandFailure.
using CAction = std::function<ExitCode(COutput&)>;

struct CVerb {
    const char* name;       // "get", or "reg import" for one of a family
    const char* arguments;  // as help shows them
    const char* summary;    // one line
    const char* details;    // what help VERB adds, in whole lines
    // Declares the verb's arguments and gives what to do with them.
    CAction (*define)(CArguments& arguments);
};

// All verbs that work, in the order of help.
std::span<const CVerb> Verbs() noexcept;

CAction DefineGet(CArguments& arguments);
CAction DefineList(CArguments& arguments);
CAction DefineExplain(CArguments& arguments);
CAction DefineSources(CArguments& arguments);
CAction DefineCheck(CArguments& arguments);
CAction DefineSet(CArguments& arguments);
CAction DefineDelete(CArguments& arguments);
CAction DefineEvents(CArguments& arguments);
CAction DefineReload(CArguments& arguments);
CAction DefineCopyWorkgroup(CArguments& arguments);
CAction DefineWatch(CArguments& arguments);
CAction DefineStatus(CArguments& arguments);
CAction DefineLogonPolicy(CArguments& arguments);
CAction DefineSessionPolicy(CArguments& arguments);
CAction DefineIsAdmin(CArguments& arguments);
CAction DefineGpupdate(CArguments& arguments);
CAction DefineCacheShow(CArguments& arguments);
CAction DefineCacheVerify(CArguments& arguments);
CAction DefineCacheDiff(CArguments& arguments);
CAction DefineRegImport(CArguments& arguments);
CAction DefineRegExport(CArguments& arguments);
CAction DefineRegQuery(CArguments& arguments);
CAction DefineRegAdd(CArguments& arguments);
CAction DefineRegDelete(CArguments& arguments);
CAction DefineTraceOn(CArguments& arguments);
CAction DefineTraceOff(CArguments& arguments);
CAction DefineTraceStatus(CArguments& arguments);
CAction DefineTraceShow(CArguments& arguments);
CAction DefineTraceSummary(CArguments& arguments);
CAction DefineRegister(CArguments& arguments);
CAction DefineUnregister(CArguments& arguments);
CAction DefineHelp(CArguments& arguments);
CAction DefineVersion(CArguments& arguments);

// The page of one verb, of a family ("reg"), or of all for no name; nothing for an unknown one.
std::string HelpText(const std::string& verb);
// Writes that page, as text or as JSON.
void ShowHelp(const std::string& verb, COutput& output);
// "usage: svinfo VERB ARGUMENTS"
std::string UsageLine(const CVerb& verb);
