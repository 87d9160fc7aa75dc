// Pointers of a client that lead nowhere: every operation ends with a result.
#include <gtest/gtest.h>

#include <functional>

#include "module/ComModule.h"
#include "support/Recorder.h"
#include "support/StoreDoor.h"
#include "support/TestRoot.h"
#include "support/Values.h"

namespace {

// Below everything that is ever mapped; the upper half, which is the system's; between the halves, where no address is.
constexpr ULONG_PTR kNowhere[] = {8, 0xFFFF800000001000, 0x4242424242424240};

template <class T>
T* At(ULONG_PTR address) {
    return reinterpret_cast<T*>(address);
}

class ClientPointers : public RootTest {
  protected:
    CTestInstance m_server;
    DWORD m_number = 7;
    LPWSTR m_text = nullptr;
    ULONGLONG* m_list = nullptr;
};

TEST_F(ClientPointers, ThatLeadNowhereEndInAResult) {
    CServerInfo& server = *m_server;
    IOVServerInfo& known = server;
    CRecorder recorder;
    const auto wide = [](ULONG_PTR at) { return At<const WCHAR>(at); };
    const OV_SERVER_VALUE text = {OV_TYPE_STRING, 8, nullptr};
    const OV_SERVER_VALUE list = {OV_TYPE_ARRAY, 2, At<OV_SERVER_VALUE>(8)};
    const OV_SERVER_VALUE longList = {OV_TYPE_ARRAY, 0xFFFFFFFF, At<OV_SERVER_VALUE>(0x10000)};
    void* object = nullptr;
    const std::pair<const char*, std::function<HRESULT(ULONG_PTR)>> rows[] = {
        {"GetInfo, records", [&](ULONG_PTR at) { return server.GetInfo(2, At<OV_SERVER_INFO_EX>(at)); }},
        {"GetItemLong, name", [&](ULONG_PTR at) { return server.GetItemLong(wide(at), &m_number); }},
        {"GetItemLong, value", [&](ULONG_PTR at) { return server.GetItemLong(W("A"), At<DWORD>(at)); }},
        {"GetItemString, name", [&](ULONG_PTR at) { return server.GetItemString(wide(at), &m_text); }},
        {"GetItemString, value", [&](ULONG_PTR at) { return server.GetItemString(W("A"), At<LPWSTR>(at)); }},
        {"SetItemLong, name", [&](ULONG_PTR at) { return server.SetItemLong(wide(at), 1); }},
        {"SetItemString, name", [&](ULONG_PTR at) { return server.SetItemString(wide(at), W("a")); }},
        {"SetItemString, value", [&](ULONG_PTR at) { return server.SetItemString(W("A"), wide(at)); }},
        {"DeleteItem, name", [&](ULONG_PTR at) { return server.DeleteItem(wide(at)); }},
        {"SetItem, name", [&](ULONG_PTR at) { return server.SetItem(wide(at), &text); }},
        {"SetItem, value", [&](ULONG_PTR at) { return server.SetItem(W("A"), At<OV_SERVER_VALUE>(at)); }},
        {"SetItem, text", [&](ULONG_PTR) { return server.SetItem(W("A"), &text); }},
        {"SetItem, elements", [&](ULONG_PTR) { return server.SetItem(W("LogonPolicy"), &list); }},
        {"SetItem, more elements", [&](ULONG_PTR) { return server.SetItem(W("LogonPolicy"), &longList); }},
        {"CopyWorkgroupPoliciesLocally", [&](ULONG_PTR at) { return server.CopyWorkgroupPoliciesLocally(wide(at)); }},
        {"GetUserLogonPolicyList, user",
         [&](ULONG_PTR at) { return server.GetUserLogonPolicyList(wide(at), 3, &m_number, &m_list); }},
        {"GetUserLogonPolicyList, count",
         [&](ULONG_PTR at) { return server.GetUserLogonPolicyList(W("u"), 3, At<DWORD>(at), &m_list); }},
        {"GetSessionPolicyList, list",
         [&](ULONG_PTR at) { return server.GetSessionPolicyList(&m_number, At<ULONGLONG*>(at)); }},
        {"GetUserSessionPolicyList, user",
         [&](ULONG_PTR at) { return server.GetUserSessionPolicyList(wide(at), 3, &m_number, &m_list); }},
        {"RegisterNotification, name",
         [&](ULONG_PTR at) { return server.RegisterNotification(wide(at), &recorder, &m_number); }},
        {"RegisterNotification, callback",
         [&](ULONG_PTR at) { return server.RegisterNotification(W(""), At<CRecorder>(at), &m_number); }},
        {"RegisterNotification, its table",
         [&](ULONG_PTR at) { return server.RegisterNotification(W(""), At<CRecorder>(ULONG_PTR(&at)), &m_number); }},
        {"RegisterNotification, cookie",
         [&](ULONG_PTR at) { return server.RegisterNotification(W(""), &recorder, At<DWORD>(at)); }},
        {"QueryInterface, id", [&](ULONG_PTR at) { return known.QueryInterface(*At<IID>(at), &object); }},
        {"QueryInterface, object", [&](ULONG_PTR at) { return known.QueryInterface(IID_IUnknown, At<void*>(at)); }},
        {"class object", [&](ULONG_PTR at) { return TheModule().GetClassObject(*At<IID>(at), IID_IUnknown, &object); }},
    };
    for (const auto& [what, call] : rows) {
        for (const ULONG_PTR address : kNowhere) {
            EXPECT_EQ(call(address), E_UNEXPECTED) << what << " at " << std::hex << address;
        }
    }
    EXPECT_EQ(server.IsAdmin(At<const WCHAR>(8), 3), S_FALSE) << "which turns failures into an answer";
    EXPECT_EQ(object, nullptr);
    EXPECT_EQ(server.GetItemLong(W("A"), &m_number), kNotFound) << "and nothing was written";
}

// One record that leads nowhere costs the others nothing.
TEST_F(ClientPointers, OneWildNameAmongRecords) {
    m_server.Items().Insert({W("A"), Number(OV_TYPE_DWORD, 5)});
    OV_SERVER_INFO_EX records[] = {
        {W("A"), 0, {}}, {At<const WCHAR>(8), 0, {OV_TYPE_STRING, 8, nullptr}}, {W("A"), 0, {}}};
    EXPECT_EQ(m_server->GetInfo(3, records), S_OK);
    EXPECT_EQ(records[0].value.data, 5u);
    EXPECT_EQ(records[1].hr, E_UNEXPECTED);
    EXPECT_EQ(records[1].value.type, static_cast<DWORD>(OV_TYPE_NONE)) << "nothing to free";
    EXPECT_EQ(records[2].value.data, 5u);
}

}  // namespace
