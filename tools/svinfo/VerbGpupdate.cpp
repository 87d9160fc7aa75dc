// gpupdate: policy files become the machine's policy, or one user's, and whoever listens is told.
#include <memory>
#include <nlohmann/json.hpp>

#include "module/RegBatch.h"
#include "svinfo/FileIo.h"
#include "svinfo/PolicyApply.h"
#include "svinfo/PolicyEngine.h"
#include "svinfo/Text.h"
#include "svinfo/UserName.h"
#include "svinfo/Verb.h"

namespace {

struct CGpupdateOptions {
    std::vector<std::string> files;
    std::string user;  // empty: the machine
};

struct CPolicyFile {
    std::string path;
    std::vector<CPolRecord> records;
    std::vector<CPolicyNote> notes;
};

std::string Position(const std::string& path, std::size_t offset) {
    return EscapeControls(path) + ": byte " + std::to_string(offset) + ": ";
}

std::vector<CPolicyFile> ReadFiles(const std::vector<std::string>& paths) {
    std::vector<CPolicyFile> files;
    for (const std::string& path : paths) {
        try {
            files.push_back({path, ReadPolFile(ReadWholeFile(path)), {}});
        } catch (const CBadPolFile& bad) {
            throw CCommandFailure(ExitCode::BadInput, Position(path, bad.offset) + bad.text);
        }
    }
    return files;
}

void Report(COutput& output, const CGpupdateOptions& options, const std::vector<CPolicyFile>& files,
            const CPolicyCounts& counts, bool signalled) {
    for (const CPolicyFile& file : files) {
        for (const CPolicyNote& note : file.notes) output.Problem(Position(file.path, note.offset) + note.text);
    }
    if (output.Style().json) {
        json answer = JsonAnswer();
        answer["policy"] = options.user.empty() ? "machine" : "user";
        if (!options.user.empty()) answer["user"] = options.user;
        answer["valuesSet"] = counts.valuesSet;
        answer["valuesDeleted"] = counts.valuesDeleted;
        answer["valuesTakenBack"] = counts.valuesTakenBack;
        answer["passedOver"] = json::array();
        for (const CPolicyFile& file : files) {
            for (const CPolicyNote& note : file.notes) {
                answer["passedOver"].push_back({{"file", file.path}, {"offset", note.offset}, {"text", note.text}});
            }
        }
        answer["signalled"] = signalled;
        output.Json(answer);
        return;
    }
    output.Note((options.user.empty() ? "machine policy: " : "policy of " + EscapeControls(options.user) + ": ") +
                std::to_string(counts.valuesSet) + " set, " + std::to_string(counts.valuesDeleted) + " deleted, " +
                std::to_string(counts.valuesTakenBack) + " of the last application taken back");
}

ExitCode Gpupdate(const CGpupdateOptions& options, COutput& output) {
    std::vector<CPolicyFile> files = ReadFiles(options.files);
    const bool machine = options.user.empty();
    CPolicyApplication application(machine ? HKEY_LOCAL_MACHINE : HKEY_USERS,
                                   machine ? wstr() : UserSidArgument(options.user) + W('\\'));
    CPolicyEngine engine(machine);
    CRegBatch batch;
    if (const LSTATUS error = batch.Begin()) throw RegistryFailureOf("begin to write the registry", error);
    application.TakeBack();
    for (CPolicyFile& file : files) file.notes = application.Apply(file.records);
    application.Finish();
    if (const LSTATUS error = batch.Commit()) throw RegistryFailureOf("write the registry", error);
    const DWORD error = engine.Signal();
    Report(output, options, files, application.Counts(), error == ERROR_SUCCESS);
    if (error)
        throw RegistryFailureOf("applied, but nobody could be told of it: RefreshPolicyEx",
                                static_cast<LSTATUS>(error));
    return ExitCode::Ok;
}

}  // namespace

CAction DefineGpupdate(CArguments& arguments) {
    const auto options = std::make_shared<CGpupdateOptions>();
    arguments.Required("FILE", options->files);
    arguments.Optional("--user", options->user);
    return [options](COutput& output) { return Gpupdate(*options, output); };
}
