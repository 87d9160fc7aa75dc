// Who may write, and writers beside each other.
#include <cstdlib>

#include "diagnostics/RecordingOutput.h"
#include "linux/HiveFile.h"
#include "linux/Process.h"
#include "support/ChildRole.h"
#include "support/Writer.h"

namespace {

using namespace testreg;

constexpr LPCWSTR kOrdinary = W("S-1-22-1-4711");
constexpr LPCWSTR kGroup = W("S-1-22-2-4711");
constexpr LPCWSTR kAdministrators = W("S-1-5-32-544");
constexpr LPCWSTR kSystem = W("S-1-5-18");
constexpr LPCWSTR kLow = W("S-1-16-4096");

class Writers : public CWriterFixture {
  protected:
    Writers() {
        RevertToSelf();
        OVTraceNS::RestartTracing(std::make_unique<CRecordingOutput>(m_entries));
        PutDword(W("SOFTWARE\\Orvantis\\Tracing"), W("DoTrace"), 1);
        OVTraceNS::theTraceState.nextCheckTick = 0;
    }
    ~Writers() override { OVTraceNS::RestartTracing(std::make_unique<OVTraceNS::CNoOutput>()); }

    // What the check says in the trace, without the levels around it.
    std::string Said() {
        std::string all;
        for (const TraceEntry& entry : m_entries) {
            const bool told = entry.text.starts_with("Sid<") || entry.text.starts_with("Caller is ") ||
                              entry.text.starts_with("Access is denied.");
            if (entry.tag == 'U' && told) all += (all.empty() ? "" : "; ") + entry.text;
        }
        m_entries.clear();
        return all;
    }
    bool HasLocalKey() {
        CRegistryKey key;
        return key.Open(HKEY_LOCAL_MACHINE, W("SOFTWARE\\Orvantis\\Policies\\Sub"), KEY_READ) == ERROR_SUCCESS;
    }

    std::vector<TraceEntry> m_entries;
};

TEST_F(Writers, EachCallerAndWhatTheTraceSays) {
    constexpr HRESULT kNobody = static_cast<HRESULT>(0x80070006u);
    const struct {
        const char* who;
        std::vector<LPCWSTR> sids;
        HRESULT result;
        std::string said;
    } cases[] = {
        {"an ordinary account",
         {kOrdinary, kGroup},
         E_ACCESSDENIED,
         "Sid<S-1-22-1-4711>; Caller is S-1-22-1-4711; Access is denied. Caller is \\"},
        {"an administrator", {kOrdinary, kGroup, kAdministrators}, S_OK, "Sid<S-1-22-1-4711>; Caller is S-1-22-1-4711"},
        {"the system", {kSystem}, S_OK, "Sid<S-1-5-18>; Caller is S-1-5-18"},
        {"an administrator of low integrity, lifted",
         {kOrdinary, kAdministrators, kLow},
         S_OK,
         "Sid<S-1-22-1-4711>; Caller is S-1-22-1-4711"},
        {"nobody in particular",
         {W("S-1-5-7")},
         E_ACCESSDENIED,
         "Sid<S-1-5-7>; Caller is S-1-5-7; Access is denied. Caller is NT AUTHORITY\\ANONYMOUS LOGON"},
        {"one who refuses to be known, and is nobody then",
         {},
         E_ACCESSDENIED,
         "Sid<S-1-5-7>; Caller is S-1-5-7; Access is denied. Caller is NT AUTHORITY\\ANONYMOUS LOGON"},
    };
    for (const auto& [who, sids, result, said] : cases) {
        SCOPED_TRACE(who);
        ASSERT_EQ(OvBeginCallOfSids(sids.data(), static_cast<DWORD>(sids.size()), 0), 0u);
        Said();
        EXPECT_EQ(m_object->SetItemLong(W("Sub\\X"), 1), result);
        EXPECT_EQ(Said(), said);
        EXPECT_EQ(HasLocalKey(), result == S_OK);
        EXPECT_EQ(m_object->SetItemString(W("Sub\\X"), W("a")), result);
        EXPECT_EQ(m_object->DeleteItem(W("Sub\\X")), result);
        const OV_SERVER_VALUE number = {OV_TYPE_DWORD, 1, nullptr};
        EXPECT_EQ(m_object->SetItem(W("LogonPolicy"), &number), result);
        DWORD read = 0;
        EXPECT_EQ(m_object->GetItemLong(W("LogonPolicy"), &read), result == S_OK ? S_FALSE : 0x80070002 - 0x100000000ll)
            << "everybody may read";
        OvEndCall();
        CRegistryKey key;
        if (!key.Open(HKEY_LOCAL_MACHINE, W("SOFTWARE\\Orvantis"), KEY_ALL_ACCESS)) key.DeleteTree(W("Policies"));
        EXPECT_EQ(Events().size(), result == S_OK ? 4u : 0u);
    }
    Said();
    EXPECT_EQ(m_object->SetItemLong(W("Sub\\X"), 1), kNobody) << "no call, and the thread acts for nobody";
    EXPECT_EQ(Said(), "Sid<>; Caller is ");
    EXPECT_FALSE(HasLocalKey());
}

// The event names whoever called, by the identifier where the account has no name.
TEST_F(Writers, WhoDidIt) {
    const std::pair<LPCWSTR, std::string> cases[] = {
        {kSystem, "NT AUTHORITY|SYSTEM"},
        {kOrdinary, "S-1-22-1-4711|Cannot get name & domain (0x534) SID is printed"},
    };
    for (const auto& [sid, expected] : cases) {
        ASSERT_EQ(OvBeginCallOfSids(&sid, 1, 0), 0u);
        const OVLog::InitiatedBy who;
        OvEndCall();
        EXPECT_EQ(who.Domain() + W('|') + who.Account(), wstr(expected.begin(), expected.end()));
    }
}

TEST_F(Writers, WhatTheTraceSaysOfAChange) {
    ASSERT_EQ(OvBeginCallOfSids(&kSystem, 1, 0), 0u);
    m_entries.clear();
    EXPECT_EQ(m_object->SetItemLong(W("X"), 1), S_OK);
    EXPECT_EQ(m_object->SetItemLong(W("X"), 1), S_OK);
    m_subscriber.then = [] { return E_FAIL; };
    EXPECT_EQ(m_object->SetItemString(W("Y"), W("a")), S_OK);
    OvEndCall();
    std::string said;
    for (const TraceEntry& entry : m_entries) {
        if (entry.text == "Value was changed, notify other components") said += "changed ";
        if (entry.tag == 'E' && entry.text.ends_with(" Notify")) said += "notify ";
    }
    EXPECT_EQ(said, "changed changed notify ");
}

TEST_F(Writers, WithoutTheCheckNobodyWrites) {
    OvHideExport("Advapi32.dll", "AccessCheckByTypeResultList", TRUE);
    CTestInstance object;
    ASSERT_EQ(OvBeginCallOfSids(&kSystem, 1, 0), 0u);
    EXPECT_EQ(object->SetItemLong(W("Sub\\X"), 1), static_cast<HRESULT>(0x8007007Fu));
    OvEndCall();
    OvHideExport("Advapi32.dll", "AccessCheckByTypeResultList", FALSE);
    EXPECT_FALSE(HasLocalKey());
}

// A caller of low integrity whose token cannot be lifted writes nothing: only the system lifts.
TEST_F(Writers, LowIntegrityThatStaysLow) {
    const LPCWSTR low[] = {kOrdinary, kAdministrators, kLow};
    ASSERT_EQ(OvBeginCallOfSids(low, 3, 0), 0u);
    ASSERT_EQ(CoImpersonateClient(), S_OK);
    HANDLE token = nullptr;
    ASSERT_TRUE(OpenThreadToken(GetCurrentThread(), MAXIMUM_ALLOWED, TRUE, &token));
    GENERIC_MAPPING mapping = {9, 0x1B, 0x20000, 0xF0000};
    CSecurityDescriptor security;
    ASSERT_EQ(security.InitializeFromThreadToken(false, true), S_OK);
    ASSERT_EQ(security.AddAllowedAce(AdministratorsSid(), kReadItems | kWriteItems), S_OK);
    BYTE privileges[256] = {};
    DWORD size = sizeof privileges, granted = 0, status = 77;
    GUID none = {};
    OBJECT_TYPE_LIST types = {0, 0, &none};
    const auto check = [&](DWORD wanted) {
        EXPECT_TRUE(AccessCheckByTypeResultList(security.Get(), nullptr, token, wanted, &types, 1, &mapping,
                                                reinterpret_cast<PRIVILEGE_SET*>(privileges), &size, &granted,
                                                &status));
        return status;
    };
    EXPECT_EQ(check(kReadItems), 0u);
    EXPECT_EQ(check(kWriteItems), static_cast<DWORD>(ERROR_ACCESS_DENIED));
    CAccessToken own;
    ASSERT_EQ(own.OpenThread(MAXIMUM_ALLOWED, TRUE), 0u);
    EXPECT_EQ(CheckVistaIntegrityLevel(own), static_cast<HRESULT>(0x80070522u)) << "who acts for it may not lift it";
    CoRevertToSelf();
    EXPECT_EQ(CheckVistaIntegrityLevel(own), geteuid() == 0 ? S_OK : static_cast<HRESULT>(0x80070522u));
    if (geteuid() == 0) {
        EXPECT_EQ(CheckVistaIntegrityLevel(own), S_FALSE) << "nothing left to lift";
    }
    CloseHandle(token);
    OvEndCall();
}

// Writes one item, or deletes it, as often as it is told; the first failure is its answer.
int WriteOften(const std::vector<std::string>& arguments) {
    OvSetRoot(arguments.at(0).c_str());
    const bool deletes = arguments.at(1) == "delete";
    const int times = std::stoi(arguments.at(2));
    const CTestInstance object;
    ImpersonateSelf(SecurityImpersonation);
    HRESULT hr = S_OK;
    for (int i = 0; i < times && SUCCEEDED(hr); ++i) {
        hr = deletes ? object->DeleteItem(W("Shared\\X")) : object->SetItemLong(W("Shared\\X"), static_cast<DWORD>(i));
    }
    RevertToSelf();
    std::printf("%08X\n", static_cast<unsigned>(hr));
    return std::fflush(stdout);
}
const CChildRole writer("item-writer", WriteOften);

// OV_WRITES says how often each process does its part (200).
TEST_F(Writers, TwoWriteAndAThirdDeletes) {
    const char* const asked = std::getenv("OV_WRITES");
    const std::string times = asked ? asked : "200";
    const std::string root = m_root.Path().string();
    PutDword(W("SOFTWARE\\Orvantis\\Tracing"), W("DoTrace"), 0);  // theirs would be files
    CProcess first("item-writer", {root, "set", times}), second("item-writer", {root, "set", times});
    CProcess third("item-writer", {root, "delete", times});
    for (CProcess* process : {&first, &second, &third}) EXPECT_EQ(process->Hear(), "00000000");
    ASSERT_TRUE(ImpersonateSelf(SecurityImpersonation));
    EXPECT_EQ(m_object->SetItemLong(W("Shared\\X"), 42), S_OK);
    RevertToSelf();
    DWORD number = 0;
    EXPECT_EQ(m_object->GetItemLong(W("Shared\\X"), &number), S_FALSE);
    EXPECT_EQ(number, 42u);
    // Well-formed: the database says so, and the key holds that one value and nothing else.
    EXPECT_EQ(hivefile::CheckIntegrity(hivefile::Machine(m_root.Path())), "ok");
    CRegistryKey key;
    ASSERT_EQ(key.Open(HKEY_LOCAL_MACHINE, W("SOFTWARE\\Orvantis\\Policies\\Shared"), KEY_READ), ERROR_SUCCESS);
    DWORD keys = 7, values = 7;
    ASSERT_EQ(RegQueryInfoKeyW(key.Get(), nullptr, nullptr, nullptr, &keys, nullptr, nullptr, &values, nullptr, nullptr,
                               nullptr, nullptr),
              ERROR_SUCCESS);
    EXPECT_EQ(keys, 0u);
    EXPECT_EQ(values, 1u);
}

}  // namespace
