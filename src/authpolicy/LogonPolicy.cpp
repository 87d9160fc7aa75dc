// Which credentials apply to a user at logon: an agent that locked the computer, the recovery account, the policy of
// the machine, that of administrators or of users, and two adjustments, in this order.
#include <algorithm>

#include "authpolicy/PolicyList.h"
#include "authpolicy/UserIdentity.h"
#include "authpolicy/UserService.h"
#include "module/ClientPointer.h"
#include "store/PolicyNames.h"
#include "store/ServerInfo.h"

namespace {

constexpr ULONGLONG kRecoveryEntry = 0x1;
constexpr ULONGLONG kSpareKeyEntry = 0x8;
constexpr ULONGLONG kAlwaysEntry = 0x40;

bool Has(const CPolicyList& entries, ULONGLONG entry) noexcept {
    return std::find(entries.begin(), entries.end(), entry) != entries.end();
}

}  // namespace

STDMETHODIMP CServerInfo::GetUserLogonPolicyList(LPCWSTR userName, DWORD nameFormat, DWORD* count, ULONGLONG** list) {
    OVTraceNS::CTraceScope scope("CServerInfo::GetUserLogonPolicyList", 0);
    const CComPtr<IUnknown> alive = StayAliveToLoad();
    return AtBoundary(scope, [&]() -> HRESULT {
        if (IsNoName(userName)) return E_INVALIDARG;
        if (!ClearList(count, list)) return E_INVALIDARG;
        CLockGuard lock(m_lock);
        if (IsLockedByAgent(count, list)) {
            scope.Print("##### Computer is locked by Anti-Theft Agent!!!!");
            return S_OK;
        }
        CPolicyList entries;
        const bool recovery = nameFormat == kNameAsItStands || (nameFormat == kNameSid && IsRecoveryUser(userName));
        NoteStep(DecisionStep::kRecovery, userName, S_OK, recovery ? 1 : 0);
        if (recovery) {
            scope.Print("This is recovery user...");
            entries.push_back(kRecoveryEntry);
        } else {
            OV_SERVER_VALUE value = {};
            RaiseIfFailed(GetUserLogonPolicy(userName, nameFormat, &value));
            ExpandPolicyValue(value, entries);
            if (!entries.empty()) AdjustLogonList(entries);
        }
        HandOut(entries, count, list);
        return S_OK;
    });
}

// What the agent writes to the outputs is the answer then.
bool CServerInfo::IsLockedByAgent(DWORD* count, ULONGLONG** list) {
    CComPtr<IOVLockPolicy> agent;
    const HRESULT opened = OpenUserService(IID_IOVLockPolicy, agent);
    if (opened != E_NOINTERFACE) RaiseIfFailed(opened);
    const HRESULT hr = agent ? agent->GetLockPolicyList(count, list) : E_NOINTERFACE;
    NoteStep(DecisionStep::kLockAgent, W(""), hr, 0);
    return hr == S_OK;
}

void CServerInfo::AdjustLogonList(CPolicyList& entries) {
    const auto add = [&](ULONGLONG entry) {
        if (Has(entries, entry)) return;
        entries.push_back(entry);
        NoteStep(DecisionStep::kAdded, W(""), S_OK, entry);
    };
    add(kAlwaysEntry);
    // Whatever keeps the item from being read, the spare key is allowed then.
    DWORD number = 0;
    const HRESULT hr = GetItemLong(W("SpareKey\\SpareKeyAllowed"), &number);
    const bool allowed = FAILED(hr) || number != 0;
    NoteStep(DecisionStep::kSpareKey, W("SpareKey\\SpareKeyAllowed"), hr, allowed ? 1 : 0);
    if (allowed) {
        add(kSpareKeyEntry);
    } else if (std::erase(entries, kSpareKeyEntry) != 0) {
        NoteStep(DecisionStep::kRemoved, W(""), S_OK, kSpareKeyEntry);
    }
}

HRESULT CServerInfo::GetUserLogonPolicy(LPCWSTR userName, DWORD nameFormat, OV_SERVER_VALUE* value) {
    OVTraceNS::CTraceScope scope("CServerInfo::GetUserLogonPolicy", 0);
    return AtBoundary(scope, [&]() -> HRESULT {
        if (!value || !userName || !*userName) return E_INVALIDARG;
        CLockGuard lock(m_lock);
        const HRESULT common = ReadPolicyItem(W("LogonPolicy"), *value);
        if (SUCCEEDED(common)) {
            scope.Print("Do not distinguish between admins and users.");
            return common;
        }
        scope.Print("Distinguish between admins and users.");
        const bool isAdmin = IsAdmin(userName, nameFormat) == S_OK;
        return ReadPolicyItem(ItemByRole(isAdmin, W("LogonPolicyAdmin"), W("LogonPolicyUser"), scope), *value);
    });
}

// Never raises: GetMachineValue does not.
HRESULT CServerInfo::ReadPolicyItem(LPCWSTR name, OV_SERVER_VALUE& value) {
    OV_SERVER_INFO_EX record = {name, OV_QUERY, {}};
    const HRESULT hr = GetMachineValue(record);
    NoteStep(DecisionStep::kItem, name, hr, 0);
    if (SUCCEEDED(hr)) value = record.value;
    return hr;
}
