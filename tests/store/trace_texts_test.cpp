// What an object's roads say in the trace, scope by scope.
#include <gtest/gtest.h>

#include "diagnostics/RecordingOutput.h"
#include "store/PolicyKey.h"
#include "support/StoreDoor.h"
#include "support/Writer.h"

namespace {

using namespace testreg;

class TraceTexts : public TraceTest {
  protected:
    // What was told since the last time, without what is said of addresses.
    std::string Said() {
        std::string text = Told();
        for (std::size_t at; (at = text.find("U'Userenv.dll: hLib=")) != text.npos;) {
            text.replace(at, text.find('\'', at + 2) + 2 - at, "U(addresses) ");
        }
        return text;
    }
};

TEST_F(TraceTexts, OfAnObjectsLife) {
    PutDword(W("SOFTWARE\\Policies\\Orvantis"), W("A"), 5);
    PutDword(kLocalPolicyKey, W("L"), 6);
    PutString(kDefaultPolicyKey, W("D"), W("text"));
    auto* object = new CComObject<CServerInfo>;
    object->Construct();
    object->AddRef();
    TraceOn();
    ReadAgain();
    DWORD number = 0;
    EXPECT_EQ(object->GetItemLong(W("A"), &number), S_OK);
    EXPECT_EQ(Said(),
              ">CServerInfo::GetItemLong >CServerInfo::GetInfo >CServerInfo::Initialize >gpoPointers::LoadLib "
              "U(addresses) < U'Calling LoadAll...' >CServerInfo::LoadMachineAll >CServerInfo::InsertGPOValues "
              ">CServerInfo::LoadAuthPolicyGPO E'-2147024894 ' < >CServerInfo::LoadAuthPolicyGPO E'-2147024894 "
              "' < >CServerInfo::LoadAuthPolicyGPO E'-2147024894 ' < >CServerInfo::LoadAuthPolicyGPO "
              "E'-2147024894 ' < >CServerInfo::LoadAuthPolicyGPO E'-2147024894 ' < "
              ">CServerInfo::LoadAuthPolicyGPO E'-2147024894 ' < >CServerInfo::LoadAuthPolicyGPO E'-2147024894 "
              "' < >CServerInfo::LoadAuthPolicyGPO E'-2147024894 ' < >CServerInfo::LoadAuthPolicyGPO "
              "E'-2147024894 ' < U'dwMaxSubKeyLen=0 dwMaxValNameLen=1 dwMaxValLen=4' U'A = 5' < U'Read 1 GPO "
              "entries' U'Created: A' < >CServerInfo::Subscribe >CGPNotifyImpl::RegisterGPNotification "
              ">gpoPointers::Register < U'RegisterWaitForSingleObject(GPO) = 1' < < U'Calling NotifyAll...' "
              ">CServerInfo::NotifyAllSubscribers < < >CServerInfo::GetMachineValue U'rInfo.hr = 0x00000000' "
              "U'A = 5' < < <");
    EXPECT_EQ(object->GetItemLong(W("L"), &number), S_FALSE);
    EXPECT_EQ(Said(),
              ">CServerInfo::GetItemLong >CServerInfo::GetInfo >CServerInfo::Initialize U'Already initialized!' "
              "< >CServerInfo::GetMachineValue U'rInfo.hr = 0x00000000' U'Trying local' "
              ">CServerInfo::GetRegistryValue OV_SERVER_INFO_EX U'Getting 'L' from "
              "'SOFTWARE\\Orvantis\\Policies'...' U'L = '6'' < < < <");
    EXPECT_TRUE(FAILED(object->GetItemLong(W("Key\\D"), &number)));
    EXPECT_EQ(Said(),
              ">CServerInfo::GetItemLong >CServerInfo::GetInfo >CServerInfo::Initialize U'Already initialized!' "
              "< >CServerInfo::GetMachineValue U'rInfo.hr = 0x00000000' U'Trying local' "
              ">CServerInfo::GetRegistryValue OV_SERVER_INFO_EX U'Getting 'Key\\D' from "
              "'SOFTWARE\\Orvantis\\Policies'...' E'-2147024894 ' < >CServerInfo::GetRegistryValue "
              "OV_SERVER_INFO_EX U'Getting 'Key\\D' from 'SOFTWARE\\Orvantis\\Policies\\Default'...' "
              "E'-2147024894 ' < E'-2147024894 ' < < E'-2147024894 ' <");
    LPWSTR text = nullptr;
    EXPECT_EQ(object->GetItemString(W("D"), &text), S_FALSE);
    CoTaskMemFree(text);
    EXPECT_EQ(Said(),
              ">CServerInfo::GetItemString >CServerInfo::GetInfo >CServerInfo::Initialize U'Already "
              "initialized!' < >CServerInfo::GetMachineValue U'rInfo.hr = 0x00000000' U'Trying local' "
              ">CServerInfo::GetRegistryValue OV_SERVER_INFO_EX U'Getting 'D' from "
              "'SOFTWARE\\Orvantis\\Policies'...' E'-2147024894 ' < >CServerInfo::GetRegistryValue "
              "OV_SERVER_INFO_EX U'Getting 'D' from 'SOFTWARE\\Orvantis\\Policies\\Default'...' U'D = 'text'' < "
              "< < <");
    StoreDoor::StandIn(*object, &CheckPlainly);
    EXPECT_EQ(object->SetItemLong(W("L"), 1), HRESULT_FROM_WIN32(ERROR_INVALID_HANDLE));
    EXPECT_EQ(Said(),
              ">CServerInfo::SetItemLong >COVSecureObject::AccessCheck2 U'Sid<>' >COVSecureObject::AccessCheck1 "
              ">COVSecureObject::CheckVistaIntegrityLevel < U'Caller is ' E'-2147024890 ' < E'-2147024890 ' < "
              "E'-2147024890 ' <");
    object->Term();
    object->Release();
    EXPECT_EQ(Said(),
              ">CServerInfo:Term < >CServerInfo::FinalRelease >CServerInfo::Unsubscribe U'Completed.' < "
              ">CServerInfo::Save >CServerInfo::Create < U'A = '5'' U'Count is 1' U'Blob size is 20' U'Hash "
              "size is 16' < >CServerInfo::SavePolicies U'Policy: A' < <");
}

}  // namespace
