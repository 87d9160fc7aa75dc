// The store's life: filled from its sources, in order of precedence, and compared with what it was.
//
// The first source that delivers a name wins, since the map never replaces. sources/PolicySources.h has their order.
// The local keys are no source: they are read at each query.
#include <utility>

#include "module/Failure.h"
#include "sources/WorkgroupFiles.h"
#include "store/ServerInfo.h"

namespace {

// Holds the machine's critical policy section. Without the entry point, or with a null handle, it holds nothing.
class CPolicySection {
  public:
    CPolicySection(const gpoPointers& gpo, bool enter) noexcept
        : m_gpo(gpo), m_section(enter && gpo.pEnterCPS ? gpo.pEnterCPS(TRUE) : nullptr) {}
    ~CPolicySection() {
        if (m_section && m_gpo.pLeaveCPS) m_gpo.pLeaveCPS(m_section);
    }
    CPolicySection(const CPolicySection&) = delete;
    CPolicySection& operator=(const CPolicySection&) = delete;

  private:
    const gpoPointers& m_gpo;
    HANDLE m_section;
};

// The change list: each name with the value from before, and with none where there was none.
CPolicyMap ChangesBetween(const CPolicyMap& before, const CPolicyMap& after, CLoadReport& report,
                          OVTraceNS::CTraceScope& scope) {
    CPolicyMap changes;
    for (const PolicyDifference& difference : CPolicyMap::Differences(before, after)) {
        const wstr& name = difference.item->name;
        switch (difference.kind) {
            case PolicyDifference::Kind::kDeleted:
                ++report.deleted;
                scope.Print("Deleted: %ls", name.c_str());
                changes.Insert(*difference.item);
                break;
            case PolicyDifference::Kind::kCreated:
                ++report.created;
                scope.Print("Created: %ls", name.c_str());
                changes.Insert({name, {}});
                break;
            case PolicyDifference::Kind::kChanged:
                ++report.changed;
                scope.Print("Changed: %ls", name.c_str());
                changes.Insert(*difference.item);
                break;
        }
    }
    return changes;
}

}  // namespace

void CServerInfo::Initialize(bool load) {
    OVTraceNS::CTraceScope scope("CServerInfo::Initialize", 0);
    CLockGuard lock(m_lock);
    const bool justBound = m_gpo.LoadLib();
    if (!justBound && m_initialized) {
        scope.Print("Already initialized!");
        return;
    }
    if (load) {
        scope.Print("Calling LoadAll...");
        LoadMachineAll(false);
    }
    if (!m_subscribed && Subscribe()) m_subscribed = true;
    m_initialized = true;
    m_settled.store(m_gpo.hLib != nullptr, std::memory_order_relaxed);
    if (load) {
        scope.Print("Calling NotifyAll...");
        NotifyAllSubscribers();
    }
}

void CServerInfo::LoadMachineAll(bool enterPolicySection) {
    OVTraceNS::CTraceScope scope("CServerInfo::LoadMachineAll", 0);
    CLockGuard lock(m_lock);
    CLoadReport report;
    report.number = m_lastLoad.number + 1;
    report.cause = enterPolicySection ? LoadCause::kPolicyChange
                   : m_initialized    ? LoadCause::kReload
                                      : LoadCause::kFirstQuery;
    GetLocalTime(&report.begun);
    const DWORD begun = GetTickCount();

    const CPolicyMap before = std::exchange(m_machineItems, {});
    for (const PolicySource& source : kPolicySources) ReadSource(source, enterPolicySection, scope);
    // What a delivery that is under way still holds stays with it.
    m_changedItems = std::make_shared<const CPolicyMap>(ChangesBetween(before, m_machineItems, report, scope));

    report.items = static_cast<DWORD>(m_machineItems.Size());
    report.milliseconds = GetTickCount() - begun;
    m_lastLoad = report;
}

// The section covers the registry and none of the files.
void CServerInfo::ReadSource(const PolicySource& source, bool enterPolicySection, OVTraceNS::CTraceScope& scope) {
    const bool served = m_gpo.hLib || !source.withEngine;
    if (source.form == PolicyForm::kRegistry) {
        if (m_observer) m_observer->Source(source, kGroupPolicyKey, served);
        if (!served) return;
        const CPolicySection section(m_gpo, enterPolicySection);
        InsertGPOValues(nullptr);
        scope.Print("Read %d GPO entries", static_cast<DWORD>(m_machineItems.Size()));
        return;
    }
    const wstr path = BuildDataFilePath(source.folder, source.file);
    if (m_observer) m_observer->Source(source, path.c_str(), served && PathFileExistsW(path.c_str()));
    if (!served) return;
    source.form == PolicyForm::kSettings ? ReadSettingsFile(path.c_str()) : ReadAuthPolicyFile(path.c_str());
}

void CServerInfo::Observe(CLoadObserver* observer) noexcept {
    CLockGuard lock(m_lock);
    m_observer = observer;
}

void CServerInfo::Observe(CDecisionObserver* observer) noexcept {
    CLockGuard lock(m_lock);
    m_decisionObserver = observer;
}

CLoadReport CServerInfo::LastLoad() noexcept {
    CLockGuard lock(m_lock);
    return m_lastLoad;
}

CPolicyMap CServerInfo::ManagedItems() {
    CLockGuard lock(m_lock);
    return m_machineItems;
}
