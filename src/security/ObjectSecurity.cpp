// Who may do what with the object: the system and administrators read and write, everybody reads.
#include "module/Failure.h"
#include "store/ServerInfo.h"

HRESULT CServerInfo::CreateDefaultSecurityDescriptor() {
    OVTraceNS::CTraceScope scope("CServerInfo::CreateDefaultSecurityDescriptor", 0);
    return AtBoundary(scope, [&]() -> HRESULT {
        RaiseIfFailed(m_security.AddAllowedAce(LocalSystemSid(), kReadItems | kWriteItems));
        RaiseIfFailed(m_security.AddAllowedAce(AdministratorsSid(), kReadItems | kWriteItems));
        RaiseIfFailed(m_security.AddAllowedAce(EveryoneSid(), kReadItems));
        return S_OK;
    });
}
