#include "module/Registration.h"

#include "cache/CacheFile.h"
#include "diagnostics/TraceScope.h"
#include "module/ComModule.h"
#include "module/Failure.h"
#include "module/FileHandle.h"
#include "module/RegistryKey.h"
#include "module/TaskMem.h"
#include "sources/PolicySave.h"

namespace {

constexpr WCHAR kByteOrderMark = 0xFEFF;
constexpr LPCWSTR kSettingsKey = W("SOFTWARE\\Orvantis\\Client\\Configuration\\ProprietarySettings\\");
constexpr LPCWSTR kSettingsName = W("{5ED04F3F-AC3E-4BE0-A157-782B204E2B8C}");
constexpr REGSAM kReadWrite = KEY_READ | KEY_WRITE;

[[noreturn]] void RaiseLastError() {
    throw _com_error(ResultOfLastError());
}

CRegistryKey OpenOrMake(LPCWSTR path) {
    CRegistryKey key;
    RaiseIfRegistryFailed(
        key.Create(HKEY_LOCAL_MACHINE, path, nullptr, REG_OPTION_NON_VOLATILE, kReadWrite, nullptr, nullptr));
    return key;
}

// Raises the failure.
wstr CleanupPath() {
    CRegistryKey key;
    RaiseIfRegistryFailed(key.Open(HKEY_LOCAL_MACHINE, W("SOFTWARE\\Orvantis"), KEY_READ | KEY_WOW64_64KEY));
    WCHAR path[MAX_PATH] = {};
    DWORD length = MAX_PATH;
    RaiseIfRegistryFailed(key.QueryString(W("OrvantisPath"), path, length));
    if (!PathAppendW(path, W("Cleanup.txt"))) throw _com_error(HRESULT_FROM_WIN32(ERROR_FILENAME_EXCED_RANGE));
    return path;
}

void Write(const CFileHandle& file, const void* bytes, std::size_t size) {
    DWORD written = 0;
    if (!WriteFile(file.Get(), bytes, static_cast<DWORD>(size), &written, nullptr)) RaiseLastError();
    if (written != size) throw _com_error(HRESULT_FROM_WIN32(ERROR_DISK_FULL));
}

CFileHandle OpenAlone(const wstr& path, DWORD access, DWORD disposition) {
    CFileHandle file(CreateFileW(path.c_str(), access, 0, nullptr, disposition, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file) RaiseLastError();
    return file;
}

// The list, with its mark, whether it was there or not.
CFileHandle OpenList(const wstr& path) {
    CFileHandle file = OpenAlone(path, GENERIC_READ | GENERIC_WRITE, OPEN_ALWAYS);
    WCHAR mark = 0;
    DWORD read = 0;
    if (!ReadFile(file.Get(), &mark, sizeof mark, &read, nullptr)) RaiseLastError();
    if (read == sizeof mark && mark == kByteOrderMark) return file;
    if (read != 0) throw _com_error(HRESULT_FROM_WIN32(ERROR_INVALID_DATA));
    file.Close();
    file = OpenAlone(path, GENERIC_WRITE, CREATE_ALWAYS);
    Write(file, &kByteOrderMark, sizeof kByteOrderMark);
    return file;
}

void MoveToEnd(const CFileHandle& file) {
    SetLastError(ERROR_SUCCESS);
    SetFilePointer(file.Get(), 0, nullptr, FILE_END);
    if (GetLastError() != ERROR_SUCCESS) RaiseLastError();
}

wstr LineOf(LPCWSTR kind, LPCWSTR target, DWORD number, LPCWSTR extra) {
    wstr line = wstr(kind).append(W("\t")).append(target);
    if (number != 0 || extra) {
        WCHAR text[16];
        line += WCHAR{'\t'};
        line.append(text, OVFormat::Format(text, std::size(text), "%u", number));
    }
    if (extra) line.append(W("\t")).append(*extra ? extra : W(" "));
    return line += W("\r\n");
}

}  // namespace

HRESULT CComponentRegistrar::RegisterComponent(LPCWSTR keyPath, LPCWSTR name, REFCLSID classId) const noexcept {
    OVTraceNS::CTraceScope scope("CComponentRegistrar::RegisterComponent", 0);
    return AtBoundary(scope, [&]() -> HRESULT {
        const wstr value = ClassIdText(classId).append(W(":")).append(m_modulePath);
        RaiseIfRegistryFailed(OpenOrMake(keyPath).SetString(name, value.c_str()));
        return S_OK;
    });
}

HRESULT CComponentRegistrar::UnregisterComponent(LPCWSTR keyPath, LPCWSTR name) const noexcept {
    OVTraceNS::CTraceScope scope("CComponentRegistrar::UnregisterComponent", 0);
    return AtBoundary(scope, [&]() -> HRESULT {
        CRegistryKey key;
        RaiseIfRegistryFailed(key.Open(HKEY_LOCAL_MACHINE, keyPath, kReadWrite));
        RegDeleteValueW(key.Get(), name);
        DWORD keys = 0, values = 0;
        if (RegQueryInfoKeyW(key.Get(), nullptr, nullptr, nullptr, &keys, nullptr, nullptr, &values, nullptr, nullptr,
                             nullptr, nullptr)) {
            return S_OK;
        }
        key.Close();
        if (keys == 0 && values == 0) RegDeleteKeyW(HKEY_LOCAL_MACHINE, keyPath);
        return S_OK;
    });
}

HRESULT AddCleanupLine(LPCWSTR kind, LPCWSTR target, DWORD number, LPCWSTR extra) noexcept {
    OVTraceNS::CTraceScope scope("AddCleanupLine", 0);
    return AtBoundary(scope, [&]() -> HRESULT {
        if (!kind || !*kind || !target || !*target) return E_INVALIDARG;
        const wstr path = CleanupPath();
        const CFileHandle file = OpenList(path);
        scope.Print("FilePath = %ls", path.c_str());
        MoveToEnd(file);
        const wstr line = LineOf(kind, target, number, extra);
        scope.Print("accum = %ls", line.c_str());
        Write(file, line.data(), line.size() * sizeof(WCHAR));
        return S_OK;
    });
}

HRESULT RegisterModule() noexcept {
    const HRESULT hr = TheModule().RegisterServer(nullptr);
    if (FAILED(hr)) return hr;
    const HRESULT made = Guarded([]() -> HRESULT {
        OpenOrMake(wstr(kSettingsKey).append(kSettingsName).c_str());
        return S_OK;
    });
    return FAILED(made) ? made : hr;
}

HRESULT UnregisterModule() noexcept {
    // None of this keeps the component registered.
    Guarded([]() -> HRESULT {
        CRegistryKey settings;
        if (!settings.Open(HKEY_LOCAL_MACHINE, kSettingsKey, kReadWrite)) settings.DeleteTree(kSettingsName);
        AddCleanupLine(W("HKLM"), W("SOFTWARE\\Orvantis\\Policies\\CommonSettings"), 8, nullptr);
        AddCleanupLine(W("HKLM"), W("SOFTWARE\\Orvantis\\Policies\\Applications"), 8, nullptr);
        AddCleanupLine(W("HKLM"), kCachedInfoKey, 8, nullptr);
        AddCleanupLine(W("FILE"), CacheFileName().c_str(), 1, nullptr);
        return S_OK;
    });
    return TheModule().UnRegisterServer(nullptr);
}
