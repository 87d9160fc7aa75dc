// reg import: a registration file, all of it or none.
#include <memory>
#include <nlohmann/json.hpp>

#include "module/RegBatch.h"
#include "module/RegistryKey.h"
#include "svinfo/FileIo.h"
#include "svinfo/RegFile.h"
#include "svinfo/Text.h"
#include "svinfo/Verb.h"

namespace {

struct CCounts {
    std::size_t keys = 0;
    std::size_t valuesSet = 0;
    std::size_t keysDeleted = 0;
    std::size_t valuesDeleted = 0;
};

CRegFile ReadFile(const std::string& path) {
    const std::string bytes = ReadWholeFile(path);
    try {
        return ReadRegFile(bytes);
    } catch (const CBadRegFile& bad) {
        throw CCommandFailure(ExitCode::BadInput, FilePosition(path, bad.line, bad.column) + bad.text);
    }
}

// Nothing is said about a key or value that is not there to be deleted.
LSTATUS UnlessMissing(LSTATUS error, std::size_t& deleted) noexcept {
    if (!error) ++deleted;
    return error == ERROR_FILE_NOT_FOUND ? ERROR_SUCCESS : error;
}

class CImport {
  public:
    explicit CImport(const std::string& file) : m_file(file) {}

    void Apply(const CRegBlock& block) { block.remove ? DeleteKey(block) : WriteKey(block); }
    const CCounts& Counts() const noexcept { return m_counts; }

  private:
    void DeleteKey(const CRegBlock& block) {
        CRegistryKey root;
        LSTATUS error = root.Open(block.key.root->key, W(""), KEY_READ);
        if (!error) error = UnlessMissing(root.DeleteTree(block.key.below.c_str()), m_counts.keysDeleted);
        if (error) Fail(block, "delete " + EscapeControls(ToUtf8(block.key.Full())), error);
    }

    void WriteKey(const CRegBlock& block) {
        CRegistryKey key;
        if (const LSTATUS error = key.Create(block.key.root->key, block.key.below.c_str(), nullptr,
                                             REG_OPTION_NON_VOLATILE, KEY_SET_VALUE, nullptr, nullptr)) {
            Fail(block, "create " + EscapeControls(ToUtf8(block.key.Full())), error);
        }
        ++m_counts.keys;
        for (const CRegEntry& entry : block.entries) {
            const LSTATUS error = WriteEntry(key, entry);
            if (error) Fail(block, "write " + ValueText(block.key, entry.name), error);
        }
    }

    LSTATUS WriteEntry(CRegistryKey& key, const CRegEntry& entry) {
        if (entry.remove) {
            return UnlessMissing(RegDeleteValueW(key.Get(), entry.name.c_str()), m_counts.valuesDeleted);
        }
        ++m_counts.valuesSet;
        return RegSetValueExW(key.Get(), entry.name.c_str(), 0, entry.type, entry.data.data(),
                              static_cast<DWORD>(entry.data.size()));
    }

    [[noreturn]] void Fail(const CRegBlock& block, const std::string& operation, LSTATUS error) const {
        throw RegistryFailureOf(
            "import " + EscapeControls(m_file) + ", key of line " + std::to_string(block.line) + ": " + operation,
            error);
    }

    const std::string& m_file;
    CCounts m_counts;
};

void Report(COutput& output, const std::string& path, const CRegFile& file, const CCounts& counts) {
    for (const CRegNote& note : file.skipped) output.Problem(FilePosition(path, note.line, note.column) + note.text);
    if (output.Style().json) {
        json answer = JsonAnswer();
        answer["file"] = path;
        answer["keys"] = counts.keys;
        answer["valuesSet"] = counts.valuesSet;
        answer["keysDeleted"] = counts.keysDeleted;
        answer["valuesDeleted"] = counts.valuesDeleted;
        answer["skipped"] = json::array();
        for (const CRegNote& note : file.skipped) {
            answer["skipped"].push_back({{"line", note.line}, {"column", note.column}, {"text", note.text}});
        }
        output.Json(answer);
        return;
    }
    output.Note(EscapeControls(path) + ": " + CountText(counts.keys, "key", "keys") + ", " +
                CountText(counts.valuesSet, "value set", "values set") + ", " +
                CountText(counts.keysDeleted, "key", "keys") + " and " +
                CountText(counts.valuesDeleted, "value", "values") + " deleted, " +
                CountText(file.skipped.size(), "line skipped", "lines skipped"));
}

ExitCode Import(const std::string& path, COutput& output) {
    const CRegFile file = ReadFile(path);
    CImport import(path);
    CRegBatch batch;
    if (const LSTATUS error = batch.Begin()) throw RegistryFailureOf("begin to write the registry", error);
    for (const CRegBlock& block : file.blocks) import.Apply(block);
    if (const LSTATUS error = batch.Commit()) throw RegistryFailureOf("write the registry", error);
    Report(output, path, file, import.Counts());
    return ExitCode::Ok;
}

}  // namespace

CAction DefineRegImport(CArguments& arguments) {
    const auto file = std::make_shared<std::string>();
    arguments.Required("FILE", *file);
    return [file](COutput& output) { return Import(*file, output); };
}
