// Who hears of changes: registration, and the two roads on which changes are delivered.
//
// Everything here runs under m_lock, callbacks included: they run on the thread that caused the change, and may ask,
// write, register and unregister on it, the lock being recursive. A delivery therefore never walks the table of
// subscribers itself but the cookies that stood in it when it began, and looks each one up again.
#include <vector>

#include "module/ClientPointer.h"
#include "module/Failure.h"
#include "store/ReducedName.h"
#include "store/ServerInfo.h"

namespace {

constexpr HRESULT kNoValue = HRESULT_FROM_WIN32(ERROR_NOT_SUPPORTED);
constexpr HRESULT kCallRejected = static_cast<HRESULT>(0x80010001u);

// The records of one delivery, with the names and values that they own.
class CRecords {
  public:
    CRecords() noexcept = default;
    ~CRecords() {
        for (const OV_SERVER_INFO_EX& record : m_records) {
            CoTaskMemFree(const_cast<LPWSTR>(record.name));
            FreeValue(record.value);
        }
    }
    CRecords(const CRecords&) = delete;
    CRecords& operator=(const CRecords&) = delete;

    // An empty record under a copy of the name.
    OV_SERVER_INFO_EX& Add(const wstr& name) {
        m_records.push_back({});
        auto* copy = static_cast<LPWSTR>(CoTaskMemAlloc((name.size() + 1) * sizeof(WCHAR)));
        if (!copy) throw _com_error(E_OUTOFMEMORY);
        std::char_traits<WCHAR>::copy(copy, name.c_str(), name.size() + 1);
        m_records.back().name = copy;
        return m_records.back();
    }
    DWORD Count() const noexcept { return static_cast<DWORD>(m_records.size()); }
    const OV_SERVER_INFO_EX* Data() const noexcept { return m_records.data(); }

  private:
    std::vector<OV_SERVER_INFO_EX> m_records;
};

}  // namespace

STDMETHODIMP CServerInfo::RegisterNotification(LPCWSTR name, IOVInfoChangeCallback* callback, DWORD* cookie) {
    OVTraceNS::CTraceScope scope("CServerInfo::RegisterNotification", 0);
    const CComPtr<IUnknown> alive = StayAlive();
    return AtBoundary(scope, [&]() -> HRESULT {
        if (!name || !callback) return E_INVALIDARG;
        if (!cookie) return E_POINTER;
        CheckText(name);
        CheckInterface(callback, 4);
        CheckWritable(cookie);
        *cookie = 0;
        CLockGuard lock(m_lock);
        if (m_terminating) return kCallRejected;
        const CNotificationSubscriber subscriber(name, callback);
        m_subscribers.emplace(subscriber.Id(), subscriber);
        *cookie = subscriber.Id();
        // What the last load changed is news to whoever comes now. The subscription stands even if this fails.
        return NotifySubscriber(subscriber, *ChangedItems());
    });
}

STDMETHODIMP CServerInfo::UnregisterNotification(DWORD cookie) {
    OVTraceNS::CTraceScope scope("CServerInfo::UnregisterNotification", 0);
    const CComPtr<IUnknown> alive = StayAlive();
    return AtBoundary(scope, [&]() -> HRESULT {
        CLockGuard lock(m_lock);
        // Taken out before it goes: the client's Release may come back here.
        const auto gone = m_subscribers.extract(cookie);
        if (!gone.empty()) return S_OK;
        return m_terminating ? S_FALSE : E_INVALIDARG;
    });
}

HRESULT CServerInfo::NotifySubscriber(const CNotificationSubscriber& subscriber, const CPolicyMap& changes) noexcept {
    OVTraceNS::CTraceScope scope("CServerInfo::NotifySubscriber", 0);
    return AtBoundary(scope, [&]() -> HRESULT {
        CRecords before;
        CRecords now;
        for (std::size_t rank = 0; rank < changes.Size(); ++rank) {
            const CPolicyItem& item = changes.At(rank);
            if (!subscriber.Passes(item.name.c_str())) continue;
            OV_SERVER_INFO_EX& earlier = before.Add(item.name);
            earlier.hr = CopyValueOut(item, earlier.value);
            GetMachineValue(now.Add(item.name));
        }
        return now.Count() == 0 ? S_OK : subscriber.Notify(now.Count(), before.Data(), now.Data());
    });
}

void CServerInfo::NotifyAllSubscribers() {
    OVTraceNS::CTraceScope scope("CServerInfo::NotifyAllSubscribers", 0);
    CLockGuard lock(m_lock);
    // A callback may bring about another load; this delivery goes on with what it began with.
    const std::shared_ptr<const CPolicyMap> changes = ChangedItems();
    if (changes->IsEmpty()) return;
    ForEachSubscriber([&](const CNotificationSubscriber& subscriber) { NotifySubscriber(subscriber, *changes); });
}

HRESULT CServerInfo::NotifyLocalPolicyChange(LPCWSTR name) noexcept {
    OVTraceNS::CTraceScope scope("CServerInfo::NotifyLocalPolicyChange", 0);
    return AtBoundary(scope, [&]() -> HRESULT {
        CLockGuard lock(m_lock);
        CRecords before;
        CRecords now;
        before.Add(name).hr = kNoValue;  // a write passes no old value
        OV_SERVER_INFO_EX& record = now.Add(name);
        {
            const CReducedName reduced(record);      // told under the name that was written, read under its short one
            RaiseIfFailed(GetMachineValue(record));  // nobody is told of an item that cannot be read any more
        }
        ForEachSubscriber([&](const CNotificationSubscriber& subscriber) {
            if (subscriber.Passes(name)) scope.Result("Notify", subscriber.Notify(1, before.Data(), now.Data()));
        });
        return S_OK;
    });
}

// Those that are registered now, in the order of their cookies, as long as they still are when their turn comes.
template <class Use>
void CServerInfo::ForEachSubscriber(Use use) {
    std::vector<DWORD> cookies;
    cookies.reserve(m_subscribers.size());
    for (const auto& entry : m_subscribers) cookies.push_back(entry.first);
    for (const DWORD cookie : cookies) {
        const auto found = m_subscribers.find(cookie);
        if (found == m_subscribers.end()) continue;
        const CNotificationSubscriber subscriber = found->second;  // stays alive if its callback unregisters it
        use(subscriber);
    }
}

const std::shared_ptr<const CPolicyMap>& CServerInfo::ChangedItems() const noexcept {
    return m_changedItems;
}
