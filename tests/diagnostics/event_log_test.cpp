// Audit events: how a record is made, what its strings say, and what the component is given.
#include <fstream>

#include "diagnostics/EventLog.h"
#include "diagnostics/RecordingOutput.h"
#include "support/Writer.h"

namespace {

using namespace testreg;

constexpr LPCWSTR kSettings = W("SOFTWARE\\Orvantis\\EventLog");

std::string Narrow(const wstr& text) {
    return {text.begin(), text.end()};
}

TEST(LogEvents, TypeAndCategoryAreTheIds) {
    const struct {
        DWORD id, type, category;
    } cases[] = {{0x0110040B, 0, 0x0400}, {0x4110040B, 4, 0x0400}, {0x8110040A, 2, 0x0400}, {0xC1101234, 1, 0x1200}};
    for (const auto& [id, type, category] : cases) {
        const LogEvent event(1, id, GUID{});
        EXPECT_EQ(event.Type(), type);
        EXPECT_EQ(event.Category(), category);
        EXPECT_EQ(event.Id(), id);
    }
}

TEST(LogEvents, Strings) {
    LogEvent event(1, kEventValueSet, GUID{});
    event << W("text") << static_cast<LPCWSTR>(nullptr) << DWORD{0} << DWORD{4294967295} << DWORD{0x80000000};
    event << OVLog::Parameter();
    std::string all;
    for (const wstr& text : event.Strings()) all += Narrow(text) + "|";
    EXPECT_EQ(all, "text||0|-1|-2147483648||");
}

TEST(LogEvents, FailuresInWords) {
    EXPECT_EQ(Narrow(OVLog::GetErrorMessage(E_ACCESSDENIED).Value()), "access is denied (0x80070005)");
    EXPECT_EQ(Narrow(OVLog::GetErrorMessage(static_cast<HRESULT>(0x8BADF00Du)).Value()), "0x8BADF00D");
}

class EventLog : public TraceTest {
  protected:
    static wstr Messages() {
        const bool isLayer = std::string(kOvHomeName) == "layer";
        const std::string path = std::string(OV_BINARIES) + (isLayer ? "/OVMessages.txt" : "/OVMessages.dll");
        return {path.begin(), path.end()};
    }
    static wstr Computer() {
        WCHAR name[MAX_PATH] = {};
        DWORD room = MAX_PATH;
        return GetComputerNameW(name, &room) ? name : W("");
    }
};

TEST_F(EventLog, TheSuitesTexts) {
    EXPECT_EQ(OVLog::COVLogResource()._LoadOVString(110), W("")) << "no file is named";
    PutString(kSettings, W("ResourceDLL"), W("nowhere\\none.dll"));
    EXPECT_EQ(OVLog::COVLogResource()._LoadOVString(110), W(""));
    PutString(kSettings, W("ResourceDLL"), Messages());
    const OVLog::COVLogResource resource;
    EXPECT_EQ(resource._LoadOVString(110), W("the computer itself"));
    for (const DWORD id : {0u, 96u, 109u, 111u, 112u, 126u, 65'535u, 0x1006Eu}) {
        EXPECT_EQ(resource._LoadOVString(id), W("")) << id;
    }
}

TEST_F(EventLog, WhoDidIt) {
    const OVLog::InitiatedBy nobody;
    EXPECT_EQ(nobody.Domain(), Computer());
    EXPECT_EQ(nobody.Account(), W("")) << "no texts, no name for it";
    PutString(kSettings, W("ResourceDLL"), Messages());
    EXPECT_EQ(OVLog::InitiatedBy().Account(), W("the computer itself"));
    EXPECT_EQ(OVLog::InitiatedBy().Value(), W(""));
    ASSERT_TRUE(ImpersonateSelf(SecurityImpersonation));
    const OVLog::InitiatedBy self;
    RevertToSelf();
    CAccessToken token;
    CSid user;
    ASSERT_EQ(token.OpenProcess(TOKEN_QUERY), 0u);
    ASSERT_EQ(token.ReadUser(user), 0u);
    const bool isNamed = !user.AccountName().empty();
    EXPECT_EQ(self.Domain(), isNamed ? user.Domain() : user.Text());
    EXPECT_EQ(self.Account().substr(0, 15), isNamed ? user.AccountName().substr(0, 15) : W("Cannot get name"));
}

TEST_F(EventLog, WhatTheComponentIsGiven) {
    const std::string path = OV_TEST_LOGGER;
    const wstr library(path.begin(), path.end());
    const LPCWSTR key = W("SOFTWARE\\Classes\\CLSID\\{337779A6-4848-428E-BE47-5C1C951794A7}\\InprocServer32");
    EXPECT_EQ(COVLog().Log(LogEvent(1, kEventValueSet, GUID{})), static_cast<HRESULT>(0x80070002u))
        << "none registered";
    PutString(key, nullptr, library);
    const CDLLLoader loaded(library.c_str());
    TestLoggerHook* const hook = loaded.Find<TestLoggerHookProc>("OvTestLoggerHook")();
    static std::string told;
    static wstr name;
    *hook = {[](void*, LPCWSTR application, DWORD level, DWORD, DWORD, DWORD, DWORD count,
                const LPCWSTR* strings) -> HRESULT {
                 name = application;
                 told = std::to_string(level) + " " + std::to_string(count) + (strings ? " some" : " none");
                 for (DWORD i = 0; i < count; ++i) told += strings[i] ? " '" + Narrow(strings[i]) + "'" : " null";
                 return S_FALSE;
             },
             nullptr};
    const COVLog log;
    EXPECT_EQ(log.Log(LogEvent(3, kEventValueSet, GUID{})), S_FALSE);
    EXPECT_EQ(told, "3 0 none");
    LogEvent two(1, kEventValueSet, GUID{});
    two << W("a") << W("");
    EXPECT_EQ(log.Log(two), S_FALSE);
    EXPECT_EQ(told, "1 2 some 'a' ''");

    TraceOn(10);
    ReadAgain();
    const LPCWSTR strings[] = {W("a"), nullptr, W("b")};
    GUID classId = {};
    EXPECT_EQ(log.Log(1, 0, 0, 7, 3, strings, 0, nullptr, classId), S_FALSE);
    EXPECT_EQ(told, "1 3 some 'a' null 'b'");
    const std::string trace = Told();
    EXPECT_NE(trace.find("U'm_sApplicationName - {FB4CA59D-9C36-4DA7-A1E8-E0E3FA7A77A0}'"), std::string::npos) << trace;
    EXPECT_NE(trace.find("U'Event logged; ID: 0x00000007, LEVEL: 1, TYPE: 0, STRINGS: a; b; '"), std::string::npos)
        << trace;
    WCHAR text[40];
    ASSERT_EQ(StringFromGUID2(classId, text, 40), 39);
    EXPECT_EQ(wstr(text), W("{FB4CA59D-9C36-4DA7-A1E8-E0E3FA7A77A0}")) << "the caller learns which class it was";
    GUID other = {0x12345678, 0x9ABC, 0xDEF0, {1, 2, 3, 4, 5, 6, 7, 8}};
    EXPECT_EQ(log.Log(1, 0, 0, 7, 0, nullptr, 0, nullptr, other), S_FALSE);
    EXPECT_EQ(name, W("{12345678-9ABC-DEF0-0102-030405060708}"));
    *hook = {};
}

}  // namespace
