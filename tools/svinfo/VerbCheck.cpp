// check: what a policy file would deliver.
#include <algorithm>
#include <memory>
#include <nlohmann/json.hpp>

#include "svinfo/FileIo.h"
#include "svinfo/Findings.h"
#include "svinfo/Items.h"
#include "svinfo/PolFile.h"
#include "svinfo/PolicyApply.h"
#include "svinfo/PolicyDocument.h"
#include "svinfo/ScratchRoot.h"
#include "svinfo/StoreView.h"
#include "svinfo/Text.h"
#include "svinfo/Verb.h"

namespace {

// What a file would give, whatever its kind.
struct CChecked {
    std::string kind;
    CSourceEntry entry;
};

// A policy object's file is applied to a computer of its own, and loaded there.
CChecked CheckPolFile(const std::string& path) {
    const std::string bytes = ReadWholeFile(path);
    std::vector<CPolRecord> records;
    try {
        records = ReadPolFile(bytes);
    } catch (const CBadPolFile& bad) {
        throw CCommandFailure(ExitCode::BadInput,
                              EscapeControls(path) + ": byte " + std::to_string(bad.offset) + ": " + bad.text);
    }
    CSourceLedger ledger;
    std::vector<CPolicyNote> notes;
    {
        const CScratchRoot scratch;
        CPolicyApplication application(HKEY_LOCAL_MACHINE, wstr());
        notes = application.Apply(records);
        const CStoreView view(&ledger);
    }
    CChecked checked{"registry policy", {}};
    for (const CSourceEntry& entry : ledger.Sources()) {
        if (entry.source->form == PolicyForm::kRegistry) checked.entry = entry;
    }
    checked.entry.path = path;
    if (checked.entry.state == SourceState::kNoEngine) checked.entry.state = SourceState::kEmpty;
    for (CPolicyNote& note : notes) {
        checked.entry.findings.push_back(
            {Oddity::kRegistryType, {}, "byte " + std::to_string(note.offset) + ": " + note.text, {path, 0, 0}, {}});
    }
    return checked;
}

CChecked CheckFile(const std::string& path) {
    if (ReadBeginning(path, 4) == "PReg") return CheckPolFile(path);
    const CPolicyDocument document = ReadPolicyDocument(path, false);
    document.RequireSound();
    return {document.form == PolicyForm::kSettings ? "settings document" : "authentication policies", document.Entry()};
}

std::string WhereText(const CDelivery& delivery) {
    return delivery.place.line == 0 ? std::string() : std::to_string(delivery.place.line);
}

void AddRows(CTable& table, const CChecked& checked) {
    for (const CDelivery& delivery : checked.entry.deliveries) {
        CItem item(delivery.item.name);
        item.Copy(delivery.item.value.Raw(), S_OK);
        std::vector<std::string> lines = item.Lines();
        if (lines.empty()) lines.emplace_back();
        for (const std::string& line : lines) {
            const Tone tone = delivery.kept ? Tone::Plain : Tone::Faint;
            table.rows.push_back({{ToUtf8(item.Name()), tone},
                                  {line, tone},
                                  {item.TypeName(), tone},
                                  {delivery.kept ? "delivered" : "repeated", delivery.kept ? Tone::Good : Tone::Notice},
                                  {WhereText(delivery), tone}});
        }
    }
}

json FileJson(const CChecked& checked) {
    json file = {{"path", checked.entry.path}, {"kind", checked.kind}};
    file["items"] = json::array();
    for (const CDelivery& delivery : checked.entry.deliveries) {
        CItem item(delivery.item.name);
        item.Copy(delivery.item.value.Raw(), S_OK);
        file["items"].push_back({{"name", ToUtf8(item.Name())},
                                 {"type", item.TypeName()},
                                 {"value", item.Json()},
                                 {"delivered", delivery.kept},
                                 {"line", delivery.place.line},
                                 {"column", delivery.place.column}});
    }
    AddFindings(file, checked.entry);
    return file;
}

ExitCode Check(const std::vector<std::string>& paths, COutput& output) {
    std::vector<CChecked> files;
    for (const std::string& path : paths) files.push_back(CheckFile(path));
    if (output.Style().json) {
        json answer = JsonAnswer();
        answer["files"] = json::array();
        for (const CChecked& checked : files) answer["files"].push_back(FileJson(checked));
        output.Json(answer);
    }
    bool sound = true;
    for (const CChecked& checked : files) {
        const CSourceEntry& entry = checked.entry;
        const bool odd = HasFindings(entry) || entry.KeptCount() != entry.deliveries.size();
        sound = sound && !odd;
        if (output.Style().json) continue;
        CTable table{{"NAME", "VALUE", "TYPE", "STATE", "LINE"}, {}};
        AddRows(table, checked);
        output.Table(table);
        TellFindings(entry, output);
        output.Note(EscapeControls(entry.path) + ": " + checked.kind + ", " +
                    CountText(entry.KeptCount(), "item", "items") + ", " +
                    std::to_string(entry.deliveries.size() - entry.KeptCount()) + " repeated, " +
                    CountText(entry.findings.size(), "finding", "findings"));
    }
    return sound ? ExitCode::Ok : ExitCode::No;
}

}  // namespace

CAction DefineCheck(CArguments& arguments) {
    const auto files = std::make_shared<std::vector<std::string>>();
    arguments.Required("FILE", *files);
    return [files](COutput& output) { return Check(*files, output); };
}
