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
    // A client may drop its last reference in a callback; the object goes when the refresh is through with it. One
    // whose last reference is gone already has nobody left to tell.
    if (!self->TryHoldSelf()) return;
    AtBoundary(scope, [self]() -> HRESULT {
        CLockGuard lock(self->m_lock);
        self->LoadMachineAll(true);
        self->NotifyAllSubscribers();
        return S_OK;
    });
    self->DropSelf();
}
