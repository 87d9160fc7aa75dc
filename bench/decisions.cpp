// What a credential list costs beside its own parts, and a user's own value beside one of the local key.
#include "Measure.h"
#include "store/PolicyKey.h"
#include "support/FakeUserService.h"
#include "support/Registry.h"
#include "support/StoreDoor.h"

namespace bench {

namespace {

using namespace testreg;

// One instance of the service, two items, one block: what a logon list is made of.
void PartsOfALogonList(const CTestInstance& server) {
    CComPtr<IOVLockPolicy> agent;
    Must(OpenUserService(IID_IOVLockPolicy, agent) == S_OK, "user service");
    OV_SERVER_INFO_EX record = {W("LogonPolicy"), OV_QUERY, {}};
    Must(server->GetInfo(1, &record) == S_OK && record.hr == S_FALSE, "policy item");
    DWORD number = 0;
    Must(server->GetItemLong(W("SpareKey\\SpareKeyAllowed"), &number) == S_FALSE, "spare key");
    CoTaskMemFree(CoTaskMemAlloc(4 * sizeof(ULONGLONG)));
}

void LogonList(const CTestInstance& server) {
    DWORD count = 0;
    ULONGLONG* list = nullptr;
    Must(server->GetUserLogonPolicyList(W("HOST\\user"), kNameSam, &count, &list) == S_OK && count == 4, "logon list");
    CoTaskMemFree(list);
}

void UserValue(const CTestInstance& server) {
    OV_SERVER_INFO_EX record = {W("RuntimePolicy"), OV_QUERY, {}};
    Must(server->GetInfo(1, &record) == S_OK && record.hr == S_OK && record.value.data == 7, "user's value");
}

void LocalValue(const CTestInstance& server) {
    OV_SERVER_INFO_EX record = {W("Ordinary"), OV_QUERY, {}};
    Must(server->GetInfo(1, &record) == S_OK && record.hr == S_FALSE && record.value.data == 5, "local value");
}

Work Times(void (*ask)(const CTestInstance&), const CTestInstance& server) {
    return [ask, &server](std::uint64_t times) {
        for (; times; --times) ask(server);
    };
}

}  // namespace

void Decisions() {
    const CFakeUserService service;
    PutDword(W("SOFTWARE\\Orvantis\\Policies\\AuthenticationPolicies\\LogonPolicy"), W("a"), 3);
    PutDword(W("SOFTWARE\\Orvantis\\Policies\\SpareKey"), W("SpareKeyAllowed"), 1);
    PutDword(kLocalPolicyKey, W("Ordinary"), 5);
    HKEY hive = nullptr;
    Must(RegCreateKeyExW(HKEY_USERS, W("S-1-22-1-51001\\SOFTWARE\\Policies\\Orvantis"), 0, nullptr, 0, KEY_ALL_ACCESS,
                         nullptr, &hive, nullptr) == ERROR_SUCCESS,
         "hive");
    const DWORD own = 7;
    RegSetValueExW(hive, W("RuntimePolicy"), 0, REG_DWORD, reinterpret_cast<const BYTE*>(&own), sizeof own);
    RegCloseKey(hive);
    const CTestInstance server;
    Must(server->GetInfo(0, nullptr) == S_OK, "first load");
    Compare("logon list of a local user / one service, two items, one block", {3, 3}, Times(LogonList, server),
            Times(PartsOfALogonList, server));
    const LPCWSTR sids[] = {W("S-1-22-1-51001"), W("S-1-22-2-100")};
    Compare(
        "user's own value under impersonation / the local key's", {3, 3},
        [&](std::uint64_t times) {
            Must(OvBeginCallOfSids(sids, 2, 1) == ERROR_SUCCESS, "caller");
            Times(UserValue, server)(times);
            OvEndCall();
        },
        Times(LocalValue, server));
}

}  // namespace bench
