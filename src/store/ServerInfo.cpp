#include "store/ServerInfo.h"

#include <utility>

#include "module/Failure.h"

std::span<const InterfaceEntry<CServerInfo>> CServerInfo::InterfaceMap() noexcept {
    static constexpr InterfaceEntry<CServerInfo> kMap[] = {
        {IID_IOVComponentInit, &InterfaceOf<CServerInfo, IOVComponentInit>},
        {IID_IOVServerInfo2, &InterfaceOf<CServerInfo, IOVServerInfo2>},
        {IID_IOVServerInfo, &InterfaceOf<CServerInfo, IOVServerInfo>},
        {IID_IOVServerInfoExt, &InterfaceOf<CServerInfo, IOVServerInfoExt>},
        {IID_IOVAuthenticationPolicyEx, &InterfaceOf<CServerInfo, IOVAuthenticationPolicyEx>},
        {IID_IOVServerInfoNotify, &InterfaceOf<CServerInfo, IOVServerInfoNotify>},
    };
    return kMap;
}

STDMETHODIMP CServerInfo::Init() {
    OVTraceNS::CTraceScope scope("CServerInfo:Init", 0);
    return S_OK;
}

STDMETHODIMP CServerInfo::Term() {
    OVTraceNS::CTraceScope scope("CServerInfo:Term", 0);
    const CComPtr<IUnknown> alive = StayAlive();
    return AtBoundary(scope, [&]() -> HRESULT {
        CLockGuard lock(m_lock);
        m_terminating = true;
        // Taken out before they go: a client's Release may come back here.
        std::exchange(m_subscribers, {}).clear();
        return S_OK;
    });
}

void CServerInfo::Prepare() {
    CreateDefaultSecurityDescriptor();
    m_adminAcl.InitializeFromThreadToken(false, true);
    RaiseIfFailed(m_adminAcl.AddAllowedAce(AdministratorsSid(), kReadItems));
}

void CServerInfo::Finish() noexcept {
    if (m_subscribed) Unsubscribe();
}

HRESULT CServerInfo::FinalConstruct() {
    OVTraceNS::CTraceScope scope("CServerInfo::FinalConstruct", 0);
    return AtBoundary(scope, [&]() -> HRESULT {
        Prepare();
        Load();  // an object without a past begins with an empty store
        return S_OK;
    });
}

void CServerInfo::FinalRelease() noexcept {
    OVTraceNS::CTraceScope scope("CServerInfo::FinalRelease", 0);
    AtBoundary(scope, [&]() -> HRESULT {
        Finish();
        CLockGuard lock(m_lock);
        Save();
        SaveCachedInfo();
        return S_OK;
    });
    m_machineItems.Clear();
}
