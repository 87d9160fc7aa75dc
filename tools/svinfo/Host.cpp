#include "svinfo/Host.h"

#include "module/Library.h"
#include "svinfo/Failure.h"
#include "svinfo/Text.h"

namespace {

constexpr LPCWSTR kModuleName = W("OvSvInfo");

// Whatever keeps the component from answering is its failure, also where the code says that something does not exist.
CCommandFailure HostFailure(const std::string& operation, HRESULT hr) {
    return CCommandFailure(ExitCode::Failed, FailureOf(operation, hr).Line());
}

}  // namespace

CModuleHandle LoadServerInfoModule() {
    CModuleHandle module(LoadLibraryW(kModuleName));
    if (!module) throw HostFailure("load the module " + ToUtf8(kModuleName), HRESULT_FROM_WIN32(GetLastError()));
    return module;
}

wstr ModulePath(HMODULE module) {
    wstr path(MAX_PATH, 0);
    for (;;) {
        const DWORD room = static_cast<DWORD>(path.size());
        const DWORD length = GetModuleFileNameW(module, path.data(), room);
        if (length == 0) throw HostFailure("ask for the module's path", HRESULT_FROM_WIN32(GetLastError()));
        if (length < room) {
            path.resize(length);
            return path;
        }
        path.resize(path.size() * 2);
    }
}

CHost::CHost() : m_module(LoadServerInfoModule()) {
    const auto getClassObject = FindExport<LPFNGETCLASSOBJECT>(m_module.get(), "DllGetClassObject");
    if (!getClassObject) throw HostFailure("find DllGetClassObject", HRESULT_FROM_WIN32(GetLastError()));

    void* found = nullptr;
    HRESULT hr = getClassObject(CLSID_ServerInfo, IID_IClassFactory, &found);
    if (FAILED(hr)) throw HostFailure("get the class object", hr);
    const CInterface<IClassFactory> factory(static_cast<IClassFactory*>(found));

    found = nullptr;
    hr = factory->CreateInstance(nullptr, IID_IOVServerInfo, &found);
    if (FAILED(hr)) throw HostFailure("create the server info object", hr);
    m_info.reset(static_cast<IOVServerInfo*>(found));
}

void* CHost::QueryAny(REFIID iid) const {
    void* found = nullptr;
    const HRESULT hr = m_info->QueryInterface(iid, &found);
    if (FAILED(hr)) throw HostFailure("ask the object for another interface", hr);
    return found;
}
