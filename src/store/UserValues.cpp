// What a user's own Group Policy says, read at each question for the user of that question. Nothing of it enters the
// store.
#include "module/Failure.h"
#include "sources/AuthPolicy.h"
#include "sources/PolicySources.h"
#include "store/PolicyKey.h"
#include "store/PolicyNames.h"
#include "store/ServerInfo.h"

namespace {

// The hive of whom this thread acts for.
class CCurrentUserHive {
  public:
    CCurrentUserHive() noexcept : m_error(RegOpenCurrentUser(KEY_READ, &m_key)) {}
    ~CCurrentUserHive() {
        if (!m_error) RegCloseKey(m_key);
    }
    CCurrentUserHive(const CCurrentUserHive&) = delete;
    CCurrentUserHive& operator=(const CCurrentUserHive&) = delete;

    HKEY Get() const noexcept { return m_error ? nullptr : m_key; }

  private:
    HKEY m_key = nullptr;
    LONG m_error;
};

// 0 with the value in the record, or why there is none.
HRESULT ReadUserValue(OV_SERVER_INFO_EX& record, OVTraceNS::CTraceScope& scope) {
    const CCurrentUserHive hive;
    LPCWSTR leaf = record.name;
    CRegistryKey key;
    if (!hive.Get() || OpenPolicyKey(key, hive.Get(), kGroupPolicyKey, leaf, true)) return kNotFound;
    CPolicyItem item;
    if (IsAuthPolicyName(record.name) && SUCCEEDED(LoadAuthPolicyGPO(key.Get(), record.name, item.value))) {
        return CopyValueOut(item, record.value);
    }
    return ReadPlainValue(key, leaf, record.name, record.value, scope);
}

}  // namespace

HRESULT CServerInfo::ReadCurrentUserValue(OV_SERVER_INFO_EX& record) noexcept {
    OVTraceNS::CTraceScope scope("CServerInfo::ReadCurrentUserValue", 0);
    record.hr = kNotFound;
    record.value = {};
    // Without a policy engine there is no user's policy.
    if (m_gpo.hLib) record.hr = Guarded([&] { return ReadUserValue(record, scope); });
    scope.Result("", record.hr);
    return record.hr;
}
