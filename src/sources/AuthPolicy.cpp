#include "sources/AuthPolicy.h"

#include <memory>
#include <new>
#include <string>

#include "diagnostics/TraceScope.h"
#include "module/Failure.h"
#include "module/RegistryKey.h"
#include "module/ValueWalk.h"
#include "store/PolicyKey.h"
#include "store/PolicyNames.h"

namespace {

wstr BitsPath(LPCWSTR name) {
    return wstr(W("AuthenticationPolicies\\")).append(name);
}
wstr ListPath(LPCWSTR root) {
    return wstr(root).append(1, W('\\')).append(AppsPolicyPrefix);
}

// A REG_MULTI_SZ ends with the NUL of its last string and one more.
bool IsWholeList(const WCHAR* text, DWORD bytes) noexcept {
    const std::size_t units = bytes / sizeof(WCHAR);
    if (bytes == 0 || bytes % sizeof(WCHAR) != 0 || text[units - 1] != 0) return false;
    return units < 2 || text[units - 2] == 0;
}

// False when there is no list, or none that can be believed.
bool LoadList(HKEY root, LPCWSTR name, CPolicyValue& value, OVTraceNS::CTraceScope& scope) {
    CRegistryKey key;
    if (key.Open(root, AppsPolicyPrefix.data(), KEY_READ)) return false;
    DWORD type = REG_NONE;
    DWORD size = 0;
    if (RegQueryValueExW(key.Get(), name, nullptr, &type, nullptr, &size) || type != REG_MULTI_SZ) return false;
    const DWORD units = size >> 1;
    if (units < 2) return false;
    const std::unique_ptr<WCHAR[]> text(new (std::nothrow) WCHAR[units]);
    if (!text) return false;
    DWORD bytes = units * static_cast<DWORD>(sizeof(WCHAR));
    if (RegQueryValueExW(key.Get(), name, nullptr, &type, reinterpret_cast<BYTE*>(text.get()), &bytes)) return false;
    if (type != REG_MULTI_SZ || !IsWholeList(text.get(), bytes)) return false;

    for (const WCHAR* entry = text.get(); *entry; entry += std::char_traits<WCHAR>::length(entry) + 1) {
        CPolicyValue mask;
        mask.SetNumber(OV_TYPE_QWORD, wcstoull(entry, nullptr, 16));
        value.Append(mask);
        scope.Print("0x%016I64X", mask.Number());
    }
    return true;
}

bool LoadBits(HKEY root, LPCWSTR name, CPolicyValue& value, OVTraceNS::CTraceScope& scope) {
    CRegistryKey key;
    if (key.Open(root, BitsPath(name).c_str(), KEY_READ)) return false;
    CValueWalk walk(key.Get());
    if (walk.Measure()) return false;
    scope.Print("dwValueCount=%ld, dwMaxValNameLen=%ld, dwMaxValLen=%ld", walk.Count(), walk.LongestName(),
                walk.LongestData());
    if (walk.Count() == 0) return false;

    DWORD mask = 0;
    while (walk.Next()) {
        scope.Print("%ls", walk.Name());
        DWORD bits = 0;
        if (walk.AsDword(bits)) {
            mask |= bits;
            scope.Print("%ls = %ld", walk.Name(), bits);
        } else if (walk.Type() != REG_DWORD) {
            scope.Print("Unexpected type: %ld", walk.Type());
        }
    }
    value.SetNumber(OV_TYPE_DWORD, mask);
    return true;
}

// Takes the plain number away. Whatever goes wrong, the write that follows decides.
void RemoveNumber(HKEY rootParent, LPCWSTR path, LPCWSTR name) noexcept {
    Guarded([&]() -> HRESULT {
        CRegistryKey key;
        LPCWSTR valueName = name;
        if (!OpenPolicyKey(key, rootParent, path, valueName, false)) RegDeleteValueW(key.Get(), valueName);
        return S_OK;
    });
}

// Takes the list away, likewise.
void RemoveList(HKEY rootParent, LPCWSTR path, LPCWSTR name) noexcept {
    Guarded([&]() -> HRESULT {
        CRegistryKey key;
        if (!key.Open(rootParent, ListPath(path).c_str(), kPolicyWriteAccess)) RegDeleteValueW(key.Get(), name);
        return S_OK;
    });
}

// An element that is no 64-bit number counts as 0.
ULONGLONG MaskOf(const OV_SERVER_VALUE& element) noexcept {
    return element.type == OV_TYPE_UINT64 || element.type == OV_TYPE_QWORD ? element.data : 0;
}

void AppendHex16(wstr& text, ULONGLONG number) {
    for (int shift = 60; shift >= 0; shift -= 4) text += W("0123456789ABCDEF")[(number >> shift) & 0xF];
}

void SaveList(HKEY rootParent, LPCWSTR path, LPCWSTR name, std::span<const OV_SERVER_VALUE> elements) {
    RemoveNumber(rootParent, path, name);
    CRegistryKey key;
    RaiseIfRegistryFailed(key.Create(rootParent, ListPath(path).c_str(), nullptr, REG_OPTION_NON_VOLATILE,
                                     kPolicyWriteAccess, nullptr, nullptr));
    RaiseIfRegistryFailed(key.SetMultiString(name, AuthPolicyList(elements).c_str()));
}

void SaveNumber(HKEY rootParent, LPCWSTR path, LPCWSTR name, DWORD number) {
    RemoveList(rootParent, path, name);
    CRegistryKey key;
    LPCWSTR valueName = name;
    RaiseIfRegistryFailed(OpenPolicyKey(key, rootParent, path, valueName, false));
    RaiseIfRegistryFailed(key.SetDword(valueName, number));
}

}  // namespace

HRESULT LoadAuthPolicyGPO(HKEY root, LPCWSTR name, CPolicyValue& value) {
    OVTraceNS::CTraceScope scope("CServerInfo::LoadAuthPolicyGPO", 0);
    value.Clear();
    const bool found = LoadList(root, name, value, scope) || LoadBits(root, name, value, scope);
    const HRESULT hr = found ? S_OK : kNotFound;
    scope.Result("", hr);
    return hr;
}

HRESULT ReadAuthPolicyFromKey(HKEY rootParent, LPCWSTR path, LPCWSTR name, CPolicyValue& value) {
    CRegistryKey key;
    if (key.Open(rootParent, path, KEY_READ)) return kNotFound;
    return LoadAuthPolicyGPO(key.Get(), name, value);
}

wstr AuthPolicyKey(LPCWSTR path, LPCWSTR name, const CPolicyValue& value) {
    return value.Type() == OV_TYPE_DWORD ? wstr(path).append(1, W('\\')).append(BitsPath(name)) : ListPath(path);
}

wstr AuthPolicyList(std::span<const OV_SERVER_VALUE> elements) {
    wstr text;
    for (const OV_SERVER_VALUE& element : elements) {
        AppendHex16(text, MaskOf(element));
        text += WCHAR{0};
    }
    return text;
}

HRESULT SaveAuthPolicyGPO(HKEY rootParent, LPCWSTR path, LPCWSTR name, const OV_SERVER_VALUE& value) noexcept {
    OVTraceNS::CTraceScope scope("CServerInfo::SaveAuthPolicyGPO", 0);
    return AtBoundary(scope, [&]() -> HRESULT {
        switch (value.type) {
            case OV_TYPE_ULONG:
            case OV_TYPE_DWORD:
                SaveNumber(rootParent, path, name, static_cast<DWORD>(value.data));
                return S_OK;
            case OV_TYPE_ARRAY:
                if (!value.items && value.data != 0) return E_INVALIDARG;
                SaveList(rootParent, path, name, {value.items, static_cast<DWORD>(value.data)});
                return S_OK;
            default:
                return E_INVALIDARG;
        }
    });
}
