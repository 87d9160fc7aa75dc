// Writing items: into the local key, and nowhere else.
//
//   check the caller -> see what holds now -> write -> tell the subscribers -> log the event
//
// What holds now decides what follows the write. Where a managed value is in force the write has no effect for now, and
// stays silent; where the local value answers, or nothing did, it is told when it changed something, and logged.
//
//   before              SetItemLong, SetItemString      SetItem of a policy             DeleteItem
//   managed (0)         silent                          silent                          silent
//   local (1), equal    silent                          logged                          logged, if it was deleted
//   local (1), other    told and logged                 told and logged                 told and logged
//   none                told and logged                 told and logged                 silent
//
// None of it is one step: two writers of one name may interleave.
#include "diagnostics/EventLog.h"
#include "diagnostics/EventLogger.h"
#include "module/ClientPointer.h"
#include "module/Failure.h"
#include "module/TaskMem.h"
#include "sources/AuthPolicy.h"
#include "store/PolicyKey.h"
#include "store/PolicyNames.h"
#include "store/ServerInfo.h"

namespace {

constexpr LPCWSTR kAnyValue = W("{...}");  // in place of values that have no short text

// Frees what a record holds when it goes.
class CRecord : public OV_SERVER_INFO_EX {
  public:
    explicit CRecord(LPCWSTR itemName) noexcept : OV_SERVER_INFO_EX{itemName, OV_QUERY, {}} {}
    ~CRecord() { FreeValue(value); }
    CRecord(const CRecord&) = delete;
    CRecord& operator=(const CRecord&) = delete;
};

CPolicyItem ItemOf(const OV_SERVER_INFO_EX& record) {
    CPolicyItem item{record.name, {}};
    item.value.Assign(record.value);
    return item;
}

// The key of an item in the local key, and `name` moved on to its leaf. Raises the failure.
CRegistryKey OpenLocalKey(LPCWSTR& name) {
    CRegistryKey key;
    RaiseIfRegistryFailed(OpenPolicyKey(key, HKEY_LOCAL_MACHINE, kLocalPolicyKey, name, false));
    return key;
}

// The old value's text in a deletion's event.
wstr DeletedText(const OV_SERVER_VALUE& value) {
    WCHAR text[32];
    switch (value.type) {
        case OV_TYPE_STRING:
            return OvServerValueText(value) ? OvServerValueText(value) : W("");
        case OV_TYPE_DWORD:
            return wstr(text, OVFormat::Format(text, std::size(text), "%u", static_cast<DWORD>(value.data)));
        case OV_TYPE_QWORD:
            return wstr(text, OVFormat::Format(text, std::size(text), "0x%016I64X", value.data));
        case OV_TYPE_ARRAY:
            return kAnyValue;
        default:
            return {};
    }
}

// Whether a value was deleted. What does not exist, or cannot be deleted, stops nothing.
template <class Delete>
bool Deleted(Delete deletion) noexcept {
    return SUCCEEDED(Guarded([&]() -> HRESULT { return ResultFromRegistry(deletion()); }));
}

// The list form of a policy, where no other item has a value.
bool DeletePolicyList(LPCWSTR policy) noexcept {
    return IsAuthPolicyName(policy) && Deleted([&] {
               CRegistryKey key;
               const wstr path = kLocalPolicyKey + wstr(1, WCHAR{'\\'}).append(AppsPolicyPrefix);
               const LONG error = key.Open(HKEY_LOCAL_MACHINE, path.c_str(), kPolicyWriteAccess);
               return error ? error : RegDeleteValueW(key.Get(), policy);
           });
}

bool DeleteLocalValue(LPCWSTR name) noexcept {
    return Deleted([&] {
        const CRegistryKey key = OpenLocalKey(name);
        return RegDeleteValueW(key.Get(), name);
    });
}

// What the arguments of a write give it, before anything else is done.
template <class Ask>
HRESULT Refusal(OVTraceNS::CTraceScope& scope, Ask areMissing) noexcept {
    const HRESULT hr = Guarded([&]() -> HRESULT { return areMissing() ? E_INVALIDARG : S_OK; });
    if (FAILED(hr)) scope.Result("", hr);
    return hr;
}

}  // namespace

// The event of a write that changed something. `add` puts the values in front of who did it. Whatever goes wrong with
// the event, the write's result stands.
template <class Add>
void CServerInfo::LogWrite(LPCWSTR name, HRESULT hr, DWORD done, DWORD failed, OVTraceNS::CTraceScope& scope,
                           Add add) noexcept {
    try {
        LogEvent event(1, FAILED(hr) ? failed : done, GUID{});
        event << name;
        add(event);
        event << OVLog::InitiatedBy();
        if (FAILED(hr)) event << OVLog::GetErrorMessage(hr);
        m_log.Log(event);
    } catch (...) {
        scope.Print("Logging failure.");
    }
}

// A setter of plain items: `ask` gives the old value, `put` writes the new one, `differs` compares the two.
template <class Ask, class Put, class Differs, class Add>
HRESULT CServerInfo::SetPlainItem(LPCWSTR name, OVTraceNS::CTraceScope& scope, Ask ask, Put put, Differs differs,
                                  Add add) noexcept {
    bool changed = false;
    const HRESULT hr = Guarded([&]() -> HRESULT {
        RaiseIfFailed(AccessCheck2(nullptr, kWriteItems, nullptr));
        const HRESULT before = ask();
        LPCWSTR leaf = name;
        CRegistryKey key = OpenLocalKey(leaf);
        RaiseIfRegistryFailed(put(key, leaf));
        if (FAILED(before) || (before == S_FALSE && differs())) {
            changed = true;
            scope.Print("Value was changed, notify other components");
            NotifyLocalPolicyChange(name);
        }
        return S_OK;
    });
    if (changed) LogWrite(name, hr, kEventValueSet, kEventValueSetFailed, scope, add);
    scope.Result("", hr);
    return hr;
}

STDMETHODIMP CServerInfo::SetItemLong(LPCWSTR name, DWORD value) {
    OVTraceNS::CTraceScope scope("CServerInfo::SetItemLong", 0);
    const CComPtr<IUnknown> alive = StayAlive();
    if (const HRESULT hr = Refusal(scope, [&] { return IsNoName(name); }); FAILED(hr)) return hr;
    DWORD old = 0;
    return SetPlainItem(
        name, scope, [&] { return GetItemLong(name, &old); },
        [&](CRegistryKey& key, LPCWSTR leaf) { return key.SetDword(leaf, value); }, [&] { return old != value; },
        [&](LogEvent& event) { event << old << value; });
}

STDMETHODIMP CServerInfo::SetItemString(LPCWSTR name, LPCWSTR value) {
    OVTraceNS::CTraceScope scope("CServerInfo::SetItemString", 0);
    const CComPtr<IUnknown> alive = StayAlive();
    const HRESULT refused = Refusal(scope, [&] {
        if (IsNoName(name) || !value) return true;
        CheckText(value);
        return false;
    });
    if (FAILED(refused)) return refused;
    CTaskText old;
    return SetPlainItem(
        name, scope, [&] { return GetItemString(name, &old); },
        [&](CRegistryKey& key, LPCWSTR leaf) { return key.SetString(leaf, value); },
        [&] { return CompareNames(old.Get(), value) != 0; }, [&](LogEvent& event) { event << old.Get() << value; });
}

STDMETHODIMP CServerInfo::SetItem(LPCWSTR name, const OV_SERVER_VALUE* value) {
    OVTraceNS::CTraceScope scope("CServerInfo::SetItem", 0);
    const CComPtr<IUnknown> alive = StayAlive();
    return AtBoundary(scope, [&]() -> HRESULT {
        if (!value || IsNoName(name)) return E_INVALIDARG;
        CheckReadable(value);
        if (value->type == OV_TYPE_ARRAY && value->items) CheckReadable(value->items, static_cast<DWORD>(value->data));
        const LPCWSTR policy = ReduceName(name);
        if (IsAuthPolicyName(policy)) return SetPolicy(name, policy, *value, scope);
        switch (value->type) {
            case OV_TYPE_STRING:
                return SetItemString(name, OvServerValueText(*value));
            case OV_TYPE_ULONG:
            case OV_TYPE_DWORD:
                return SetItemLong(name, static_cast<DWORD>(value->data));
            case OV_TYPE_UINT64:
            case OV_TYPE_QWORD:
                return E_NOTIMPL;
            default:
                return E_INVALIDARG;
        }
    });
}

// `policy` is the short name in `name`.
HRESULT CServerInfo::SetPolicy(LPCWSTR name, LPCWSTR policy, const OV_SERVER_VALUE& value,
                               OVTraceNS::CTraceScope& scope) noexcept {
    bool changed = false;
    const HRESULT hr = Guarded([&]() -> HRESULT {
        RaiseIfFailed(AccessCheck2(nullptr, kWriteItems, nullptr));
        CRecord before(name);
        if (const HRESULT asked = GetInfo(1, &before); FAILED(asked)) before.hr = asked;
        RaiseIfFailed(SaveAuthPolicyGPO(HKEY_LOCAL_MACHINE, kLocalPolicyKey, policy, value));
        if (before.hr == S_OK) return S_OK;
        changed = true;
        CRecord now(name);
        // An item that was not there has no value to compare with, and is new.
        if (SUCCEEDED(GetInfo(1, &now)) && (FAILED(before.hr) || !ItemsEqual(ItemOf(before), ItemOf(now)))) {
            NotifyLocalPolicyChange(name);
        }
        return S_OK;
    });
    if (changed) {
        LogWrite(name, hr, kEventValueSet, kEventValueSetFailed, scope,
                 [&](LogEvent& event) { event << kAnyValue << kAnyValue; });
    }
    return hr;
}

STDMETHODIMP CServerInfo::DeleteItem(LPCWSTR name) {
    OVTraceNS::CTraceScope scope("CServerInfo::DeleteItem", 0);
    const CComPtr<IUnknown> alive = StayAlive();
    wstr old;
    bool changed = false;
    const HRESULT hr = Guarded([&]() -> HRESULT {
        if (IsNoName(name)) return E_INVALIDARG;
        RaiseIfFailed(AccessCheck2(nullptr, kReadItems | kWriteItems, nullptr));
        CRecord before(name);
        RaiseIfFailed(GetInfo(1, &before));
        const LPCWSTR reduced = ReduceName(name);
        const bool deletedList = DeletePolicyList(reduced);
        const bool deletedValue = DeleteLocalValue(reduced);
        if (before.hr != S_FALSE || (!deletedList && !deletedValue)) return S_OK;
        changed = true;
        old = DeletedText(before.value);
        CRecord now(name);
        if (SUCCEEDED(GetInfo(1, &now)) && !ItemsEqual(ItemOf(before), ItemOf(now))) NotifyLocalPolicyChange(name);
        return S_OK;
    });
    if (changed) {
        LogWrite(name, hr, kEventItemDeleted, kEventItemDeleteFailed, scope,
                 [&](LogEvent& event) { event << old.c_str(); });
    }
    scope.Result("", hr);
    return hr;
}
