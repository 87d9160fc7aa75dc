// The object's part in a policy refresh.
#include "module/Failure.h"
#include "store/ServerInfo.h"

BOOL CServerInfo::Subscribe() {
    OVTraceNS::CTraceScope scope("CServerInfo::Subscribe", 0);
    CLockGuard lock(m_lock);
    return RegisterGPNotification();
}

// Not under m_lock: a refresh that waits for the lock must be able to finish before this returns.
void CServerInfo::Unsubscribe() noexcept {
    OVTraceNS::CTraceScope scope("CServerInfo::Unsubscribe", 0);
    DropNotification();
    scope.Print("Completed.");
}

void CServerInfo::GPOThreadProc(void* object) noexcept {
    OVTraceNS::CTraceScope scope("CServerInfo::GPOThreadProc", 0);
    auto* self = static_cast<CServerInfo*>(object);
    AtBoundary(scope, [self]() -> HRESULT {
        CLockGuard lock(self->m_lock);
        self->LoadMachineAll(true);
        self->NotifyAllSubscribers();
        return S_OK;
    });
    if (self->m_endPutOff) self->EndSelf();
}

// A client may drop its last reference in a callback of a refresh, which still needs the object then. On every other
// thread the end waits for the refresh, so that nothing of the object runs when the client's Release returns.
bool CServerInfo::PutOffEnd() noexcept {
    if (!IsRefreshedHere(this)) return false;
    m_endPutOff = true;
    return true;
}
