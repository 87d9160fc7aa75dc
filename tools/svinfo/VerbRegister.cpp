// register and unregister: the module's own registration, through its exports.
#include <nlohmann/json.hpp>

#include "module/Library.h"
#include "module/Registration.h"
#include "svinfo/Host.h"
#include "svinfo/Text.h"
#include "svinfo/Verb.h"

namespace {

ExitCode CallExport(const char* verb, const char* name, COutput& output) {
    const CModuleHandle module = LoadServerInfoModule();
    const auto entry = FindExport<HRESULT(STDAPICALLTYPE*)()>(module.get(), name);
    if (!entry) throw CCommandFailure(ExitCode::Failed, std::string("the module has no ") + name);
    const std::string path = ToUtf8(ModulePath(module.get()));
    if (const HRESULT hr = entry(); FAILED(hr)) throw FailureOf(std::string(verb) + " " + EscapeControls(path), hr);
    if (output.Style().json) {
        json answer = JsonAnswer();
        answer["module"] = path;
        answer["key"] = MachineKeyText(kComponentsKey);
        output.Json(answer);
    } else {
        output.Note(std::string(verb) + "ed " + EscapeControls(path) + ": CServerInfo of " +
                    MachineKeyText(kComponentsKey));
    }
    return ExitCode::Ok;
}

}  // namespace

CAction DefineRegister(CArguments&) {
    return [](COutput& output) { return CallExport("register", "DllRegisterServer", output); };
}

CAction DefineUnregister(CArguments&) {
    return [](COutput& output) { return CallExport("unregister", "DllUnregisterServer", output); };
}
