// A computer on which items are written: this thread acts for the process, and a logger and a subscriber listen.
#pragma once

#include "diagnostics/EventLogger.h"
#include "module/Library.h"
#include "sources/AuthPolicy.h"
#include "store/PolicyKey.h"
#include "support/Recorder.h"
#include "support/Registry.h"
#include "support/StoreDoor.h"
#include "support/TestLogger.h"
#include "support/TestRoot.h"

// Where a system lacks the check that the object asks for, its plain one stands in.
inline BOOL WINAPI CheckPlainly(PSECURITY_DESCRIPTOR security, PSID, HANDLE token, DWORD wanted, OBJECT_TYPE_LIST*,
                                DWORD, GENERIC_MAPPING* mapping, PRIVILEGE_SET* privileges, DWORD* privilegesSize,
                                DWORD* granted, DWORD* status) {
    using Proc =
        BOOL(WINAPI*)(PSECURITY_DESCRIPTOR, HANDLE, DWORD, GENERIC_MAPPING*, PRIVILEGE_SET*, DWORD*, DWORD*, BOOL*);
    const CDLLLoader advapi32(W("Advapi32.dll"));
    BOOL allowed = FALSE;
    const auto check = advapi32.Find<Proc>("AccessCheck");
    if (!check || !check(security, token, wanted, mapping, privileges, privilegesSize, granted, &allowed)) return FALSE;
    *status = allowed ? ERROR_SUCCESS : ERROR_ACCESS_DENIED;
    return TRUE;
}

class CWriterFixture : public RootTest {
  protected:
    CWriterFixture() : m_logger(LoggerPath().c_str()) {
        EXPECT_TRUE(m_logger) << GetLastError();
        RegisterLogger(LoggerPath());
        m_hook = m_logger.Find<TestLoggerHookProc>("OvTestLoggerHook")();
        *m_hook = {&Take, this};
        StoreDoor::StandIn(*m_object, &CheckPlainly);
        m_object->GetInfo(0, nullptr);
        EXPECT_EQ(m_object->RegisterNotification(W(""), &m_subscriber, &m_cookie), S_OK);
        EXPECT_TRUE(ImpersonateSelf(SecurityImpersonation));
    }
    ~CWriterFixture() override {
        RevertToSelf();
        m_object->UnregisterNotification(m_cookie);
        *m_hook = {};
    }

    static wstr LoggerPath() {
        const std::string path = OV_TEST_LOGGER;
        return {path.begin(), path.end()};
    }
    static void RegisterLogger(const wstr& path) {
        testreg::PutString(W("SOFTWARE\\Classes\\CLSID\\{337779A6-4848-428E-BE47-5C1C951794A7}\\InprocServer32"),
                           nullptr, path);
    }

    // The events since the last time, "id string | string | ...", without domain and account.
    std::vector<std::string> Events() { return std::exchange(m_events, {}); }

    CDLLLoader m_logger;
    TestLoggerHook* m_hook;
    std::function<HRESULT()> m_answer;  // of the logger
    CTestInstance m_object;
    CRecorder m_subscriber;
    DWORD m_cookie = 0;

  private:
    static HRESULT Take(void* context, LPCWSTR application, DWORD level, DWORD type, DWORD category, DWORD id,
                        DWORD count, const LPCWSTR* strings) {
        auto& self = *static_cast<CWriterFixture*>(context);
        EXPECT_EQ(wstr(application), W("{FB4CA59D-9C36-4DA7-A1E8-E0E3FA7A77A0}"));
        EXPECT_EQ(level, 1u);
        EXPECT_EQ(category, 0x0400u);
        EXPECT_EQ(type, id >> 31 ? 2u : 0u);
        char text[16];
        std::snprintf(text, sizeof text, "%08X", static_cast<unsigned>(id));
        std::string line = text;
        const DWORD who = id == kEventItemDeleted || id == kEventItemDeleteFailed ? 2 : 3;
        for (DWORD i = 0; i < count; ++i) {
            if (i == who || i == who + 1) continue;  // domain and account: whoever runs the tests
            const wstr wide = strings[i];
            line += (i ? " | " : " ") + std::string(wide.begin(), wide.end());
        }
        self.m_events.push_back(line);
        return self.m_answer ? self.m_answer() : S_OK;
    }

    std::vector<std::string> m_events;
};
