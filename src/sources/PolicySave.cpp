// A whole map written into a registry key, each item at the place that its name gives.
#include "sources/PolicySave.h"

#include "module/Failure.h"
#include "sources/AuthPolicy.h"
#include "store/PolicyKey.h"
#include "store/PolicyNames.h"
#include "store/ServerInfo.h"

namespace {

HRESULT SaveItem(HKEY root, LPCWSTR path, const CPolicyItem& item) {
    LPCWSTR valueName = item.name.c_str();
    CRegistryKey key;
    const LONG error = OpenPolicyKey(key, root, path, valueName, false);
    if (error) return ResultFromRegistry(error);
    CRegistryForm form;
    if (const HRESULT hr = RegistryFormOf(item.value, form); FAILED(hr)) return hr;
    return ResultFromRegistry(RegSetValueExW(key.Get(), valueName, 0, form.type,
                                             reinterpret_cast<const BYTE*>(form.bytes.data()),
                                             static_cast<DWORD>(form.bytes.size())));
}

}  // namespace

HRESULT RegistryFormOf(const CPolicyValue& value, CRegistryForm& form) {
    const auto take = [&](DWORD type, const void* bytes, std::size_t size) -> HRESULT {
        form.type = type;
        form.bytes.assign(static_cast<const char*>(bytes), size);
        return S_OK;
    };
    switch (value.Type()) {
        case OV_TYPE_STRING: {
            const LPCWSTR text = value.Text();
            if (!text) return HRESULT_FROM_WIN32(ERROR_INVALID_DATA);
            return take(REG_SZ, text, (wcslen(text) + 1) * sizeof(WCHAR));
        }
        case OV_TYPE_DWORD: {
            const DWORD number = value.Dword();
            return take(REG_DWORD, &number, sizeof number);
        }
        case OV_TYPE_QWORD: {
            const ULONGLONG number = value.Number();
            return take(REG_QWORD, &number, sizeof number);
        }
        case OV_TYPE_ARRAY:
            return E_NOTIMPL;
        default:
            return static_cast<HRESULT>(0x80020008u);  // DISP_E_BADVARTYPE
    }
}

bool IsNeverSaved(LPCWSTR itemName) noexcept {
    return _wcsicmp(itemName, W("CommonSettings\\{1750cc24-5adb-4d63-b4a5-9a25c252275a}\\DisableApps")) == 0;
}

HRESULT CServerInfo::SavePolicies(const CPolicyMap& map, HKEY root, LPCWSTR path) noexcept {
    OVTraceNS::CTraceScope scope("CServerInfo::SavePolicies", 0);
    return AtBoundary(scope, [&]() -> HRESULT {
        for (std::size_t rank = 0; rank < map.Size(); ++rank) {
            const CPolicyItem& item = map.At(rank);
            const LPCWSTR name = item.name.c_str();
            scope.Print("Policy: %ls", name);
            if (IsNeverSaved(name)) {
                scope.Print("This is a well-known authentication domain. Skipping...");
            } else if (IsAuthPolicyName(name)) {
                SaveAuthPolicyGPO(root, path, name, item.value.Raw());
            } else {
                scope.Result("", SaveItem(root, path, item));
            }
        }
        return S_OK;
    });
}
