// IOVServerInfoExt, and the files that a load reads.
#include "module/ClientPointer.h"
#include "module/Failure.h"
#include "sources/WorkgroupFiles.h"
#include "sources/XMLPolicyReader.h"
#include "store/PolicyKey.h"
#include "store/ServerInfo.h"

namespace {

void CopySettings(CExtXMLPolicyReader&& reader) noexcept {
    reader.ProcessOVSettings();
}

}  // namespace

STDMETHODIMP CServerInfo::SetWorkgroupPolicies() {
    OVTraceNS::CTraceScope scope("CServerInfo::SetWorkgroupPolicies", 0);
    const CComPtr<IUnknown> alive = StayAlive();
    return AtBoundary(scope, [&]() -> HRESULT {
        CLockGuard lock(m_lock);
        Initialize(false);
        LoadMachineAll(false);
        NotifyAllSubscribers();
        return S_OK;
    });
}

STDMETHODIMP CServerInfo::CopyWorkgroupPoliciesLocally(LPCWSTR xml) {
    OVTraceNS::CTraceScope scope("CServerInfo::CopyWorkgroupPoliciesLocally", 0);
    return AtBoundary(scope, [&]() -> HRESULT {
        CPolicyMap map;
        if (!IsNoName(xml)) {
            scope.Print("Workgroup policies are taken from the string parameter");
            const CComBSTR text(xml);
            CopySettings(CExtXMLPolicyReader(VariantOf(text), map));
        } else {
            scope.Print("Workgroup policies are taken from the policy file");
            CopySettings(CExtXMLPolicyReader(BuildDataFilePath(kPluginData, kSettingsFile).c_str(), map));
        }
        return SavePolicies(map, HKEY_LOCAL_MACHINE, kLocalPolicyKey);
    });
}

void CServerInfo::ReadAuthPolicyFile(LPCWSTR path) {
    ReadPolicyFile(path, PolicyForm::kAuthPolicies);
}

void CServerInfo::ReadSettingsFile(LPCWSTR path) {
    ReadPolicyFile(path, PolicyForm::kSettings);
}

void CServerInfo::ReadPolicyFile(LPCWSTR path, PolicyForm form) {
    if (!PathFileExistsW(path)) return;
    CExtXMLPolicyReader reader(path, m_machineItems, m_observer);
    WalkPolicyDocument(reader, form);
}
