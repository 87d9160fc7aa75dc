// What operations on a loaded object say in the trace, one after the other, in their order and nesting.
#include <functional>
#include <regex>

#include "authpolicy/UserIdentity.h"
#include "diagnostics/EventParameters.h"
#include "diagnostics/RecordingOutput.h"
#include "module/Library.h"
#include "module/Registration.h"
#include "security/AccessToken.h"
#include "sources/XMLPolicyReader.h"
#include "store/PolicyKey.h"
#include "support/DataRoot.h"
#include "support/FakeUserService.h"
#include "support/StoreDoor.h"
#include "support/Values.h"
#include "support/Writer.h"

namespace {

using namespace testreg;

class TraceOfOperations : public TraceTest {
  protected:
    struct Row {
        const char* what;
        std::function<void()> act;
        std::string said;
    };

    void SetUp() override {
        TraceTest::SetUp();
        ForgetKioskProduct();
        StoreDoor::StandIn(*m_object, &CheckPlainly);
        m_object->GetInfo(0, nullptr);
        TraceOn();
        ReadAgain();
    }
    void Hold(std::initializer_list<Row> rows) {
        for (const Row& row : rows) {
            row.act();
            EXPECT_EQ(Said(), row.said) << row.what;
        }
    }
    // What is the computer's, its account's or the code's own is left out, and what is said over and over is short.
    std::string Said() {
        static const std::pair<std::regex, const char*> kShort[] = {
            {std::regex("U'(Sid<|Caller is )[^>']*"), "U'$1"},
            {std::regex("XMLPacker, line [0-9]+"), "XMLPacker, line"},
            {std::regex("CServerInfo::"), "S::"},
            {std::regex("CExtXMLPacker::"), "X::"},
            {std::regex(R"(SOFTWARE\\Orvantis\\Policies)"), "(local)"},
            {std::regex("U'rInfo.hr = 0x00000000' "), ""},
            {std::regex(">S::Initialize U'Already initialized!' <"), "(loaded)"},
            {std::regex("E'-2147024894 '"), "E(missing)"},
            {std::regex(">S::LoadAuthPolicyGPO E.missing. <"), "(none)"},
            {std::regex("(S::Get)RegistryValue OV_SERVER_INFO_EX U'Getting '([^']+)' from '.local.(.Default)?'...'"),
             "$1$3 '$2'"},
            {std::regex(R"(>S::GetMachineValue U'Trying local' (.none. )?>S::Get '([^']+)' (U'[^<]*) < <)"), "($3)"},
            {std::regex(R"(>S::GetMachineValue U'Trying local' (.none. )?>S::Get '([^']+)' E.missing. < )"
                        R"(>S::Get\\Default '\2' E.missing. < E.missing. <)"),
             "(no $2)"},
            {std::regex("CExtXMLPolicyReader::"), "R::"},
            {std::regex(">COVSecureObject::AccessCheck2 U'Sid<>' >COVSecureObject::AccessCheck1 "
                        ">COVSecureObject::CheckVistaIntegrityLevel < U'Caller is ' < <"),
             "(allowed)"},
        };
        std::string text = Told();
        for (const auto& [words, name] : kShort) text = std::regex_replace(text, words, name);
        return text;
    }
    // A query for each of the names.
    std::function<void()> Ask(std::initializer_list<LPCWSTR> names, HRESULT kind = OV_QUERY) {
        return [this, names = std::vector<LPCWSTR>(names), kind] {
            for (LPCWSTR name : names) {
                OV_SERVER_INFO_EX record = {name, kind, {}};
                m_object->GetInfo(1, &record);
                FreeValue(record.value);
            }
        };
    }

    CDataRoot m_data{m_root.Path()};
    CFakeUserService m_service;
    CTestInstance m_object;
};

TEST_F(TraceOfOperations, LoadsAndQueries) {
    const wstr lists = wstr(kGroupPolicyKey) + W("\\") + wstr(AppsPolicyPrefix);
    const wstr bits = wstr(kGroupPolicyKey) + W("\\AuthenticationPolicies\\LogonPolicyUser");
    PutDword(kGroupPolicyKey, W("A"), 0xFFFFFFFF);
    PutBytes(kGroupPolicyKey, W("B"), REG_BINARY, "abc", 3);
    PutQword(kGroupPolicyKey, W("Q"), 0xAB);
    PutString(kGroupPolicyKey, W("T"), W("%TEMP%"), REG_EXPAND_SZ);
    PutDword(W("SOFTWARE\\Policies\\Orvantis\\Sub"), W("D"), 1);
    PutList(lists.c_str(), W("LogonPolicy"), {W("1"), W("10")});
    PutList(lists.c_str(), W("CustomizationPolicy"), {W("")});
    PutDword(bits.c_str(), W("one"), 4);
    PutString(bits.c_str(), W("two"), W("t"));
    PutBytes(kLocalPolicyKey, W("B3"), REG_BINARY, "abc", 3);
    PutDword(kDefaultPolicyKey, W("LogonPolicyAdmin"), 1);
    Hold({
        {"a load", [this] { StoreDoor::LoadAndNotify(*m_object); },
         ">S::GPOThreadProc >S::LoadMachineAll >S::InsertGPOValues >S::LoadAuthPolicyGPO U'0x0000000000000001' "
         "U'0x0000000000000010' < (none) (none) (none) >S::LoadAuthPolicyGPO U'dwValueCount=2, dwMaxValNameLen=3, "
         "dwMaxValLen=4' U'one' U'one = 4' U'two' U'Unexpected type: 1' < (none) (none) (none) "
         ">S::LoadAuthPolicyGPO < U'dwMaxSubKeyLen=22 dwMaxValNameLen=1 dwMaxValLen=14' U'A = -1' U'B - "
         "unexpected type (3)' U'Q = '0x00000000000000AB'' U'T = '%TEMP%'' >S::InsertGPOValues U'szSubKey = "
         "Applications' U'dwMaxSubKeyLen=38 dwMaxValNameLen=0 dwMaxValLen=0' >S::InsertGPOValues U'szSubKey = "
         "Applications\\{5ED04F3F-AC3E-4BE0-A157-782B204E2B8C}' < < >S::InsertGPOValues U'szSubKey = "
         "AuthenticationPolicies' < >S::InsertGPOValues U'szSubKey = Sub' U'dwMaxSubKeyLen=0 dwMaxValNameLen=1 "
         "dwMaxValLen=4' U'Sub\\D = 1' < < U'Read 7 GPO entries' U'Created: A' U'Created: CustomizationPolicy' "
         "U'Created: LogonPolicy' U'Created: LogonPolicyUser' U'Created: Q' U'Created: Sub\\D' U'Created: T' < "
         ">S::NotifyAllSubscribers < <"},
        {"stored items", Ask({W("T"), W("A"), W("Q"), W("LogonPolicy"), W("CustomizationPolicy")}),
         ">S::GetInfo (loaded) >S::GetMachineValue U'T = '%TEMP%'' < < >S::GetInfo (loaded) >S::GetMachineValue "
         "U'A = -1' < < >S::GetInfo (loaded) >S::GetMachineValue U'Q = 0x00000000000000AB' < < >S::GetInfo "
         "(loaded) >S::GetMachineValue U'LogonPolicy (array)' < < >S::GetInfo (loaded) >S::GetMachineValue "
         "U'Should never be here' E'-2147024846 ' < <"},
        {"local items", Ask({W("B3")}),
         ">S::GetInfo (loaded) >S::GetMachineValue U'Trying local' >S::Get 'B3' U'Wrong Type for B3' "
         "E'-2147024883 ' < >S::Get\\Default 'B3' E(missing) < E(missing) < <"},
        {"a default", Ask({W("LogonPolicyAdmin")}, OV_QUERY_DEFAULT),
         ">S::GetInfo (loaded) >S::GetMachineValue U'rInfo.hr = 0x00000002' (none) >S::Get\\Default "
         "'LogonPolicyAdmin' U'LogonPolicyAdmin = '1'' < < <"},
    });
}

TEST_F(TraceOfOperations, ChangesAndWrites) {
    CRecorder subscriber;
    subscriber.then = [] { return E_FAIL; };
    DWORD cookie = 0;
    const CPolicyValue list = List({Number(OV_TYPE_QWORD, 1)});
    PutDword(kGroupPolicyKey, W("A"), 1);
    PutDword(kGroupPolicyKey, W("B"), 1);
    StoreDoor::LoadAndNotify(*m_object);
    PutDword(kGroupPolicyKey, W("A"), 2);
    RegDeleteValueW(Make(kGroupPolicyKey).Get(), W("B"));
    ASSERT_TRUE(ImpersonateSelf(SecurityImpersonation));
    Told();
    Hold({
        {"no subscriber", [&] { m_object->UnregisterNotification(0); }, ">S::UnregisterNotification E'-2147024809 ' <"},
        {"a subscriber", [&] { m_object->RegisterNotification(W("B"), &subscriber, &cookie); },
         ">S::RegisterNotification >S::NotifySubscriber >S::GetMachineValue U'B = 1' < "
         ">S::CNotificationSubscriber::Notify E'-2147467259 ' < E'-2147467259 ' < E'-2147467259 ' <"},
        {"a load with differences", [&] { StoreDoor::LoadAndNotify(*m_object); },
         ">S::GPOThreadProc >S::LoadMachineAll >S::InsertGPOValues (none) (none) (none) (none) (none) (none) "
         "(none) (none) (none) U'dwMaxSubKeyLen=0 dwMaxValNameLen=1 dwMaxValLen=4' U'A = 2' < U'Read 1 GPO "
         "entries' U'Changed: A' U'Deleted: B' < >S::NotifyAllSubscribers >S::NotifySubscriber (no B) "
         ">S::CNotificationSubscriber::Notify E'-2147467259 ' < E'-2147467259 ' < < <"},
        {"no name", [&] { m_object->SetItemLong(W(""), 1); }, ">S::SetItemLong E'-2147024809 ' <"},
        {"a new item", [&] { m_object->SetItemLong(W("B"), 1); },
         ">S::SetItemLong (allowed) >S::GetItemLong >S::GetInfo (loaded) (no B) < E(missing) < U'Value was "
         "changed, notify other components' >S::NotifyLocalPolicyChange (U'B = '1'') "
         ">S::CNotificationSubscriber::Notify E'-2147467259 ' < E'-2147467259 Notify' < E(missing) E(missing) "
         "E(missing) <"},
        {"a policy", [&] { m_object->SetItem(W("LogonPolicy"), &list.Raw()); },
         ">S::SetItem (allowed) >S::GetInfo (loaded) (no LogonPolicy) < >S::SaveAuthPolicyGPO < >S::GetInfo "
         "(loaded) >S::GetMachineValue U'Trying local' >S::LoadAuthPolicyGPO U'0x0000000000000001' < < < "
         ">S::NotifyLocalPolicyChange >S::GetMachineValue U'Trying local' >S::LoadAuthPolicyGPO "
         "U'0x0000000000000001' < < < E(missing) E(missing) E(missing) <"},
        {"a deletion", [&] { m_object->DeleteItem(W("B")); },
         ">S::DeleteItem (allowed) >S::GetInfo (loaded) (U'B = '1'') < >S::GetInfo (loaded) (no B) < "
         ">S::NotifyLocalPolicyChange (no B) E(missing) < E(missing) E(missing) E(missing) <"},
    });
    m_object->UnregisterNotification(cookie);
    RevertToSelf();
}

TEST_F(TraceOfOperations, PolicyFiles) {
    const std::string never = "CommonSettings\\{1750cc24-5adb-4d63-b4a5-9a25c252275a}\\DisableApps";
    const std::string xml = SettingsXml(ItemXml("A", "REG_DWORD", "1") + ItemXml(never, "REG_DWORD", "1"));
    const std::string domains = "<r><Items>" + GroupXml("Domains", ItemXml("d", "boolean", "true")) + "</Items></r>";
    m_data.Write(kPolicySources[2], domains);
    m_data.Write(kPolicySources[3], "<r>" + ListXml("P", {"1"}) + ItemXml("Q", "REG_QWORD", "2") + "<x/></r>");
    const CComBSTR text(W("<r/>"));
    OVXMLDoc document(VariantOf(text)), damaged(VARIANT{});
    const std::vector<wstr> secrets = {W("s")};
    PutString(kKey, W("TracePath"), W("."));
    Hold({
        {"from a text", [&] { m_object->CopyWorkgroupPoliciesLocally(wstr(xml.begin(), xml.end()).c_str()); },
         ">S::CopyWorkgroupPoliciesLocally U'Workgroup policies are taken from the string parameter' "
         ">X::ProcessOVSettings() >X::_parsePolicies() >X::_restorePolicy() >S::R::SetPolicyValues U'A = 1' < < "
         ">X::_restorePolicy() >S::R::SetPolicyValues "
         "U'CommonSettings\\{1750cc24-5adb-4d63-b4a5-9a25c252275a}\\DisableApps = 1' < < < < >S::SavePolicies "
         "U'Policy: A' U'Policy: CommonSettings\\{1750cc24-5adb-4d63-b4a5-9a25c252275a}\\DisableApps' U'This is a "
         "well-known authentication domain. Skipping...' < <"},
        {"from a file", [&] { m_object->CopyWorkgroupPoliciesLocally(nullptr); },
         ">S::CopyWorkgroupPoliciesLocally U'Workgroup policies are taken from the policy file' "
         ">X::ProcessOVSettings() < >S::SavePolicies < <"},
        {"a reload", [&] { m_object->SetWorkgroupPolicies(); },
         ">S::SetWorkgroupPolicies (loaded) >S::LoadMachineAll >S::InsertGPOValues U'Failed opening GPO key' < "
         "U'Read 0 GPO entries' >X::ProcessOVSettings() < >X::ProcessOVDomains() >X::_restoreDomains() U'From "
         "XML: 1 domain(s)' >S::R::ActivateDomains U'AuthenticationDomains\\d = 1' < < < "
         ">X::ProcessOVAuthPolicies() >X::_parseAuthPolicy() U'From XML: 1 policy items(s)' "
         ">S::R::SetPolicyValues U'P = (array)' < < >X::_parseAuthPolicy() >X::_restorePolicy() "
         ">S::R::SetPolicyValues U'Applications\\{5ED04F3F-AC3E-4BE0-A157-782B204E2B8C}\\Q = 0x0000000000000002' "
         "< < < >X::_parseAuthPolicy() U'...not a policy' < < U'Created: "
         "Applications\\{5ED04F3F-AC3E-4BE0-A157-782B204E2B8C}\\Q' U'Created: AuthenticationDomains\\d' "
         "U'Created: P' < >S::NotifyAllSubscribers < <"},
        {"dumps",
         [&] {
             document.Dump(W("d"), nullptr);
             damaged.Dump(W("d"), &secrets);
             Set(W("TraceXMLs"), 0);
             document.Dump(W("d"), nullptr);
         },
         ">XML Dump U'See XML file: .\\d.xml' < >XML Dump U'See XML file: .\\d.xml' U'--- dump error ---' < >XML "
         "Dump U'--- disabled ---' <"},
    });
}

TEST_F(TraceOfOperations, Decisions) {
    CAccessToken token;
    CSid user;
    ASSERT_EQ(token.OpenProcess(TOKEN_QUERY), 0u);
    ASSERT_EQ(token.ReadUser(user), 0u);
    const wstr me = user.Domain() + W("\\") + user.AccountName();
    m_service.users = {{W("here"), {W("PC\\nobody-of-that-name"), W("S-1-5-21-1-2-3-1000"), true}},
                       {W("me"), {me, W("S-1-5-21-1-2-3-1002"), false}}};
    PutDword(W("SOFTWARE\\Orvantis\\Kiosk\\Logon"), W("KioskLogon"), 1);
    CRegistryKey own;
    ASSERT_EQ(own.Create(HKEY_CURRENT_USER, kGroupPolicyKey, nullptr, 0, KEY_ALL_ACCESS, nullptr, nullptr), 0);
    ASSERT_EQ(own.SetDword(W("KioskRuntimePolicy"), 1), 0);
    DWORD count;
    ULONGLONG* list;
    const std::string role = m_object->IsAdmin(W("me"), kNameSam) == S_OK ? "Administrator" : "NOT Administrator";
    Told();
    Hold({
        {"of this computer", [&] { m_object->GetUserLogonPolicyList(W("here"), kNameSam, &count, &list); },
         ">S::GetUserLogonPolicyList >S::GetUserLogonPolicy (no LogonPolicy) U'Distinguish between admins and "
         "users.' >S::IsAdmin U'User is PC\\nobody-of-that-name' U'Local user...' < U'User is not an "
         "Administrator.' (no LogonPolicyUser) E(missing) < E(missing) <"},
        {"not remembered", [&] { m_object->IsAdmin(W("me"), kNameSam); },
         ">S::IsAdmin U'User is " + Narrow(me) +
             "' U'Domain user ...' >S::GetAdminResultFromCache "
             "U'S-1-5-21-1-2-3-1002' E(missing) < U'User is " +
             role +
             ".' >S::CacheAdminResult "
             "U'S-1-5-21-1-2-3-1002' E(missing) < <"},
        {"the caller's own", [&] { m_object->GetSessionPolicyList(&count, &list); },
         ">S::GetSessionPolicyList >S::GetSessionPolicy (loaded) U'Kiosk session = 1' >S::ReadCurrentUserValue "
         "(none) U'KioskRuntimePolicy = '1'' < < <"},
    });
}

TEST_F(TraceOfOperations, TheModule) {
    // Where the system lacks this library, the object says so.
    const std::string authz =
        CDLLLoader(W("Authz.dll")) ? "" : "U'Authorization Manager is not installed on this machine.' ";
    wstr sid;
    m_service.users = {{W("nobody"), {W(""), W(""), false}}};
    PutString(W("SOFTWARE\\Orvantis"), W("OrvantisPath"), W("."));
    Hold({
        {"of the tenth level",
         [&] {
             TraceOn(10);
             Set(W("DoLog"), 1);  // the flags must change for it
             ReadAgain();
             TranslateToSID(W("nobody"), kNameSam, sid);
             OVLog::COVLogResource()._LoadOVString(110);
         },
         ">TranslateToSID U'Cannot get some of users names. Sid = 0x0' E'-2147023579 ' < "
         ">COVLogResource::_LoadOVString U'DLL: 0x0' U'ID: 110, String: ' <"},
        {"an object", [&] { CTestInstance()->Init(); },
         ">COVSecureObject::COVSecureObject " + authz +
             "< "
             ">S::FinalConstruct >S::CreateDefaultSecurityDescriptor < >S::Load U'Cannot open file. May be it does "
             "not exist...' E(missing) < < >CServerInfo:Init < >S::FinalRelease >S::Save < <"},
        {"a line", [&] { AddCleanupLine(W("FILE"), W("f"), 1, nullptr); },
         ">AddCleanupLine U'FilePath = Cleanup.txt' U'accum = FILE\tf\t1\r\n' <"},
    });
}

}  // namespace
