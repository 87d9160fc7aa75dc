#include "store/ServerInfo.h"

std::span<const InterfaceEntry<CServerInfo>> CServerInfo::InterfaceMap() noexcept {
    static constexpr InterfaceEntry<CServerInfo> kMap[] = {
        {IID_IOVServerInfo2, &InterfaceOf<CServerInfo, IOVServerInfo2>},
        {IID_IOVServerInfo, &InterfaceOf<CServerInfo, IOVServerInfo>},
    };
    return kMap;
}
