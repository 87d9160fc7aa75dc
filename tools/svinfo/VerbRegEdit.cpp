// reg add and reg delete: one value, or one key with all below it.
#include <CLI/CLI.hpp>
#include <memory>

#include "module/RegistryKey.h"
#include "svinfo/RegBatch.h"
#include "svinfo/RegData.h"
#include "svinfo/Text.h"
#include "svinfo/Verb.h"

namespace {

struct CAddOptions {
    std::string key;
    std::string value;
    std::string type;
    std::string data;
};

struct CDeleteOptions {
    std::string key;
    std::string value;
    bool hasValue = false;
};

// Runs `write` as one transaction. A key that is created on the way to a refused value is no trace to leave.
template <class Write>
void WriteTogether(const std::string& operation, Write&& write) {
    CRegBatch batch;
    LSTATUS error = batch.Begin();
    if (!error) error = write();
    if (!error) error = batch.Commit();
    if (error) throw RegistryFailureOf(operation, error);
}

ExitCode Add(const CAddOptions& options) {
    const CRegPath path = KeyArgument(options.key);
    const wstr name = ValueArgument(options.value);
    const DWORD type = RegTypeArgument(options.type);
    const std::vector<BYTE> data = RegDataArgument(type, options.data);
    WriteTogether("write " + ValueText(path, name), [&]() -> LSTATUS {
        CRegistryKey key;
        if (const LSTATUS error = key.Create(path.root->key, path.below.c_str(), nullptr, REG_OPTION_NON_VOLATILE,
                                             KEY_SET_VALUE, nullptr, nullptr)) {
            return error;
        }
        return RegSetValueExW(key.Get(), name.c_str(), 0, type, data.data(), static_cast<DWORD>(data.size()));
    });
    return ExitCode::Ok;
}

ExitCode Delete(const CDeleteOptions& options) {
    const CRegPath path = KeyArgument(options.key);
    CRegistryKey key;
    if (options.hasValue) {
        const wstr name = ValueArgument(options.value);
        WriteTogether("delete " + ValueText(path, name), [&]() -> LSTATUS {
            const LSTATUS error = key.Open(path.root->key, path.below.c_str(), KEY_SET_VALUE);
            return error ? error : RegDeleteValueW(key.Get(), name.c_str());
        });
        return ExitCode::Ok;
    }
    if (path.below.empty()) {
        throw CCommandFailure(ExitCode::Usage,
                              "KEY " + Quoted(options.key) + ": found a root, expected a key below it");
    }
    WriteTogether("delete " + EscapeControls(ToUtf8(path.Full())), [&]() -> LSTATUS {
        const LSTATUS error = key.Open(path.root->key, W(""), KEY_READ);
        return error ? error : key.DeleteTree(path.below.c_str());
    });
    return ExitCode::Ok;
}

}  // namespace

CAction DefineRegAdd(CLI::App& parser) {
    const auto options = std::make_shared<CAddOptions>();
    parser.add_option("KEY", options->key)->required();
    parser.add_option("VALUE", options->value)->required();
    parser.add_option("TYPE", options->type)->required();
    parser.add_option("DATA", options->data)->required();
    return [options](COutput&) { return Add(*options); };
}

CAction DefineRegDelete(CLI::App& parser) {
    const auto options = std::make_shared<CDeleteOptions>();
    parser.add_option("KEY", options->key)->required();
    const CLI::Option* value = parser.add_option("VALUE", options->value);
    return [options, value](COutput&) {
        options->hasValue = value->count() > 0;
        return Delete(*options);
    };
}
