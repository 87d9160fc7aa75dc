// What holds for the machine as a whole: the store, then the two local keys.
//
//   request    name             walk
//   default    one of the nine  list or bit form in Default; plain value in Default
//   default    other            plain value in Default
//   ordinary   one of the nine  store; list or bit form in the local key, then in Default; plain value in both
//   ordinary   other            store; plain value in the local key, then in Default
#include "module/Failure.h"
#include "sources/AuthPolicy.h"
#include "store/PolicyKey.h"
#include "store/PolicyNames.h"
#include "store/ServerInfo.h"

namespace {

void ClearAnswer(OV_SERVER_INFO_EX& record) noexcept {
    record.hr = kNotFound;
    record.value = {};
}

// Runs a step that answers the record. What it raises becomes the record's result, and nothing half-built stays in it.
template <class Step>
HRESULT AnswerGuarded(OV_SERVER_INFO_EX& record, OVTraceNS::CTraceScope& scope, Step step) noexcept {
    ClearAnswer(record);
    const HRESULT raised = Guarded([&]() -> HRESULT {
        step();
        return S_OK;
    });
    if (FAILED(raised)) {
        ClearAnswer(record);
        record.hr = raised;
    }
    scope.Result("", record.hr);
    return record.hr;
}

void TraceStored(OVTraceNS::CTraceScope& scope, LPCWSTR name, const CPolicyValue& value) noexcept {
    switch (value.Type()) {
        case OV_TYPE_STRING:
            scope.Print("%ls = '%ls'", name, value.Text());
            break;
        case OV_TYPE_DWORD:
            scope.Print("%ls = %ld", name, value.Dword());
            break;
        case OV_TYPE_QWORD:
            scope.Print("%ls = 0x%016I64X", name, value.Number());
            break;
        case OV_TYPE_ARRAY:
            scope.Print("%ls (array)", name);
            break;
        default:
            scope.Print("Should never be here");
            break;
    }
}

// Answers with a value that was read from a local key. False for one that cannot cross the interfaces: an empty list.
bool AnswerLocal(OV_SERVER_INFO_EX& record, CPolicyItem item) {
    if (FAILED(CopyValueOut(item, record.value))) return false;
    record.hr = S_FALSE;
    return true;
}

}  // namespace

HRESULT CServerInfo::GetMachineValue(OV_SERVER_INFO_EX& record) noexcept {
    OVTraceNS::CTraceScope scope("CServerInfo::GetMachineValue", 0);
    scope.Print("rInfo.hr = 0x%08X", record.hr);
    const bool defaultOnly = record.hr == OV_QUERY_DEFAULT;
    return AnswerGuarded(record, scope, [&] { FindMachineValue(record, defaultOnly, scope); });
}

void CServerInfo::FindMachineValue(OV_SERVER_INFO_EX& record, bool defaultOnly, OVTraceNS::CTraceScope& scope) {
    static constexpr LPCWSTR kLevels[] = {kLocalPolicyKey, kDefaultPolicyKey};
    if (!record.name) throw CAtlException(E_INVALIDARG);

    std::span<const LPCWSTR> levels = kLevels;
    if (defaultOnly) {
        levels = levels.subspan(1);
    } else {
        if (const CPolicyItem* item = m_machineItems.Find({record.name, wcslen(record.name)})) {
            record.hr = CopyValueOut(*item, record.value);
            TraceStored(scope, record.name, item->value);
            return;
        }
        scope.Print("Trying local");
    }
    if (IsAuthPolicyName(record.name) && ReadLocalPolicy(record, levels)) return;
    for (LPCWSTR level : levels) {
        if (SUCCEEDED(GetRegistryValue(level, record))) return;
    }
}

// The list or bit form of a policy: the first of the keys that has one decides.
bool CServerInfo::ReadLocalPolicy(OV_SERVER_INFO_EX& record, std::span<const LPCWSTR> keys) {
    CPolicyItem item;
    for (LPCWSTR key : keys) {
        if (FAILED(ReadAuthPolicyFromKey(HKEY_LOCAL_MACHINE, key, record.name, item.value))) continue;
        item.name = record.name;
        return AnswerLocal(record, std::move(item));
    }
    return false;
}

HRESULT CServerInfo::GetRegistryValue(LPCWSTR basePath, OV_SERVER_INFO_EX& record) noexcept {
    OVTraceNS::CTraceScope scope("CServerInfo::GetRegistryValue OV_SERVER_INFO_EX", 0);
    return AnswerGuarded(record, scope, [&] {
        scope.Print("Getting '%ls' from '%ls'...", record.name, basePath);
        LPCWSTR valueName = record.name;
        CRegistryKey key;
        if (OpenPolicyKey(key, HKEY_LOCAL_MACHINE, basePath, valueName, true)) return;
        const HRESULT hr = ReadPlainValue(key, valueName, record.name, record.value, scope);
        record.hr = FAILED(hr) ? hr : S_FALSE;
    });
}
