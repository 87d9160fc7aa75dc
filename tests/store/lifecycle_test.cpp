// What an object leaves behind, and the orders in which hosts begin, use and end one.
#include <gtest/gtest.h>

#include <atomic>
#include <fstream>
#include <thread>

#include "sources/PolicySave.h"
#include "store/PolicyKey.h"
#include "support/Document.h"
#include "support/Recorder.h"
#include "support/Registry.h"
#include "support/RegistryTree.h"
#include "support/StoreDoor.h"
#include "support/TestRoot.h"
#include "support/Values.h"
#include "support/Writer.h"

namespace {

using namespace testreg;

constexpr LPCWSTR kPolicy = W("SOFTWARE\\Policies\\Orvantis");

std::string CachedInfo() {
    return TreeText(kCachedInfoKey);
}

class Lifecycle : public RootTest {
  protected:
    static DWORD Ask(IOVServerInfo& server, LPCWSTR name) {
        DWORD number = 0;
        server.GetItemLong(name, &number);
        return number;
    }
};

TEST_F(Lifecycle, TheRegistryCopyIsTheLastStoreAndNothingElse) {
    PutDword(kCachedInfoKey, W("Stale"), 1);
    PutDword((wstr(kCachedInfoKey) + W("\\Old\\Older")).c_str(), W("x"), 1);
    {
        CTestInstance object;
        CPolicyMap& items = object.Items();
        items.Insert({W(""), Number(OV_TYPE_DWORD, 1)});
        items.Insert({W("A\\B\\C"), Number(OV_TYPE_DWORD, 0x10203)});
        items.Insert({W("a\\Text"), Text(W("text"))});
        items.Insert({W("Q"), Number(OV_TYPE_QWORD, 0x8000000000000001)});
        items.Insert({W("Odd"), Number(OV_TYPE_ULONG, 3)});
        items.Insert({W("PlainList"), List({Number(OV_TYPE_QWORD, 1)})});
        items.Insert({W("LogonPolicy"), List({Number(OV_TYPE_QWORD, 1), Number(OV_TYPE_QWORD, 0x14)})});
        items.Insert({W("RuntimePolicyUser"), Number(OV_TYPE_DWORD, 6)});
        items.Insert(
            {W("commonsettings\\{1750CC24-5ADB-4D63-B4A5-9A25C252275A}\\disableapps"), Number(OV_TYPE_DWORD, 1)});
    }
    const std::string copy =
        "\n=4:01000000\n"
        "A\\\nA\\B\\\nA\\B\\C=4:03020100\nA\\Text=1:text|\n"
        "Applications\\\nApplications\\{5ED04F3F-AC3E-4BE0-A157-782B204E2B8C}\\\n"
        "Applications\\{5ED04F3F-AC3E-4BE0-A157-782B204E2B8C}\\LogonPolicy=7:0000000000000001|0000000000000014||\n"
        "Q=11:0100000000000080\nRuntimePolicyUser=4:06000000\n";
    EXPECT_EQ(CachedInfo(), copy.substr(1));
    {
        // Its store begins with what the cache file brings back, which has no list; and it is asked nothing.
        CTestInstance object;
    }
    const std::string without = CachedInfo();
    EXPECT_EQ(without.find("Applications"), std::string::npos);
    EXPECT_NE(without.find("A\\B\\C=4:03020100"), std::string::npos);
    {
        CTestInstance object;
        StoreDoor::Items(*object).Clear();
    }
    EXPECT_EQ(CachedInfo(), "") << "no store, no copy";
}

// Whoever reads the copy sees it change when the store has changed, and only then.
TEST_F(Lifecycle, ACopyThatHoldsTheStoreIsNotWrittenAgain) {
    const auto end = [](DWORD number) {
        CTestInstance object;
        object.Items().Insert({W("A\\B"), Number(OV_TYPE_DWORD, number)});
    };
    end(1);
    CRegistryKey held;
    const auto isHeld = [&] {
        return Get(kCachedInfoKey, W("nothing")).error == 2 &&
               RegQueryInfoKeyW(held.Get(), nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                                nullptr, nullptr, nullptr) == 0;
    };
    ASSERT_EQ(held.Open(HKEY_LOCAL_MACHINE, kCachedInfoKey, KEY_READ), 0);
    const auto written = std::filesystem::last_write_time("svinfo.cch");
    end(1);
    EXPECT_TRUE(isHeld()) << "the key is the same one";
    EXPECT_EQ(std::filesystem::last_write_time("svinfo.cch"), written);
    const struct {
        const char* what;
        void (*act)();
    } changes[] = {
        {"another number", [] { PutDword((wstr(kCachedInfoKey) + W("\\A")).c_str(), W("B"), 9); }},
        {"another type", [] { PutQword((wstr(kCachedInfoKey) + W("\\A")).c_str(), W("B"), 1); }},
        {"one more value", [] { PutDword(kCachedInfoKey, W("More"), 1); }},
        {"an empty key", [] { Make((wstr(kCachedInfoKey) + W("\\Empty")).c_str()); }},
    };
    for (const auto& change : changes) {
        change.act();
        end(1);
        EXPECT_EQ(CachedInfo(), "\nA\\\nA\\B=4:01000000\n" + std::string()) << change.what;
    }
    ASSERT_EQ(held.Open(HKEY_LOCAL_MACHINE, kCachedInfoKey, KEY_READ), 0);
    end(2);
    EXPECT_FALSE(isHeld());
    EXPECT_EQ(CachedInfo(), "\nA\\\nA\\B=4:02000000\n" + std::string());
}

// Term and the last reference in each order, with subscribers and without.
TEST_F(Lifecycle, EveryOrderOfBeginningAndEnd) {
    PutDword(kPolicy, W("A"), 5);
    CRecorder recorder;
    for (int order = 0; order < 32; ++order) {
        SCOPED_TRACE(order);
        recorder.references = 1;
        {
            CTestInstance object;
            if (order & 1) {
                EXPECT_EQ(object->Init(), S_OK);
            }
            if (order & 2) {
                EXPECT_EQ(Ask(*object, W("A")), 5u);
            }
            DWORD cookie = 0;
            if (order & 4) {
                EXPECT_EQ(object->RegisterNotification(W(""), &recorder, &cookie), S_OK);
            }
            if (order & 8) {
                EXPECT_EQ(object->Term(), S_OK);
                EXPECT_EQ(recorder.references, 1u);
                EXPECT_EQ(object->Term(), S_OK);
                EXPECT_EQ(object->Init(), S_OK) << "which begins nothing anew";
                EXPECT_EQ(object->RegisterNotification(W(""), &recorder, &cookie), static_cast<HRESULT>(0x80010001));
            }
            if (order & 16) {
                EXPECT_EQ(Ask(*object, W("A")), 5u);
            }
        }
        EXPECT_EQ(recorder.references, 1u);
    }
}

// A client that lets go of the object where it is called back, in each operation that calls it.
TEST_F(Lifecycle, TheLastReferenceMayGoInACallback) {
    const struct {
        const char* what;
        void (*act)(CServerInfo&, CRecorder&, DWORD cookie);
    } rows[] = {
        {"the first question",
         [](CServerInfo& object, CRecorder&, DWORD) {
             DWORD number = 0;
             EXPECT_EQ(object.GetItemLong(W("A"), &number), S_OK);
             EXPECT_EQ(number, 2u);
         }},
        {"the first list",
         [](CServerInfo& object, CRecorder&, DWORD) {
             DWORD count = 0;
             ULONGLONG* list = nullptr;
             object.GetSessionPolicyList(&count, &list);
         }},
        {"SetWorkgroupPolicies", [](CServerInfo& object, CRecorder&, DWORD) { object.SetWorkgroupPolicies(); }},
        {"RegisterNotification",
         [](CServerInfo& object, CRecorder& recorder, DWORD) {
             DWORD second = 0;
             object.RegisterNotification(W(""), &recorder, &second);
         }},
        {"SetItemLong",
         [](CServerInfo& object, CRecorder&, DWORD) {
             StoreDoor::StandIn(object, &CheckPlainly);
             object.SetItemLong(W("L"), 1);
         }},
    };
    for (const auto& row : rows) {
        std::filesystem::remove("svinfo.cch");  // what another object left is nothing new
        PutDword(kPolicy, W("A"), 1);
        auto* object = new CComObject<CServerInfo>;
        object->Construct();
        object->AddRef();
        CRecorder recorder;
        DWORD cookie = 0;
        ASSERT_EQ(object->RegisterNotification(W(""), &recorder, &cookie), S_OK);
        if (std::string_view(row.what).starts_with("the first")) {
            recorder.Take();
        } else {
            EXPECT_EQ(Ask(*object, W("A")), 1u);
        }
        PutDword(kPolicy, W("A"), 2);
        bool released = false;
        recorder.then = [&] {
            if (std::exchange(released, true)) return S_OK;
            EXPECT_GT(object->Release(), 0u) << "the operation holds on to it";
            return S_OK;
        };
        ImpersonateSelf(SecurityImpersonation);
        row.act(*object, recorder, cookie);
        RevertToSelf();
        EXPECT_TRUE(released) << row.what;
        EXPECT_EQ(recorder.references, 1u) << row.what << ": gone, with its subscribers";
    }
}

// Also in the Release of a callback that is let go of.
TEST_F(Lifecycle, OrWhenACallbackIsLetGoOf) {
    struct CLast : CRecorder {
        STDMETHODIMP_(ULONG) Release() override {
            const ULONG left = CRecorder::Release();
            if (left == 1 && object) std::exchange(object, nullptr)->Release();
            return left;
        }
        CComObject<CServerInfo>* object = nullptr;
    };
    for (const bool byTerm : {true, false}) {
        CLast last;
        auto* object = new CComObject<CServerInfo>;
        object->Construct();
        object->AddRef();
        DWORD cookie = 0;
        ASSERT_EQ(object->RegisterNotification(W(""), &last, &cookie), S_OK);
        last.object = object;
        EXPECT_EQ(byTerm ? object->Term() : object->UnregisterNotification(cookie), S_OK);
        EXPECT_EQ(last.object, nullptr);
    }
}

TEST_F(Lifecycle, AnswersWithoutAHomeForItsFiles) {
    PutDword(kPolicy, W("A"), 5);
    PutDword(kLocalPolicyKey, W("L"), 6);
    std::ofstream("file") << "no folder";
    const wstr homes[] = {WidePath(m_root.Path() / "none" / "at all"), WidePath(m_root.Path() / "file"),
                          wstr(300, W('x')), W("?*|<>")};
    for (const wstr& home : homes) {
        PutString(W("SOFTWARE\\Orvantis\\Core"), W("BinDir"), home);
        CTestInstance object;
        EXPECT_EQ(Ask(*object, W("A")), 5u);
        EXPECT_EQ(Ask(*object, W("L")), 6u);
    }
    EXPECT_NE(CachedInfo().find("A=4:05000000"), std::string::npos) << "the copy does not depend on the file";
}

// Objects that come and go on several threads, beside one that all of them use and end.
TEST_F(Lifecycle, ManyThreadsBeginAndEnd) {
    PutDword(kPolicy, W("A"), 5);
    auto* shared = new CComObject<CServerInfo>;
    shared->Construct();
    shared->AddRef();
    std::vector<std::thread> threads;
    std::atomic<int> wrong{0};
    for (int i = 0; i < 4; ++i) {
        shared->AddRef();
        threads.emplace_back([&, i] {
            CRecorder recorder;
            for (int round = 0; round < 10; ++round) {
                CTestInstance own;
                DWORD cookie = 0;
                wrong += Ask(*own, W("A")) != 5;
                own->RegisterNotification(W("A"), &recorder, &cookie);
                shared->RegisterNotification(W("A"), &recorder, &cookie);
                wrong += Ask(*shared, W("A")) != 5;
                if (round % 3 == 0) own->SetWorkgroupPolicies();
                if (round % 3 == 1) shared->SetWorkgroupPolicies();
                shared->UnregisterNotification(cookie);
                if (i == 0 && round == 5) shared->Term();
                if (round & 1) own->Term();
            }
            shared->Release();
            wrong += recorder.references != 1;
        });
    }
    shared->Release();
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(wrong, 0);
}

}  // namespace
