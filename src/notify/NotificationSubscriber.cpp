#include "notify/NotificationSubscriber.h"

#include <atomic>

#include "module/Failure.h"
#include "store/PolicyNames.h"

namespace {

// One counter for all objects of the process. 0 is never a cookie, so a wrap steps over it.
DWORD NextCookie() noexcept {
    static std::atomic<DWORD> counter{0};
    DWORD next = ++counter;
    while (next == 0) next = ++counter;
    return next;
}

}  // namespace

CNotificationSubscriber::CNotificationSubscriber(LPCWSTR name, IOVInfoChangeCallback* callback)
    : m_name(name), m_callback(callback), m_id(NextCookie()) {
    m_callback->AddRef();
}

CNotificationSubscriber::CNotificationSubscriber(const CNotificationSubscriber& other)
    : m_name(other.m_name), m_callback(other.m_callback), m_id(other.m_id) {
    m_callback->AddRef();
}

CNotificationSubscriber::~CNotificationSubscriber() {
    // A client's Release may raise; a destructor must not.
    Guarded([this]() -> HRESULT {
        m_callback->Release();
        return S_OK;
    });
}

bool CNotificationSubscriber::Passes(LPCWSTR itemName) const noexcept {
    return m_name.empty() || IsSameOrSubPath(m_name, itemName);
}

HRESULT CNotificationSubscriber::Notify(DWORD count, const OV_SERVER_INFO_EX* oldInfo,
                                        const OV_SERVER_INFO_EX* newInfo) const noexcept {
    OVTraceNS::CTraceScope scope("CServerInfo::CNotificationSubscriber::Notify", 0);
    return AtBoundary(scope, [&] { return m_callback->OnInfoChanged(count, oldInfo, newInfo); });
}
