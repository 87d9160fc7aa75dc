// Which credentials apply inside a running session: to the caller in the caller's session, or to a named user.
//
//                          caller                        named user
//   kiosk                  of the caller's session       of the product
//   first item             the caller's own policy,      the machine's
//                          then the machine's
//   administrators, users  by the caller's token         by IsAdmin
#include "authpolicy/PolicyList.h"
#include "authpolicy/UserIdentity.h"
#include "module/ClientPointer.h"
#include "security/AccessToken.h"
#include "security/ClientImpersonation.h"
#include "store/ServerInfo.h"

namespace {

LPCWSTR RuntimeItem(bool kiosk) noexcept {
    return kiosk ? W("KioskRuntimePolicy") : W("RuntimePolicy");
}

LPCWSTR RuntimeItemFor(bool isAdmin, OVTraceNS::CTraceScope& scope) noexcept {
    return ItemByRole(isAdmin, W("RuntimePolicyAdmin"), W("RuntimePolicyUser"), scope);
}

// 0xFFFFFFFF where it cannot be had.
DWORD SessionOfCaller() {
    CAccessToken token;
    {
        const CClientImpersonation caller;
        token.OpenThread(TOKEN_QUERY, TRUE);
    }
    DWORD session = 0xFFFFFFFF;
    token.ReadSession(session);
    return session;
}

}  // namespace

STDMETHODIMP CServerInfo::GetSessionPolicyList(DWORD* count, ULONGLONG** list) {
    OVTraceNS::CTraceScope scope("CServerInfo::GetSessionPolicyList", 0);
    const CComPtr<IUnknown> alive = StayAliveToLoad();
    return AtBoundary(scope, [&]() -> HRESULT {
        if (!ClearList(count, list)) return E_INVALIDARG;
        CLockGuard lock(m_lock);
        OV_SERVER_VALUE value = {};
        RaiseIfFailed(GetSessionPolicy(&value));
        HandOutValue(value, count, list);
        return S_OK;
    });
}

STDMETHODIMP CServerInfo::GetUserSessionPolicyList(LPCWSTR userName, DWORD nameFormat, DWORD* count, ULONGLONG** list) {
    OVTraceNS::CTraceScope scope("CServerInfo::GetUserSessionPolicyList", 0);
    const CComPtr<IUnknown> alive = StayAliveToLoad();
    return AtBoundary(scope, [&]() -> HRESULT {
        if (IsNoName(userName)) return E_INVALIDARG;
        if (!ClearList(count, list)) return E_INVALIDARG;
        CLockGuard lock(m_lock);
        OV_SERVER_VALUE value = {};
        RaiseIfFailed(GetUserSessionPolicy(userName, nameFormat, &value));
        HandOutValue(value, count, list);
        return S_OK;
    });
}

HRESULT CServerInfo::GetSessionPolicy(OV_SERVER_VALUE* value) {
    OVTraceNS::CTraceScope scope("CServerInfo::GetSessionPolicy", 0);
    return AtBoundary(scope, [&]() -> HRESULT {
        if (!value) return E_INVALIDARG;
        CLockGuard lock(m_lock);
        Initialize(true);
        // Whatever goes wrong on the way to the common item leads to those of administrators and users.
        const HRESULT common = Guarded([&] { return ReadCommonSessionItem(*value, scope); });
        if (SUCCEEDED(common)) return common;
        scope.Print("Distinguish between admins and users.");
        return ReadPolicyItem(RuntimeItemFor(IsCallerAdministrator(), scope), *value);
    });
}

HRESULT CServerInfo::ReadCommonSessionItem(OV_SERVER_VALUE& value, OVTraceNS::CTraceScope& scope) {
    const bool kiosk = IsKioskSession(SessionOfCaller());
    scope.Print("Kiosk session = %d", kiosk ? 1 : 0);
    NoteStep(DecisionStep::kKiosk, W("session"), S_OK, kiosk ? 1 : 0);
    const LPCWSTR name = RuntimeItem(kiosk);
    const HRESULT own = Guarded([&]() -> HRESULT {
        const CClientImpersonation caller;
        OV_SERVER_INFO_EX record = {name, OV_QUERY, {}};
        const HRESULT hr = ReadCurrentUserValue(record);
        if (SUCCEEDED(hr)) value = record.value;
        return hr;
    });
    NoteStep(DecisionStep::kUserItem, name, own, 0);
    if (SUCCEEDED(own)) return own;
    const HRESULT hr = ReadPolicyItem(name, value);
    if (SUCCEEDED(hr)) scope.Print("Do not distinguish between admins and users.");
    return hr;
}

HRESULT CServerInfo::GetUserSessionPolicy(LPCWSTR userName, DWORD nameFormat, OV_SERVER_VALUE* value) {
    OVTraceNS::CTraceScope scope("CServerInfo::GetUserSessionPolicy", 0);
    return AtBoundary(scope, [&]() -> HRESULT {
        if (!value || !userName || !*userName) return E_INVALIDARG;
        CLockGuard lock(m_lock);
        Initialize(true);
        const bool kiosk = IsKioskProduct();
        scope.Print("Kiosk product = %d", kiosk ? 1 : 0);
        NoteStep(DecisionStep::kKiosk, W("product"), S_OK, kiosk ? 1 : 0);
        const HRESULT common = ReadPolicyItem(RuntimeItem(kiosk), *value);
        if (SUCCEEDED(common)) {
            scope.Print("Do not distinguish between admins and users.");
            return common;
        }
        scope.Print("Distinguish between admins and users.");
        return ReadPolicyItem(RuntimeItemFor(IsAdmin(userName, nameFormat) == S_OK, scope), *value);
    });
}
