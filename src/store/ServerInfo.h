// CServerInfo: the object that answers what policy holds on this computer.
//
// It is declared here once, with its bases, its fields and its operations; each folder implements the members of its
// own concern.
//
//   new --FinalConstruct--> constructed --first query--> answering --last Release--> FinalRelease, gone
//
// Locks    m_lock is the object's one lock, recursive. It guards every map and flag below; an operation that needs it
//          takes it for its whole length, and those that expect it held say so. TraceLock may be taken under it.
#pragma once

#include <orvantis/ServerInfo.h>

#include <map>
#include <memory>
#include <span>

#include "Platform.h"
#include "module/ComFrame.h"
#include "module/RegistryKey.h"
#include "notify/NotificationSubscriber.h"
#include "notify/PolicyRefresh.h"
#include "sources/LoadObserver.h"
#include "store/LoadReport.h"
#include "store/PolicyMap.h"

class CValueWalk;
class CExtXMLPolicyReader;

class CServerInfo : public CComObjectRootEx<CComMultiThreadModel>,
                    public CComCoClass<CServerInfo, &CLSID_ServerInfo>,
                    public CGPNotifyImpl<CServerInfo>,
                    public IOVServerInfo2,
                    public IOVServerInfoExt,
                    public IOVServerInfoNotify {
  public:
    using CExtXMLPolicyReader = ::CExtXMLPolicyReader;

    static std::span<const InterfaceEntry<CServerInfo>> InterfaceMap() noexcept;

    // Queries: store/ItemQueries.cpp. Described in the public header.
    STDMETHOD(GetInfo)(DWORD count, OV_SERVER_INFO_EX* records) override;
    STDMETHOD(GetItemLong)(LPCWSTR name, DWORD* value) override;
    STDMETHOD(GetItemString)(LPCWSTR name, LPWSTR* value) override;

    // Writes: store/ItemWrites.cpp. Not served yet.
    STDMETHOD(SetItemLong)(LPCWSTR name, DWORD value) override;
    STDMETHOD(SetItemString)(LPCWSTR name, LPCWSTR value) override;
    STDMETHOD(DeleteItem)(LPCWSTR name) override;
    STDMETHOD(SetItem)(LPCWSTR name, const OV_SERVER_VALUE* value) override;

    // Workgroup policies: sources/WorkgroupPolicies.cpp. Described in the public header.
    STDMETHOD(SetWorkgroupPolicies)() override;
    STDMETHOD(CopyWorkgroupPoliciesLocally)(LPCWSTR xml) override;

    // Changes: notify/Subscribers.cpp. Described in the public header.
    STDMETHOD(RegisterNotification)(LPCWSTR name, IOVInfoChangeCallback* callback, DWORD* cookie) override;
    STDMETHOD(UnregisterNotification)(DWORD cookie) override;

    // One refresh of `object`, on a thread of the wait pool: notify/Refresh.cpp.
    static void GPOThreadProc(void* object) noexcept;

    bool PutOffEnd() noexcept;  // notify/Refresh.cpp
    void FinalRelease() noexcept;

    // For the tools of this tree, which tell what no interface does. All take m_lock.
    CLoadReport LastLoad() noexcept;
    CPolicyMap ManagedItems();  // a copy
    // From now on `observer` looks on at every load; null for none. It outlives the object or is taken away.
    void Observe(CLoadObserver* observer) noexcept;

  protected:
    // Load and compare: store/LoadCompare.cpp. Failures are raised.
    void Initialize(bool load);
    void LoadMachineAll(bool enterPolicySection);

    // The machine's Group Policy: sources/GroupPolicy.cpp. The caller holds m_lock.
    void InsertGPOValues(LPCWSTR szSubKey);  // relative to the root of the tree; null for the root itself
    bool InsertGPOKey(const wstr& path, CRegistryKey& key);
    void InsertAuthPolicyGPO(HKEY hKey, LPCWSTR name);
    // An item of a registry key, below HKEY_LOCAL_MACHINE; a stronger one stays.
    void InsertFromKey(CPolicyItem item, LPCWSTR key);

    // Policy files: sources/WorkgroupPolicies.cpp. A file that is not there is passed over. The caller holds m_lock.
    void ReadAuthPolicyFile(LPCWSTR path);
    void ReadSettingsFile(LPCWSTR path);

    // Writes the items of `map` below `path`, each at the place that its name gives: sources/PolicySave.cpp. What
    // becomes of single items stands in the trace.
    HRESULT SavePolicies(const CPolicyMap& map, HKEY root, LPCWSTR path) noexcept;

    // Policy refresh: notify/Refresh.cpp. Subscribe is nonzero when the subscription stands.
    BOOL Subscribe();
    void Unsubscribe() noexcept;

    // Deliveries: notify/Subscribers.cpp. NotifyLocalPolicyChange tells of one item that was written.
    HRESULT NotifySubscriber(const CNotificationSubscriber& subscriber, const CPolicyMap& changes) noexcept;
    void NotifyAllSubscribers();
    HRESULT NotifyLocalPolicyChange(LPCWSTR name) noexcept;

    // Machine values: store/MachineValues.cpp. Both put the outcome into record.hr and return it: 0 from the store, 1
    // from a local key, else a failure. They raise nothing. The caller holds m_lock.
    HRESULT GetMachineValue(OV_SERVER_INFO_EX& record) noexcept;
    HRESULT GetRegistryValue(LPCWSTR basePath, OV_SERVER_INFO_EX& record) noexcept;

    // Guarded by m_lock.
    CPolicyMap m_machineItems;  // the store: what is managed, as of the last load
    std::shared_ptr<const CPolicyMap> m_changedItems = std::make_shared<const CPolicyMap>();  // see ChangedItems
    std::map<DWORD, CNotificationSubscriber> m_subscribers;                                   // by cookie
    CLoadReport m_lastLoad;
    CLoadObserver* m_observer = nullptr;  // not owned
    bool m_initialized = false;           // Initialize has done its work
    bool m_subscribed = false;            // the Group Policy subscription exists
    bool m_terminating = false;           // no new subscribers
    bool m_endPutOff = false;             // the refresh on this thread ends the object; of that thread alone

  private:
    friend struct StoreDoor;  // tests and benchmarks put items into the store through it

    // What the last load changed, each name with the value from before. A delivery keeps its own while it lasts.
    const std::shared_ptr<const CPolicyMap>& ChangedItems() const noexcept;
    template <class Use>
    void ForEachSubscriber(Use use);

    void InsertGPOValue(const CValueWalk& walk, const wstr& path, LPCWSTR key, OVTraceNS::CTraceScope& scope);
    void ReadSource(const PolicySource& source, bool enterPolicySection, OVTraceNS::CTraceScope& scope);
    void ReadPolicyFile(LPCWSTR path, PolicyForm form);
    void AnswerRecord(OV_SERVER_INFO_EX& record) noexcept;
    HRESULT GetItemOfType(LPCWSTR name, DWORD type, OV_SERVER_VALUE& value);
    void FindMachineValue(OV_SERVER_INFO_EX& record, bool defaultOnly, OVTraceNS::CTraceScope& scope);
    bool ReadLocalPolicy(OV_SERVER_INFO_EX& record, std::span<const LPCWSTR> keys);
};
