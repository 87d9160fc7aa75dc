// Who gets which credentials: every kind of caller, policy, kiosk, recovery account, lock agent and spare key, asked
// through the interface.
#include <gtest/gtest.h>

#include <optional>

#include "authpolicy/UserIdentity.h"
#include "diagnostics/RecordingOutput.h"
#include "store/PolicyKey.h"
#include "support/FakeUserService.h"
#include "support/Registry.h"
#include "support/StoreDoor.h"
#include "support/TestRoot.h"

namespace {

using namespace testreg;

using Masks = std::vector<ULONGLONG>;

const wstr kLists = wstr(kLocalPolicyKey) + W("\\") + wstr(AppsPolicyPrefix);
constexpr LPCWSTR kAdminSid = W("S-1-5-21-1-2-3-500");
constexpr LPCWSTR kUserSid = W("S-1-5-21-1-2-3-1000");

// One of the forms in which a policy item can be there, and the alternatives that it stands for.
struct Form {
    const char* name;
    std::optional<Masks> masks;  // none: it cannot be read
    HRESULT failure = S_OK;      // of its expansion
    void (*put)(LPCWSTR item) = nullptr;
};
const Form kForms[] = {
    {"absent", std::nullopt, S_OK, [](LPCWSTR) {}},
    {"number 0", Masks{}, S_OK, [](LPCWSTR item) { PutDword(kLocalPolicyKey, item, 0); }},
    {"each bit", Masks{0x1, 0x2, 0x8}, S_OK, [](LPCWSTR item) { PutDword(kLocalPolicyKey, item, 0x000B); }},
    {"whole mask", Masks{0x3}, S_OK, [](LPCWSTR item) { PutDword(kLocalPolicyKey, item, 0x00010003); }},
    {"whole mask of nothing", Masks{0}, S_OK, [](LPCWSTR item) { PutDword(kLocalPolicyKey, item, 0x00010000); }},
    {"bad selector", Masks{}, E_UNEXPECTED, [](LPCWSTR item) { PutDword(kLocalPolicyKey, item, 0x00020001); }},
    {"list", Masks{0x8, 0x40, 0x8000000000000010}, S_OK,
     [](LPCWSTR item) {
         PutList(kLists.c_str(), item, {W("8"), W("40"), W("8000000000000010")});
     }},
    {"empty list", std::nullopt, S_OK, [](LPCWSTR item) { PutList(kLists.c_str(), item, {W("")}); }},
    {"text", Masks{}, E_UNEXPECTED, [](LPCWSTR item) { PutString(kLocalPolicyKey, item, W("t")); }},
};

class Decisions : public RootTest {
  protected:
    void SetUp() override {
        ForgetKioskProduct();
        m_service.users = {{W("DOM\\boss"), {W("DOM\\boss"), kAdminSid, false}},
                           {W("DOM\\user"), {W("DOM\\user"), kUserSid, false}}};
        PutDword((wstr(W("SOFTWARE\\Orvantis\\DB\\Users\\")) + kAdminSid).c_str(), W("UserRights"), 2);
        PutDword((wstr(W("SOFTWARE\\Orvantis\\DB\\Users\\")) + kUserSid).c_str(), W("UserRights"), 0);
    }
    static void Forget(LPCWSTR item) {
        CRegistryKey key = Make(kLocalPolicyKey);
        RegDeleteValueW(key.Get(), item);
        RegDeleteValueW(Make(kLists.c_str()).Get(), item);
    }
    // The result, with the list, as "0x00000000 1 2 40".
    template <class Ask>
    static std::string Told(Ask ask) {
        DWORD count = 0xEE;
        ULONGLONG* list = reinterpret_cast<ULONGLONG*>(8);
        const HRESULT hr = ask(&count, &list);
        std::string text = Text(hr, list ? Masks(list, list + count) : Masks());
        if (!list) {
            EXPECT_EQ(count, 0u);
        }
        CoTaskMemFree(list);
        return text;
    }
    static std::string Text(HRESULT hr, const Masks& masks) {
        char number[32];
        std::snprintf(number, sizeof number, "0x%08X", static_cast<unsigned>(hr));
        std::string text = number;
        for (const ULONGLONG mask : masks) {
            std::snprintf(number, sizeof number, " %llX", mask);
            text += number;
        }
        return text;
    }

    CFakeUserService m_service;
    CTestInstance m_object;
};

// What the whole list of a policy is, by the rules for what is added and taken out.
std::string Adjusted(Masks masks, bool spareKey) {
    const auto has = [&](ULONGLONG mask) { return std::find(masks.begin(), masks.end(), mask) != masks.end(); };
    std::string text = "0x00000000";
    if (!masks.empty()) {
        if (!has(0x40)) masks.push_back(0x40);
        if (spareKey && !has(0x8)) masks.push_back(0x8);
        if (!spareKey) std::erase(masks, 0x8u);
    }
    char number[32];
    for (const ULONGLONG mask : masks) {
        std::snprintf(number, sizeof number, " %llX", mask);
        text += number;
    }
    return text;
}

TEST_F(Decisions, LogonListsOfEveryKind) {
    struct {
        LPCWSTR name;
        DWORD format;
        bool recovery;
        bool admin;
    } const kUsers[] = {
        {W("DOM\\boss"), kNameSam, false, true},      {W("DOM\\user"), kNameSam, false, false},
        {W("rEcOvErY"), kNameSid, true, false},       {W("S-1-5-1832554948-7"), kNameSid, true, false},
        {W("anybody"), kNameAsItStands, true, false},
    };
    struct {
        const char* name;
        std::optional<DWORD> value;
        bool allowed;
    } const kSpareKeys[] = {{"absent", std::nullopt, true}, {"0", 0, false}, {"1", 1, true}};

    for (const Form& common : kForms) {
        common.put(W("LogonPolicy"));
        for (const Form& special : kForms) {
            special.put(W("LogonPolicyAdmin"));
            PutDword(kLocalPolicyKey, W("LogonPolicyUser"), 0x4);
            for (const auto& spareKey : kSpareKeys) {
                if (spareKey.value)
                    PutDword(W("SOFTWARE\\Orvantis\\Policies\\SpareKey"), W("SpareKeyAllowed"), *spareKey.value);
                if (!spareKey.value)
                    RegDeleteValueW(Make(W("SOFTWARE\\Orvantis\\Policies\\SpareKey")).Get(), W("SpareKeyAllowed"));
                for (const auto& user : kUsers) {
                    SCOPED_TRACE(std::string(common.name) + ", " + special.name + ", spare key " + spareKey.name);
                    const auto ask = [&](DWORD* count, ULONGLONG** list) {
                        return m_object->GetUserLogonPolicyList(user.name, user.format, count, list);
                    };
                    const Form user4{"", Masks{0x4}};
                    const Form& decides = common.masks ? common : user.admin ? special : user4;
                    const std::string expected = user.recovery             ? "0x00000000 1"
                                                 : !decides.masks          ? "0x80070002"
                                                 : FAILED(decides.failure) ? "0x8000FFFF"
                                                                           : Adjusted(*decides.masks, spareKey.allowed);
                    EXPECT_EQ(Told(ask), expected);
                    m_service.lock = S_OK;
                    m_service.masks = {0x99, 0x8};
                    EXPECT_EQ(Told(ask), "0x00000000 99 8") << "a locked computer wins over everything";
                    m_service.lock = S_FALSE;
                }
            }
            Forget(W("LogonPolicyAdmin"));
        }
        Forget(W("LogonPolicy"));
    }
}

TEST_F(Decisions, WhatGoesWrongOnTheWayToALogonList) {
    PutDword(kLocalPolicyKey, W("LogonPolicy"), 1);
    const auto ask = [&](LPCWSTR name, DWORD format) {
        return Told([&](DWORD* count, ULONGLONG** list) {
            return m_object->GetUserLogonPolicyList(name, format, count, list);
        });
    };
    EXPECT_EQ(ask(W("no sid"), kNameSid), "0x80070539") << "a name that says it is a SID must be one";
    m_service.hasAgent = false;
    EXPECT_EQ(ask(W("DOM\\user"), kNameSam), "0x00000000 1 40 8") << "no agent is no failure";
    m_service.creation = E_ACCESSDENIED;
    EXPECT_EQ(ask(W("DOM\\user"), kNameSam), "0x80070005");
    DWORD count = 7;
    ULONGLONG* list = nullptr;
    EXPECT_EQ(m_object->GetUserLogonPolicyList(W(""), kNameSam, &count, &list), E_INVALIDARG);
    EXPECT_EQ(m_object->GetUserLogonPolicyList(nullptr, kNameSam, &count, &list), E_INVALIDARG);
    EXPECT_EQ(count, 7u) << "not touched";
    EXPECT_EQ(m_object->GetUserLogonPolicyList(W("a"), kNameSam, &count, nullptr), E_INVALIDARG);
    EXPECT_EQ(count, 0u);
    EXPECT_EQ(m_object->GetSessionPolicyList(nullptr, &list), E_INVALIDARG);
    EXPECT_EQ(m_object->GetUserSessionPolicyList(nullptr, 3, &count, &list), E_INVALIDARG);
}

TEST_F(Decisions, AdministratorsOfADomainAreRemembered) {
    EXPECT_EQ(m_object->IsAdmin(W("DOM\\boss"), kNameSam), S_OK) << "every number above 0";
    EXPECT_EQ(m_object->IsAdmin(W("DOM\\user"), kNameSam), S_FALSE);
    EXPECT_EQ(m_object->IsAdmin(W("nobody knows"), kNameSam), S_FALSE);
    EXPECT_EQ(m_object->IsAdmin(W(""), kNameSam), S_FALSE);
    m_service.users[W("empty")] = {W(""), kAdminSid, false};
    EXPECT_EQ(m_object->IsAdmin(W("empty"), kNameSam), S_FALSE) << "no SAM name";
    m_service.hasNames = false;
    EXPECT_EQ(m_object->IsAdmin(W("DOM\\boss"), kNameSam), S_FALSE);
}

TEST_F(Decisions, SessionListsOfNamedUsers) {
    for (const bool kiosk : {false, true}) {
        ForgetKioskProduct();
        if (kiosk) PutDword(W("SOFTWARE\\Orvantis\\Kiosk\\Logon"), W("KioskLogon"), 5);
        const LPCWSTR first = kiosk ? W("KioskRuntimePolicy") : W("RuntimePolicy");
        PutDword(kLocalPolicyKey, kiosk ? W("RuntimePolicy") : W("KioskRuntimePolicy"), 0x80);
        for (const Form& common : kForms) {
            common.put(first);
            PutDword(kLocalPolicyKey, W("RuntimePolicyAdmin"), 0x2);
            for (const bool userItem : {false, true}) {
                if (userItem) PutDword(kLocalPolicyKey, W("RuntimePolicyUser"), 0x4);
                if (!userItem) Forget(W("RuntimePolicyUser"));
                for (const bool admin : {false, true}) {
                    SCOPED_TRACE(std::string(common.name) + (admin ? ", admin" : ", user") + (kiosk ? ", kiosk" : ""));
                    const std::string expected = FAILED(common.failure) ? "0x8000FFFF"
                                                 : common.masks         ? Text(S_OK, *common.masks)
                                                 : admin                ? "0x00000000 2"
                                                 : userItem             ? "0x00000000 4"
                                                                        : "0x80070002";
                    EXPECT_EQ(Told([&](DWORD* count, ULONGLONG** list) {
                                  return m_object->GetUserSessionPolicyList(admin ? W("DOM\\boss") : W("DOM\\user"),
                                                                            kNameSam, count, list);
                              }),
                              expected);
                }
            }
            Forget(first);
        }
        Forget(W("RuntimePolicy"));
        Forget(W("KioskRuntimePolicy"));
    }
}

// Whom a call is made for: nobody, who refuses, the system, an administrator, users with and without a policy. Each in
// a kiosk and outside of one, with every form of the common item.
TEST_F(Decisions, SessionListsOfCallers) {
    if (std::string(kOvHomeName) != "layer") GTEST_SKIP() << "a host declares its callers on the layer alone";
    constexpr LPCWSTR kOwn = W("S-1-22-1-51001"), kPlain = W("S-1-22-1-51002");
    HKEY hive = nullptr;
    ASSERT_EQ(RegCreateKeyExW(HKEY_USERS, (wstr(kOwn) + W("\\SOFTWARE\\Policies\\Orvantis")).c_str(), 0, nullptr, 0,
                              KEY_ALL_ACCESS, nullptr, &hive, nullptr),
              ERROR_SUCCESS);
    for (DWORD own = 0x20; const LPCWSTR name : {W("RuntimePolicy"), W("KioskRuntimePolicy")}) {
        RegSetValueExW(hive, name, 0, REG_DWORD, reinterpret_cast<const BYTE*>(&own), sizeof own);
        own <<= 1;
    }
    RegCloseKey(hive);
    constexpr const char* kAdmins = "0x00000000 2";
    constexpr const char* kOthers = "0x00000000 4";
    struct {
        const char* name;
        std::vector<LPCWSTR> sids;
        bool declared;
        const char* byRole;  // what is left when nobody's common item can be read
        bool own;
    } const kCallers[] = {
        {"nobody", {}, false, "0x800703F0", false},
        {"refuses", {}, true, kOthers, false},
        {"system", {W("S-1-5-18"), W("S-1-22-2-0"), W("S-1-5-32-544")}, true, kAdmins, false},
        {"administrator", {kPlain, W("S-1-22-2-100"), W("S-1-5-32-544")}, true, kAdmins, false},
        {"user", {kPlain, W("S-1-22-2-100")}, true, kOthers, false},
        {"user with a policy", {kOwn, W("S-1-22-2-100")}, true, kOthers, true},
    };
    PutDword(kLocalPolicyKey, W("RuntimePolicyAdmin"), 0x2);
    PutDword(kLocalPolicyKey, W("RuntimePolicyUser"), 0x4);
    for (const bool kiosk : {false, true}) {
        ForgetKioskProduct();
        if (kiosk) PutDword(W("SOFTWARE\\Orvantis\\Kiosk\\Logon"), W("KioskLogon"), 1);
        const LPCWSTR item = kiosk ? W("KioskRuntimePolicy") : W("RuntimePolicy");
        for (const Form& common : kForms) {
            common.put(item);
            for (const auto& caller : kCallers) {
                SCOPED_TRACE(std::string(caller.name) + ", " + common.name + (kiosk ? ", kiosk" : ""));
                if (caller.declared) {
                    ASSERT_EQ(OvBeginCallOfSids(caller.sids.data(), static_cast<DWORD>(caller.sids.size()), 3), 0u);
                }
                const std::string expected = caller.own               ? Text(S_OK, {kiosk ? 0x40u : 0x20u})
                                             : FAILED(common.failure) ? "0x8000FFFF"
                                             : common.masks           ? Text(S_OK, *common.masks)
                                                                      : caller.byRole;
                EXPECT_EQ(
                    Told([&](DWORD* count, ULONGLONG** list) { return m_object->GetSessionPolicyList(count, list); }),
                    expected);
                OV_SERVER_INFO_EX record = {item, OV_QUERY, {}};
                EXPECT_EQ(m_object->GetInfo(1, &record), S_OK);
                EXPECT_EQ(record.hr == S_OK, caller.own) << "and a query finds the same user's policy";
                if (SUCCEEDED(record.hr)) OvFreeServerValue(record.value);
                HANDLE token = nullptr;
                EXPECT_FALSE(OpenThreadToken(GetCurrentThread(), TOKEN_QUERY, TRUE, &token))
                    << "never left impersonating";
                if (caller.declared) OvEndCall();
            }
            Forget(item);
        }
    }
}

class DecisionTrace : public TraceTest {
  protected:
    void SetUp() override {
        TraceTest::SetUp();
        ForgetKioskProduct();
        TraceOn(10);
        ReadAgain();
    }
    // The messages that a call leaves, of the decisions alone.
    template <class Call>
    std::string Messages(Call call) {
        m_entries.clear();
        call();
        std::string text;
        for (const TraceEntry& entry : m_entries) {
            static constexpr const char* kOfDecisions[] = {"User is", "Local user",  "Domain user",
                                                           "Do not",  "Distinguish", "This is",
                                                           "#####",   "Kiosk",       "Cannot get"};
            for (const char* start : kOfDecisions) {
                if (entry.tag == 'U' && entry.text.starts_with(start)) text += entry.text + "|";
            }
        }
        return text;
    }
    CFakeUserService m_service;
    CTestInstance m_object;
};

TEST_F(DecisionTrace, TellsTheRoad) {
    m_service.users = {{W("DOM\\boss"), {W("DOM\\boss"), kAdminSid, false}}, {W("none"), {W(""), W(""), true}}};
    PutDword((wstr(W("SOFTWARE\\Orvantis\\DB\\Users\\")) + kAdminSid).c_str(), W("UserRights"), 1);
    DWORD count = 0;
    ULONGLONG* list = nullptr;
    const auto logon = [&](LPCWSTR name, DWORD format) {
        return Messages([&] { m_object->GetUserLogonPolicyList(name, format, &count, &list); });
    };
    EXPECT_EQ(logon(W("DOM\\boss"), kNameSam),
              "Distinguish between admins and users.|User is DOM\\boss|Domain user ...|User is an Administrator.|");
    EXPECT_EQ(logon(W("none"), kNameSam),
              "Distinguish between admins and users.|Cannot get some of users names. SAM = "
              "0x0|User is not an Administrator.|");
    EXPECT_EQ(logon(W("recovery"), kNameSid), "This is recovery user...|");
    CoTaskMemFree(list);
    PutDword(kLocalPolicyKey, W("LogonPolicy"), 0);
    EXPECT_EQ(logon(W("DOM\\boss"), kNameSam), "Do not distinguish between admins and users.|");
    m_service.lock = S_OK;
    EXPECT_EQ(logon(W("DOM\\boss"), kNameSam), "##### Computer is locked by Anti-Theft Agent!!!!|");
    CoTaskMemFree(list);
    const auto session = [&] {
        return Messages([&] { m_object->GetUserSessionPolicyList(W("DOM\\boss"), kNameSam, &count, &list); });
    };
    EXPECT_EQ(session(),
              "Kiosk product = 0|Distinguish between admins and users.|User is DOM\\boss|Domain user ...|User "
              "is an Administrator.|");
    PutDword(kLocalPolicyKey, W("RuntimePolicy"), 0);
    EXPECT_EQ(session(), "Kiosk product = 0|Do not distinguish between admins and users.|");
    EXPECT_EQ(Messages([&] { m_object->GetSessionPolicyList(&count, &list); }),
              "Kiosk session = 0|Do not distinguish between admins and users.|");
}

TEST_F(Decisions, KioskSessionsUnlessTheirKeySaysOtherwise) {
    EXPECT_FALSE(IsKioskSession(4));
    ForgetKioskProduct();
    PutDword(W("SOFTWARE\\Orvantis\\Kiosk\\Logon"), W("KioskLogon"), 1);
    EXPECT_TRUE(IsKioskSession(4)) << "without a key of its own";
    const auto put = [](LPCWSTR path, DWORD value) {
        CRegistryKey key;
        EXPECT_EQ(key.Create(HKEY_LOCAL_MACHINE, path, nullptr, 0, KEY_ALL_ACCESS | KEY_WOW64_32KEY, nullptr, nullptr),
                  0);
        EXPECT_EQ(key.SetDword(W("KioskAccount"), value), 0);
    };
    put(W("SOFTWARE\\Orvantis\\Kiosk\\Session\\4294967294"), 0);
    put(W("SOFTWARE\\Orvantis\\Kiosk\\Session\\10"), 2);
    EXPECT_FALSE(IsKioskSession(4294967294u));
    EXPECT_TRUE(IsKioskSession(10));
    DWORD own = 0;
    ProcessIdToSessionId(GetCurrentProcessId(), &own);
    EXPECT_EQ(IsKioskSession(0xFFFFFFFF), IsKioskSession(own));
    PutDword(W("SOFTWARE\\Policies\\Orvantis"), W("KioskLogon"), 0);
    EXPECT_TRUE(IsKioskSession(4)) << "asked once in a process";
    ForgetKioskProduct();
    EXPECT_FALSE(IsKioskSession(4)) << "the Group Policy's 0 settles it";
    PutString(W("SOFTWARE\\Policies\\Orvantis"), W("KioskLogon"), W("0"));
    ForgetKioskProduct();
    EXPECT_TRUE(IsKioskSession(4)) << "a text is no answer";
}

}  // namespace
