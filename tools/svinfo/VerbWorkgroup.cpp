// reload and copy-workgroup: the two operations of a computer that no domain manages.
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>

#include "module/Failure.h"
#include "module/RegistryKey.h"
#include "sources/PolicySave.h"
#include "sources/WorkgroupFiles.h"
#include "store/PolicyKey.h"
#include "svinfo/Findings.h"
#include "svinfo/Host.h"
#include "svinfo/Items.h"
#include "svinfo/PolicyDocument.h"
#include "svinfo/PolicyEngine.h"
#include "svinfo/StoreView.h"
#include "svinfo/Text.h"
#include "svinfo/Verb.h"

namespace {

ExitCode Reload(COutput& output) {
    const CHost host;
    const HRESULT hr = host.Query<IOVServerInfoExt>(IID_IOVServerInfoExt)->SetWorkgroupPolicies();
    if (FAILED(hr)) throw CCommandFailure(ExitCode::Failed, FailureOf("reload", hr).Line());
    // An object reads for itself alone. The others do so when they are told that policy has changed.
    const DWORD error = CPolicyEngine(TRUE).Signal();
    CSourceLedger ledger;
    const CStoreView view(&ledger);
    std::size_t items = 0;
    for (const CSourceEntry& entry : ledger.Sources()) items += entry.KeptCount();
    if (output.Style().json) {
        json answer = JsonAnswer();
        answer["items"] = items;
        answer["signalled"] = error == ERROR_SUCCESS;
        output.Json(answer);
    } else {
        for (const CSourceEntry& entry : ledger.Sources()) TellFindings(entry, output);
        output.Note("reloaded: " + CountText(items, "managed item", "managed items") +
                    (error ? "; other processes could not be told: " + ResultText(HRESULT_FROM_WIN32(error))
                           : "; every process that listens is told"));
    }
    return ExitCode::Ok;
}

// The document's items, and what became of each.
struct CCopied {
    std::size_t written = 0;
    std::vector<wstr> failed;
    std::vector<wstr> hidden;  // written, but a managed value answers
};

CCopied Compare(const CPolicyMap& items, IOVServerInfo& info) {
    CCopied copied;
    std::vector<wstr> names;
    for (std::size_t rank = 0; rank < items.Size(); ++rank) {
        const CPolicyItem& item = items.At(rank);
        if (IsNeverSaved(item.name.c_str())) continue;
        const std::optional<CPolicyValue> now = ReadLocalItem(LocalLevel::Local, item.name);
        const bool written = now && ItemsEqual(item, {item.name, *now});
        if (written) names.push_back(item.name);
        if (!written) copied.failed.push_back(item.name);
    }
    copied.written = names.size();
    for (const CItem& item : AskItems(info, names, OV_QUERY)) {
        if (item.State() == ItemState::Managed) copied.hidden.push_back(item.Name());
    }
    return copied;
}

json NamesJson(const std::vector<wstr>& names) {
    json out = json::array();
    for (const wstr& name : names) out.push_back(ToUtf8(name));
    return out;
}

void Tell(const CCopied& copied, COutput& output) {
    if (output.Style().json) {
        json answer = JsonAnswer();
        answer["written"] = copied.written;
        answer["notWritten"] = NamesJson(copied.failed);
        answer["hidden"] = NamesJson(copied.hidden);
        output.Json(answer);
        return;
    }
    for (const wstr& name : copied.failed) output.Problem("svinfo: " + EscapeControls(ToUtf8(name)) + ": not written");
    for (const wstr& name : copied.hidden) {
        output.Problem("svinfo: " + EscapeControls(ToUtf8(name)) + ": written, but a managed value hides it");
    }
    output.Note("copied into HKEY_LOCAL_MACHINE\\" + ToUtf8(kLocalPolicyKey) + ": " +
                CountText(copied.written, "item", "items"));
}

// The component says nothing of single writes; whoever may not write at all learns it before.
void RequireWriteAccess() {
    CRegistryKey key;
    const LONG error = key.Create(HKEY_LOCAL_MACHINE, kLocalPolicyKey, nullptr, REG_OPTION_NON_VOLATILE,
                                  kPolicyWriteAccess, nullptr, nullptr);
    if (error) throw RegistryFailureOf("write HKEY_LOCAL_MACHINE\\" + ToUtf8(kLocalPolicyKey), error);
}

ExitCode CopyWorkgroup(const std::optional<std::string>& file, COutput& output) {
    const std::string path = file ? *file : ToUtf8(BuildDataFilePath(kPluginData, kSettingsFile));
    if (path.empty()) {
        throw CCommandFailure(ExitCode::No,
                              "copy the settings of the data root: HKEY_LOCAL_MACHINE\\SOFTWARE\\Orvantis "
                              "has no OrvantisPath that can be used");
    }
    if (!file && !PathFileExistsW(WideArgument(path, "FILE").c_str())) {
        throw CCommandFailure(ExitCode::No, EscapeControls(path) + ": " + ResultText(kNotFound));
    }
    CPolicyDocument document = ReadPolicyDocument(path, true);
    document.RequireSound();
    RequireWriteAccess();
    const CHost host;
    const HRESULT hr = host.Query<IOVServerInfoExt>(IID_IOVServerInfoExt)
                           ->CopyWorkgroupPoliciesLocally(file ? document.SettingsText().c_str() : nullptr);
    if (FAILED(hr)) throw CCommandFailure(ExitCode::Failed, FailureOf("copy", hr).Line());
    if (!output.Style().json) TellFindings(document.Entry(), output);
    const CCopied copied = Compare(document.items, host.Info());
    Tell(copied, output);
    if (!copied.failed.empty()) return ExitCode::Failed;
    return copied.hidden.empty() ? ExitCode::Ok : ExitCode::Hidden;
}

}  // namespace

CAction DefineReload(CArguments&) {
    return [](COutput& output) { return Reload(output); };
}

CAction DefineCopyWorkgroup(CArguments& arguments) {
    const auto file = std::make_shared<std::optional<std::string>>();
    arguments.Optional("FILE", *file);
    return [file](COutput& output) { return CopyWorkgroup(*file, output); };
}
