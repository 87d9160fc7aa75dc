// Policy files in their places: precedence, reload, and the copy into the local key.
#include <gtest/gtest.h>

#include "module/ComPtr.h"
#include "store/PolicyKey.h"
#include "support/DataRoot.h"
#include "support/Recorder.h"
#include "support/StoreDoor.h"
#include "support/ValueText.h"

namespace {

using namespace testreg;

class Workgroup : public RootTest {
  protected:
    std::string Ask(const wstr& name) {
        OV_SERVER_INFO_EX record = {name.c_str(), OV_QUERY, {}};
        EXPECT_EQ(m_object->GetInfo(1, &record), S_OK);
        return TextAndFree(record);
    }
    static std::string FileOf(const PolicySource& source, DWORD number) {
        const std::string digits = std::to_string(number);
        if (source.form == PolicyForm::kSettings) {
            std::string items;
            for (const char* name : {"LogonPolicy", "Plain", "x"}) {
                items += ItemXml(name[0] == 'x' ? source.kind : name, "REG_DWORD", digits);
            }
            return SettingsXml(items);
        }
        return "<r>" + ListXml("LogonPolicy", {digits.c_str()}) + ListXml(source.kind, {digits.c_str()}) + "</r>";
    }

    CDataRoot m_data{m_root.Path()};
    CTestInstance m_object;
};

// The strongest source that still has the names answers, whatever is wrong with those that lost theirs.
TEST_F(Workgroup, SixSourcesInOrderAndEachMayBeAbsentEmptyOrDamaged) {
    const LPCWSTR kLists = W("SOFTWARE\\Policies\\Orvantis\\Applications\\{5ED04F3F-AC3E-4BE0-A157-782B204E2B8C}");
    DWORD number = 0;
    for (const PolicySource& source : kPolicySources) {
        ++number;
        if (source.form == PolicyForm::kRegistry) {
            PutList(kLists, W("LogonPolicy"), {W("1")});
            PutDword(kGroupPolicyKey, W("Plain"), 1);
        } else {
            m_data.Write(source, FileOf(source, number));
        }
    }
    PutDword(kLocalPolicyKey, W("LogonPolicy"), 7);
    PutDword(kLocalPolicyKey, W("Plain"), 7);
    const char* const kLogon[] = {"0 array [0000000000000001]",
                                  "0 array [0000000000000002]",
                                  "0 dword 3",
                                  "0 array [0000000000000004]",
                                  "0 dword 5",
                                  "0 array [0000000000000006]",
                                  "1 dword 7"};
    const char* const kPlain[] = {"0 dword 1", "0 dword 3", "0 dword 3", "0 dword 5",
                                  "0 dword 5", "1 dword 7", "1 dword 7"};
    for (std::size_t gone = 0; gone <= std::size(kPolicySources); ++gone) {
        SCOPED_TRACE(gone);
        for (int damage = 0; damage < (gone < 2 ? 1 : 4); ++damage) {
            if (gone == 1) {
                CRegistryKey key = Make(W("SOFTWARE\\Policies"));
                EXPECT_EQ(key.DeleteTree(W("Orvantis")), ERROR_SUCCESS);
            } else if (gone > 1) {
                const PolicySource& last = kPolicySources[gone - 1];
                const std::string whole = FileOf(last, 9);
                const std::string kBroken[] = {"", whole.substr(0, whole.size() - 4), "<r><Items/><Items/></r>"};
                damage == 3 ? void(std::filesystem::remove(m_data.PathOf(last))) : m_data.Write(last, kBroken[damage]);
            }
            EXPECT_EQ(m_object->SetWorkgroupPolicies(), S_OK);
            EXPECT_EQ(Ask(W("LogonPolicy")), kLogon[gone]);
            EXPECT_EQ(Ask(W("plain")), kPlain[gone]);
            for (std::size_t i = std::max<std::size_t>(gone, 1); i < std::size(kPolicySources); ++i) {
                EXPECT_TRUE(Ask(wstr(kPolicySources[i].kind, kPolicySources[i].kind + strlen(kPolicySources[i].kind)))
                                .starts_with("0 "));
            }
        }
    }
}

TEST_F(Workgroup, WithoutAPolicyEngineTheFirstTwoSourcesDoNotExist) {
    if (std::string(kOvHomeName) != "layer") GTEST_SKIP() << "the system's own module cannot be taken away";
    OvHideExport("Userenv.dll", nullptr, TRUE);
    for (const PolicySource& source : kPolicySources) {
        if (source.folder != 0) m_data.Write(source, FileOf(source, 2));
    }
    PutDword(kGroupPolicyKey, W("Plain"), 1);
    EXPECT_EQ(Ask(W("Plain")), "0 dword 2");
    EXPECT_EQ(Ask(W("gpo-auth")), "0x80070002 none");
    EXPECT_EQ(Ask(W("tessel-auth")), "0 array [0000000000000002]");
    OvHideExport("Userenv.dll", nullptr, FALSE);
}

TEST_F(Workgroup, AReloadTellsSubscribersWhatChanged) {
    const PolicySource& settings = kPolicySources[2];
    m_data.Write(settings, SettingsXml(ItemXml("a", "REG_DWORD", "1") + ItemXml("b", "REG_SZ", "x")));
    CRecorder recorder;
    DWORD cookie = 0;
    EXPECT_EQ(m_object->SetWorkgroupPolicies(), S_OK);
    EXPECT_EQ(m_object->RegisterNotification(W(""), &recorder, &cookie), S_OK);
    recorder.Take();
    m_data.Write(settings, SettingsXml(ItemXml("a", "REG_QWORD", "1") + ItemXml("c", "REG_SZ", "y") +
                                       ItemXml("B", "REG_SZ", "X")));
    EXPECT_EQ(m_object->SetWorkgroupPolicies(), S_OK);
    EXPECT_EQ(recorder.Take(),
              (std::vector<std::string>{"a: dword 1 -> qword 0000000000000001", "c: nothing -> string 'y'"}))
        << "neither the case of a name nor that of a text is a change";
    EXPECT_EQ(m_object->UnregisterNotification(cookie), S_OK);
}

TEST_F(Workgroup, PathsOfFiles) {
    const auto folder = [](const wstr& root, DWORD type = REG_SZ) {
        PutString(W("SOFTWARE\\Orvantis"), W("OrvantisPath"), root, type);
        return Narrow(BuildDataFilePath(kGpoData, W("f.xml")));
    };
    EXPECT_EQ(folder(W("C:\\d")), "C:\\d\\GpoData\\f.xml");
    EXPECT_EQ(folder(W("C:\\d\\"), REG_EXPAND_SZ), "C:\\d\\GpoData\\f.xml");
    EXPECT_EQ(folder(W("%D%")), "%D%\\GpoData\\f.xml") << "references are not expanded";
    EXPECT_EQ(folder(W("C:\\d"), REG_MULTI_SZ), "");
    const wstr tail = W("\\GpoData\\f.xml");
    EXPECT_EQ(folder(wstr(259 - tail.size(), W('d'))).size(), 259u);
    EXPECT_EQ(folder(wstr(260 - tail.size(), W('d'))), "");
    EXPECT_EQ(folder(wstr(255, W('d'))), "");
    EXPECT_EQ(folder(wstr(300, W('d'))), "");
    PutBytes(W("SOFTWARE\\Orvantis"), W("OrvantisPath"), REG_SZ, "C\0:\0", 4);
    EXPECT_EQ(BuildDataFilePath(kGpoData, W("f.xml")), W("")) << "without its NUL";
    folder(W("C:\\d"));
    for (const int kind : {0, 4, -1}) EXPECT_EQ(BuildDataFilePath(kind, W("f.xml")), W(""));
    WCHAR buffer[MAX_PATH];
    EXPECT_FALSE(GetDataFolder(kPluginData, buffer, MAX_PATH - 1));
    EXPECT_TRUE(GetDataFolder(kPluginData, buffer, MAX_PATH));
}

TEST_F(Workgroup, CopiesSettingsIntoTheLocalKey) {
    PutDword(kLocalPolicyKey, W("stays"), 1);
    PutList(W("SOFTWARE\\Orvantis\\Policies\\Applications\\{5ED04F3F-AC3E-4BE0-A157-782B204E2B8C}"), W("LogonPolicy"),
            {W("5")});
    const std::string document =
        "<r><Items>" +
        GroupXml("Policies",
                 ItemXml("A\\B\\C", "REG_DWORD", "5") + ItemXml("q", "REG_QWORD", "6") +
                     ItemXml("s", "REG_SZ", "text") + ItemXml("", "REG_DWORD", "8") +
                     ItemXml("LogonPolicy", "REG_DWORD", "3") +
                     ItemXml("commonsettings\\{1750CC24-5adb-4d63-b4a5-9a25c252275a}\\disableapps", "REG_DWORD", "1")) +
        GroupXml("Domains", ItemXml("d", "boolean", "true")) + "</Items></r>";
    for (const bool fromFile : {false, true}) {
        SCOPED_TRACE(fromFile);
        if (fromFile) m_data.Write(kPolicySources[2], document);
        const wstr text(document.begin(), document.end());
        EXPECT_EQ(m_object->CopyWorkgroupPoliciesLocally(fromFile ? W("") : text.c_str()), S_OK);
        const auto bytes = [](LPCWSTR path, LPCWSTR name) { return Get(path, name).bytes; };
        EXPECT_EQ(bytes(W("SOFTWARE\\Orvantis\\Policies\\A\\B"), W("C")), (std::vector<BYTE>{5, 0, 0, 0}));
        EXPECT_EQ(Get(kLocalPolicyKey, W("q")).type, static_cast<DWORD>(REG_QWORD));
        EXPECT_EQ(bytes(kLocalPolicyKey, W("s")).size(), 10u);
        EXPECT_EQ(bytes(kLocalPolicyKey, W("")), (std::vector<BYTE>{8, 0, 0, 0}));
        EXPECT_EQ(bytes(kLocalPolicyKey, W("stays")), (std::vector<BYTE>{1, 0, 0, 0}));
        CRegistryKey key;
        EXPECT_NE(key.Open(HKEY_LOCAL_MACHINE, W("SOFTWARE\\Orvantis\\Policies\\CommonSettings"), KEY_READ), 0);
        EXPECT_NE(key.Open(HKEY_LOCAL_MACHINE, W("SOFTWARE\\Orvantis\\Policies\\AuthenticationDomains"), KEY_READ), 0);
        if (fromFile) break;
        EXPECT_EQ(Ask(W("LogonPolicy")), "1 dword 3") << "the list of before is gone";
        EXPECT_EQ(Ask(W("a\\b\\c")), "1 dword 5");
        Make(W("SOFTWARE\\Orvantis")).DeleteTree(W("Policies\\A"));
    }
    EXPECT_EQ(m_object->CopyWorkgroupPoliciesLocally(W("<broken")), S_OK);
    std::filesystem::remove(m_data.PathOf(kPolicySources[2]));
    EXPECT_EQ(m_object->CopyWorkgroupPoliciesLocally(nullptr), S_OK) << "a missing file is an empty one";
}

TEST_F(Workgroup, TheInterfaceIsServed) {
    void* found = nullptr;
    ASSERT_EQ(static_cast<IOVServerInfo2&>(*m_object).QueryInterface(IID_IOVServerInfoExt, &found), S_OK);
    EXPECT_EQ(static_cast<IOVServerInfoExt*>(found)->SetWorkgroupPolicies(), S_OK);
    static_cast<IOVServerInfoExt*>(found)->Release();
}

}  // namespace
