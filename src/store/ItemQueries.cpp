// The questions of IOVServerInfo: an array of records, one number, one string.
#include "module/ClientPointer.h"
#include "module/Failure.h"
#include "security/AccessToken.h"
#include "security/ClientImpersonation.h"
#include "store/ReducedName.h"
#include "store/ServerInfo.h"

STDMETHODIMP CServerInfo::GetInfo(DWORD count, OV_SERVER_INFO_EX* records) {
    return Answer(count, records, true);
}

// `fromClient`: the records and their names are not known to be memory.
HRESULT CServerInfo::Answer(DWORD count, OV_SERVER_INFO_EX* records, bool fromClient) noexcept {
    OVTraceNS::CTraceScope scope("CServerInfo::GetInfo", 0);
    const CComPtr<IUnknown> alive = StayAliveToLoad();
    return AtBoundary(scope, [&]() -> HRESULT {
        if (count != 0 && !records) return E_POINTER;
        if (fromClient) CheckWritable(records, count);
        CLockGuard lock(m_lock);
        Initialize(true);
        for (DWORD i = 0; i < count; ++i) {
            if (fromClient && records[i].name && IsBadText(records[i].name)) {
                records[i].value = {};
                records[i].hr = E_UNEXPECTED;
                scope.Result("", records[i].hr);
            } else {
                AnswerRecord(records[i]);
            }
        }
        return S_OK;
    });
}

void CServerInfo::AnswerRecord(OV_SERVER_INFO_EX& record) noexcept {
    const CReducedName reduced(record);
    const bool ofUser = record.hr != OV_QUERY_DEFAULT && IsUserScopedName(record.name);
    if (!ofUser || !AnswerForUser(record)) GetMachineValue(record);
}

// From the caller's own policy; false when that has no answer. The system itself has no such policy, and a thread
// without a caller no token.
bool CServerInfo::AnswerForUser(OV_SERVER_INFO_EX& record) noexcept {
    CLockGuard lock(m_lock);
    return SUCCEEDED(Guarded([&]() -> HRESULT {
        const CClientImpersonation impersonation;
        CAccessToken token;
        CSid caller;
        if (const DWORD error = token.OpenThread(TOKEN_QUERY, TRUE)) return HRESULT_FROM_WIN32(error);
        if (const DWORD error = token.ReadUser(caller)) return HRESULT_FROM_WIN32(error);
        return caller == LocalSystemSid() ? kNotFound : ReadCurrentUserValue(record);
    }));
}

STDMETHODIMP CServerInfo::GetItemLong(LPCWSTR name, DWORD* value) {
    OVTraceNS::CTraceScope scope("CServerInfo::GetItemLong", 0);
    return AtBoundary(scope, [&]() -> HRESULT {
        if (IsNoName(name) || !value) return E_INVALIDARG;
        CheckWritable(value);
        *value = 0;
        OV_SERVER_VALUE found;
        const HRESULT hr = GetItemOfType(name, OV_TYPE_DWORD, found);
        if (SUCCEEDED(hr)) *value = static_cast<DWORD>(found.data);
        return hr;
    });
}

STDMETHODIMP CServerInfo::GetItemString(LPCWSTR name, LPWSTR* value) {
    OVTraceNS::CTraceScope scope("CServerInfo::GetItemString", 0);
    return AtBoundary(scope, [&]() -> HRESULT {
        if (IsNoName(name) || !value) return E_INVALIDARG;
        CheckWritable(value);
        *value = nullptr;
        OV_SERVER_VALUE found;
        const HRESULT hr = GetItemOfType(name, OV_TYPE_STRING, found);
        if (SUCCEEDED(hr)) *value = const_cast<LPWSTR>(OvServerValueText(found));
        return hr;
    });
}

// The one record of a single-name question, as any client would ask with GetInfo.
HRESULT CServerInfo::GetItemOfType(LPCWSTR name, DWORD type, OV_SERVER_VALUE& value) {
    OV_SERVER_INFO_EX record = {name, OV_QUERY, {}};
    const HRESULT hr = Answer(1, &record, false);
    if (FAILED(hr)) return hr;
    if (FAILED(record.hr)) return record.hr;
    if (record.value.type != type) {
        FreeValue(record.value);
        return HRESULT_FROM_WIN32(ERROR_INVALID_DATA);
    }
    value = record.value;
    return record.hr;
}
