// A whole map written into a registry key, each item at the place that its name gives.
#include "sources/PolicySave.h"

#include "module/Failure.h"
#include "sources/AuthPolicy.h"
#include "store/PolicyKey.h"
#include "store/PolicyNames.h"
#include "store/ServerInfo.h"

namespace {

HRESULT WriteValue(CRegistryKey& key, LPCWSTR name, const CPolicyValue& value) noexcept {
    switch (value.Type()) {
        case OV_TYPE_STRING:
            return ResultFromRegistry(key.SetString(name, value.Text()));
        case OV_TYPE_DWORD:
            return ResultFromRegistry(key.SetDword(name, value.Dword()));
        case OV_TYPE_QWORD: {
            const ULONGLONG number = value.Number();
            return ResultFromRegistry(
                RegSetValueExW(key.Get(), name, 0, REG_QWORD, reinterpret_cast<const BYTE*>(&number), sizeof number));
        }
        case OV_TYPE_ARRAY:
            return E_NOTIMPL;
        default:
            return static_cast<HRESULT>(0x80020008u);  // DISP_E_BADVARTYPE
    }
}

HRESULT SaveItem(HKEY root, LPCWSTR path, const CPolicyItem& item) {
    LPCWSTR valueName = item.name.c_str();
    CRegistryKey key;
    const LONG error = OpenPolicyKey(key, root, path, valueName, false);
    return error ? ResultFromRegistry(error) : WriteValue(key, valueName, item.value);
}

}  // namespace

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
