#include "store/ServerInfo.h"

std::span<const InterfaceEntry<CServerInfo>> CServerInfo::InterfaceMap() noexcept {
    static constexpr InterfaceEntry<CServerInfo> kMap[] = {
        {IID_IOVServerInfo2, &InterfaceOf<CServerInfo, IOVServerInfo2>},
        {IID_IOVServerInfo, &InterfaceOf<CServerInfo, IOVServerInfo>},
        {IID_IOVServerInfoExt, &InterfaceOf<CServerInfo, IOVServerInfoExt>},
        {IID_IOVServerInfoNotify, &InterfaceOf<CServerInfo, IOVServerInfoNotify>},
    };
    return kMap;
}

void CServerInfo::FinalRelease() noexcept {
    OVTraceNS::CTraceScope scope("CServerInfo::FinalRelease", 0);
    if (m_subscribed) Unsubscribe();
    m_machineItems.Clear();
}
