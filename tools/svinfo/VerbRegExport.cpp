// reg export: a key with all below it, as a registration file.
#include <memory>
#include <nlohmann/json.hpp>

#include "svinfo/FileIo.h"
#include "svinfo/RegTree.h"
#include "svinfo/Text.h"
#include "svinfo/Verb.h"

namespace {

struct CExportOptions {
    std::string key;
    std::string file;  // empty: standard output
};

ExitCode Export(const CExportOptions& options, COutput& output) {
    if (options.file.empty() && output.Style().json) {
        throw CCommandFailure(ExitCode::Usage,
                              "reg export: --json needs FILE, since the file itself goes to standard "
                              "output without it");
    }
    const CRegPath key = KeyArgument(options.key);
    std::vector<CRegBlock> blocks;
    std::size_t values = 0;
    const bool found = WalkRegTree(key, [&](CRegBlock& block) {
        values += block.entries.size();
        blocks.push_back(std::move(block));
        return RegWalk::GoOn;
    });
    if (!found) throw RegistryFailureOf("export " + EscapeControls(ToUtf8(key.Full())), ERROR_FILE_NOT_FOUND);

    const std::string bytes = WriteRegFile(blocks);
    if (options.file.empty()) {
        output.Bytes(bytes);
        return ExitCode::Ok;
    }
    WriteWholeFile(options.file, bytes);
    if (output.Style().json) {
        json answer = JsonAnswer();
        answer["file"] = options.file;
        answer["keys"] = blocks.size();
        answer["values"] = values;
        output.Json(answer);
    } else {
        output.Note(EscapeControls(options.file) + ": keys: " + std::to_string(blocks.size()) +
                    ", values: " + std::to_string(values));
    }
    return ExitCode::Ok;
}

}  // namespace

CAction DefineRegExport(CArguments& arguments) {
    const auto options = std::make_shared<CExportOptions>();
    arguments.Required("KEY", options->key);
    arguments.Optional("FILE", options->file);
    return [options](COutput& output) { return Export(*options, output); };
}
