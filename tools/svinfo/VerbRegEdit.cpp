// reg add and reg delete: one value, or one key with all below it.
#include <memory>
#include <nlohmann/json.hpp>

#include "module/RegBatch.h"
#include "module/RegistryKey.h"
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
    std::optional<std::string> value;
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

// Says which key, or which of its values, was written or deleted.
ExitCode Done(COutput& output, const CRegPath& path, const wstr* name) {
    if (!output.Style().json) return ExitCode::Ok;
    json answer = JsonAnswer();
    answer["key"] = ToUtf8(path.Full());
    answer["name"] = name ? json(ToUtf8(*name)) : json(nullptr);
    output.Json(answer);
    return ExitCode::Ok;
}

ExitCode Add(const CAddOptions& options, COutput& output) {
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
    return Done(output, path, &name);
}

ExitCode Delete(const CDeleteOptions& options, COutput& output) {
    const CRegPath path = KeyArgument(options.key);
    CRegistryKey key;
    if (options.value) {
        const wstr name = ValueArgument(*options.value);
        WriteTogether("delete " + ValueText(path, name), [&]() -> LSTATUS {
            const LSTATUS error = key.Open(path.root->key, path.below.c_str(), KEY_SET_VALUE);
            return error ? error : RegDeleteValueW(key.Get(), name.c_str());
        });
        return Done(output, path, &name);
    }
    if (path.below.empty()) {
        throw CCommandFailure(ExitCode::Usage,
                              "KEY " + Quoted(options.key) + ": found a root, expected a key below it");
    }
    WriteTogether("delete " + EscapeControls(ToUtf8(path.Full())), [&]() -> LSTATUS {
        const LSTATUS error = key.Open(path.root->key, W(""), KEY_READ);
        return error ? error : key.DeleteTree(path.below.c_str());
    });
    return Done(output, path, nullptr);
}

}  // namespace

CAction DefineRegAdd(CArguments& arguments) {
    const auto options = std::make_shared<CAddOptions>();
    arguments.Required("KEY", options->key);
    arguments.Required("VALUE", options->value);
    arguments.Required("TYPE", options->type);
    arguments.Required("DATA", options->data);
    return [options](COutput& output) { return Add(*options, output); };
}

CAction DefineRegDelete(CArguments& arguments) {
    const auto options = std::make_shared<CDeleteOptions>();
    arguments.Required("KEY", options->key);
    arguments.Optional("VALUE", options->value);
    return [options](COutput& output) { return Delete(*options, output); };
}
