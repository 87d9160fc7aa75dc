// CServerInfo: the object that answers what policy holds on this computer.
//
// It is declared here once, with its bases, its fields and its operations; each folder implements the members of its
// own concern.
//
//   new --FinalConstruct--> constructed --first query--> answering --last Release--> FinalRelease, gone
//
// The first fills the store from the cache file, the first query from the sources, and the last writes the cache file
// and the registry copy. Term may come in between: no subscribers from then on.
//
// Locks    m_lock is the object's one lock, recursive. It guards every map and flag below; an operation that needs it
//          takes it for its whole length, and those that expect it held say so. TraceLock may be taken under it.
#pragma once

#include <orvantis/ServerInfo.h>

#include <atomic>
#include <map>
#include <memory>
#include <span>

#include "Platform.h"
#include "authpolicy/DecisionObserver.h"
#include "authpolicy/PolicyList.h"
#include "diagnostics/EventLog.h"
#include "module/ComFrame.h"
#include "module/ComPtr.h"
#include "module/RegistryKey.h"
#include "notify/NotificationSubscriber.h"
#include "notify/PolicyRefresh.h"
#include "security/SecureObject.h"
#include "sources/LoadObserver.h"
#include "store/LoadReport.h"
#include "store/PolicyMap.h"

class CValueWalk;
class CExtXMLPolicyReader;

class CServerInfo : public CComObjectRootEx<CComMultiThreadModel>,
                    public CComCoClass<CServerInfo, &CLSID_ServerInfo>,
                    public CGPNotifyImpl<CServerInfo>,
                    public COVSecureObject,
                    public IOVComponentInit,
                    public IOVServerInfo2,
                    public IOVServerInfoExt,
                    public IOVAuthenticationPolicyEx,
                    public IOVServerInfoNotify {
  public:
    using CExtXMLPolicyReader = ::CExtXMLPolicyReader;

    static std::span<const InterfaceEntry<CServerInfo>> InterfaceMap() noexcept;

    // The suite's life cycle: store/ServerInfo.cpp. Described in the public header.
    STDMETHOD(Init)() override;
    STDMETHOD(Term)() override;

    // Queries: store/ItemQueries.cpp. Described in the public header.
    STDMETHOD(GetInfo)(DWORD count, OV_SERVER_INFO_EX* records) override;
    STDMETHOD(GetItemLong)(LPCWSTR name, DWORD* value) override;
    STDMETHOD(GetItemString)(LPCWSTR name, LPWSTR* value) override;

    // Writes: store/ItemWrites.cpp. Described in the public header.
    STDMETHOD(SetItemLong)(LPCWSTR name, DWORD value) override;
    STDMETHOD(SetItemString)(LPCWSTR name, LPCWSTR value) override;
    STDMETHOD(DeleteItem)(LPCWSTR name) override;
    STDMETHOD(SetItem)(LPCWSTR name, const OV_SERVER_VALUE* value) override;

    // Workgroup policies: sources/WorkgroupPolicies.cpp. Described in the public header.
    STDMETHOD(SetWorkgroupPolicies)() override;
    STDMETHOD(CopyWorkgroupPoliciesLocally)(LPCWSTR xml) override;

    // Decisions: authpolicy/. Described in the public header.
    STDMETHOD(GetUserLogonPolicyList)(LPCWSTR userName, DWORD nameFormat, DWORD* count, ULONGLONG** list) override;
    STDMETHOD(GetSessionPolicyList)(DWORD* count, ULONGLONG** list) override;
    STDMETHOD(GetUserSessionPolicyList)
    (LPCWSTR userName, DWORD nameFormat, DWORD* count, ULONGLONG** list) override;
    STDMETHOD(IsAdmin)(LPCWSTR userName, DWORD nameFormat) override;

    // Changes: notify/Subscribers.cpp. Described in the public header.
    STDMETHOD(RegisterNotification)(LPCWSTR name, IOVInfoChangeCallback* callback, DWORD* cookie) override;
    STDMETHOD(UnregisterNotification)(DWORD cookie) override;

    // One refresh of `object`, on a thread of the wait pool: notify/Refresh.cpp.
    static void GPOThreadProc(void* object) noexcept;

    HRESULT FinalConstruct();
    bool PutOffEnd() noexcept;  // notify/Refresh.cpp
    void FinalRelease() noexcept;

    // For the tools of this tree, which tell what no interface does. All take m_lock.
    CLoadReport LastLoad() noexcept;
    CPolicyMap ManagedItems();  // a copy
    // From now on `observer` looks on at every load; null for none. It outlives the object or is taken away.
    void Observe(CLoadObserver* observer) noexcept;
    // And at every decision.
    void Observe(CDecisionObserver* observer) noexcept;
    // One record from the policy of the caller of the current call; false when that has no answer.
    bool AnswerForUser(OV_SERVER_INFO_EX& record) noexcept;

  protected:
    // For an operation that calls clients back: one of them may drop the last reference in the middle of it.
    CComPtr<IUnknown> StayAlive() noexcept { return CComPtr<IUnknown>(static_cast<IOVComponentInit*>(this)); }
    // The same for a question, which does so when it brings about the first load.
    CComPtr<IUnknown> StayAliveToLoad() noexcept {
        return m_settled.load(std::memory_order_relaxed) ? CComPtr<IUnknown>() : StayAlive();
    }

    // The beginning and the end of an object but for what it finds and leaves behind. Prepare raises its failure.
    void Prepare();
    void Finish() noexcept;

    // Load and compare: store/LoadCompare.cpp. Failures are raised.
    void Initialize(bool load);
    void LoadMachineAll(bool enterPolicySection);

    // The machine's Group Policy: sources/GroupPolicy.cpp. The caller holds m_lock.
    void InsertGPOValues(LPCWSTR szSubKey);  // relative to the root of the tree; null for the root itself
    bool InsertGPOKey(const wstr& path, CRegistryKey& key, OVTraceNS::CTraceScope& scope);
    void InsertAuthPolicyGPO(HKEY hKey, LPCWSTR name);
    // An item of a registry key, below HKEY_LOCAL_MACHINE; a stronger one stays.
    void InsertFromKey(CPolicyItem item, LPCWSTR key);

    // Policy files: sources/WorkgroupPolicies.cpp. A file that is not there is passed over. The caller holds m_lock.
    void ReadAuthPolicyFile(LPCWSTR path);
    void ReadSettingsFile(LPCWSTR path);

    // Writes the items of `map` below `path`, each at the place that its name gives: sources/PolicySave.cpp. What
    // becomes of single items stands in the trace.
    HRESULT SavePolicies(const CPolicyMap& map, HKEY root, LPCWSTR path) noexcept;
    // Leaves the store in a key of its own, for readers outside: sources/CachedInfo.cpp. What the key held before goes.
    // Raises why it could not be replaced. m_lock is held.
    void SaveCachedInfo();

    // The cache file: cache/ServerCache.cpp. What fails stands in the trace too.
    HRESULT Load() noexcept;  // replaces the store; a failure before the file has proved whole leaves it as it was
    HRESULT Save() noexcept;  // 1 for an empty store, which takes the file away
    HRESULT Create(LPCWSTR fileName, HANDLE* file) noexcept;

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

    // User values: store/UserValues.cpp. As GetMachineValue, but 0 for every success. This thread acts for the user.
    HRESULT ReadCurrentUserValue(OV_SERVER_INFO_EX& record) noexcept;

    // Administrators: authpolicy/AdminDecision.cpp. The first two tell what the suite remembers of a domain's user.
    HRESULT GetAdminResultFromCache(LPCWSTR userName, DWORD nameFormat, DWORD* isAdmin) noexcept;
    HRESULT CacheAdminResult(LPCWSTR userName, DWORD nameFormat, DWORD isAdmin) noexcept;
    bool IsCallerAdministrator();  // raises why it cannot be told

    // The policy item that decides, with its value for FreeValue: authpolicy/LogonPolicy.cpp and SessionPolicy.cpp. The
    // result is the item's.
    HRESULT GetUserLogonPolicy(LPCWSTR userName, DWORD nameFormat, OV_SERVER_VALUE* value);
    HRESULT GetSessionPolicy(OV_SERVER_VALUE* value);
    HRESULT GetUserSessionPolicy(LPCWSTR userName, DWORD nameFormat, OV_SERVER_VALUE* value);

    // Security: security/ObjectSecurity.cpp. Who may do what with the object.
    HRESULT CreateDefaultSecurityDescriptor() override;

    // Guarded by m_lock.
    CPolicyMap m_machineItems;  // the store: what is managed, as of the last load
    std::shared_ptr<const CPolicyMap> m_changedItems = std::make_shared<const CPolicyMap>();  // see ChangedItems
    std::map<DWORD, CNotificationSubscriber> m_subscribers;                                   // by cookie
    CLoadReport m_lastLoad;
    CLoadObserver* m_observer = nullptr;              // not owned
    CDecisionObserver* m_decisionObserver = nullptr;  // not owned
    bool m_initialized = false;                       // Initialize has done its work
    std::atomic<bool> m_settled{false};               // Initialize will do nothing any more; read without m_lock
    bool m_subscribed = false;                        // the Group Policy subscription exists
    bool m_terminating = false;                       // no new subscribers
    bool m_endPutOff = false;  // the refresh on this thread ends the object; of that thread alone

    CSecurityDescriptor m_adminAcl;  // asked which rights an account has on it; made once
    const COVLog m_log;              // of audit events

  private:
    friend struct StoreDoor;  // tests and benchmarks put items into the store through it

    // What the last load changed, each name with the value from before. A delivery keeps its own while it lasts.
    const std::shared_ptr<const CPolicyMap>& ChangedItems() const noexcept;
    template <class Use>
    void ForEachSubscriber(Use use);

    void InsertGPOValue(const CValueWalk& walk, const wstr& path, LPCWSTR key, OVTraceNS::CTraceScope& scope);
    void ReadSource(const PolicySource& source, bool enterPolicySection, OVTraceNS::CTraceScope& scope);
    void ReadPolicyFile(LPCWSTR path, PolicyForm form);
    // One step of a decision, for whoever looks on.
    void NoteStep(DecisionStep step, LPCWSTR name, HRESULT result, ULONGLONG number) const {
        if (m_decisionObserver) m_decisionObserver->Step(step, name, result, number);
    }
    bool IsLocalAdmin(LPCWSTR samName, OVTraceNS::CTraceScope& scope);
    bool IsDomainAdmin(LPCWSTR userName, DWORD nameFormat, LPWSTR samName, OVTraceNS::CTraceScope& scope);
    bool IsLockedByAgent(DWORD* count, ULONGLONG** list);
    void AdjustLogonList(CPolicyList& entries);
    HRESULT ReadPolicyItem(LPCWSTR name, OV_SERVER_VALUE& value);
    HRESULT ReadCommonSessionItem(OV_SERVER_VALUE& value, OVTraceNS::CTraceScope& scope);

    template <class Ask, class Put, class Differs, class Add>
    HRESULT SetPlainItem(LPCWSTR name, OVTraceNS::CTraceScope& scope, Ask ask, Put put, Differs differs,
                         Add add) noexcept;
    HRESULT SetPolicy(LPCWSTR name, LPCWSTR policy, const OV_SERVER_VALUE& value,
                      OVTraceNS::CTraceScope& scope) noexcept;
    template <class Add>
    void LogWrite(LPCWSTR name, HRESULT hr, DWORD done, DWORD failed, OVTraceNS::CTraceScope& scope, Add add) noexcept;

    HRESULT Answer(DWORD count, OV_SERVER_INFO_EX* records, bool fromClient) noexcept;
    void AnswerRecord(OV_SERVER_INFO_EX& record) noexcept;
    HRESULT GetItemOfType(LPCWSTR name, DWORD type, OV_SERVER_VALUE& value);
    void FindMachineValue(OV_SERVER_INFO_EX& record, bool defaultOnly, OVTraceNS::CTraceScope& scope);
    bool ReadLocalPolicy(OV_SERVER_INFO_EX& record, std::span<const LPCWSTR> keys);
};
