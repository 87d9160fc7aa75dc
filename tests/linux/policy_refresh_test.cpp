// Policy changes on their way to objects: across processes, past a killed holder of the section, and while everything
// else goes on.
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <thread>

#include "linux/Process.h"
#include "support/Recorder.h"
#include "support/Registry.h"
#include "support/StoreDoor.h"
#include "support/TestRoot.h"
#include "userenv.h"

namespace {

using namespace testreg;
using namespace std::chrono_literals;

constexpr LPCWSTR kPolicy = W("SOFTWARE\\Policies\\Orvantis");

// Until it holds, or so long that it never will.
template <class Condition>
bool Eventually(Condition condition) {
    for (int i = 0; i < 10'000; ++i) {
        if (condition()) return true;
        std::this_thread::sleep_for(1ms);
    }
    return false;
}

DWORD Number(const CTestInstance& object, LPCWSTR name) {
    DWORD number = 0;
    object->GetItemLong(name, &number);
    return number;
}

class PolicyRefresh : public RootTest {
  protected:
    void TearDown() override { OvHideExport("Userenv.dll", nullptr, FALSE); }
    static void Signal() { ASSERT_TRUE(RefreshPolicyEx(TRUE, 0)) << GetLastError(); }
};

TEST_F(PolicyRefresh, EachObjectOfEachProcessReloadsAtOneChange) {
    CClient other(m_root.Path().string());
    CTestInstance first, second;
    EXPECT_EQ(Number(first, W("A")), 0u);
    EXPECT_EQ(Number(second, W("A")), 0u);
    for (DWORD round = 1; round <= 3; ++round) {
        ASSERT_EQ(other.Ask("set HKLM\\SOFTWARE\\Policies\\Orvantis A " + std::to_string(round)), "0");
        EXPECT_EQ(Number(first, W("A")), round - 1) << "nobody was told yet";
        ASSERT_EQ(other.Ask("signal"), "1");
        EXPECT_TRUE(Eventually([&] { return Number(first, W("A")) == round; })) << round;
        EXPECT_TRUE(Eventually([&] { return Number(second, W("A")) == round; })) << round;
    }
}

TEST_F(PolicyRefresh, WithoutTheLibraryOrOneOfItsEntryPoints) {
    PutDword(kPolicy, W("A"), 1);
    OvHideExport("Userenv.dll", nullptr, TRUE);
    CTestInstance object;
    EXPECT_EQ(Number(object, W("A")), 0u) << "no engine, no policy of the machine";
    OvHideExport("Userenv.dll", nullptr, FALSE);
    EXPECT_EQ(Number(object, W("A")), 1u) << "a library that comes later is bound then";
    for (const char* name : {"EnterCriticalPolicySection", "RegisterGPNotification", "UnregisterGPNotification"}) {
        SCOPED_TRACE(name);
        OvHideExport("Userenv.dll", name, TRUE);
        PutDword(kPolicy, W("A"), 1);
        CTestInstance partial;
        EXPECT_EQ(Number(partial, W("A")), 1u);
        PutDword(kPolicy, W("A"), 2);
        StoreDoor::LoadAndNotify(*partial);
        EXPECT_EQ(Number(partial, W("A")), 2u);
        OvHideExport("Userenv.dll", name, FALSE);
    }
    // Whatever a missing entry point left behind, nobody is kept out of the section.
    HANDLE section = EnterCriticalPolicySection(TRUE);
    EXPECT_TRUE(section);
    EXPECT_TRUE(LeaveCriticalPolicySection(section));
    EXPECT_FALSE(LeaveCriticalPolicySection(section));
}

TEST_F(PolicyRefresh, WaitsForWhoeverAppliesPolicyAndNotForTheDead) {
    CTestInstance object;
    EXPECT_EQ(Number(object, W("A")), 0u);
    auto holder = std::make_unique<CClient>(m_root.Path().string());
    ASSERT_EQ(holder->Ask("section"), "1");
    ASSERT_EQ(holder->Ask("set HKLM\\SOFTWARE\\Policies\\Orvantis A 1"), "0");
    ASSERT_EQ(holder->Ask("signal"), "1");
    std::atomic<bool> done{false};
    std::thread asking([&] {
        EXPECT_TRUE(Eventually([&] { return Number(object, W("A")) == 1; }));
        done = true;
    });
    std::this_thread::sleep_for(50ms);
    EXPECT_FALSE(done) << "the refresh waits for the section";
    holder->Kill();
    asking.join();
    EXPECT_TRUE(done);
}

// The folder of the stamps comes and goes under a listener.
TEST_F(PolicyRefresh, IsHeardInAFolderThatIsMadeLater) {
    CTestInstance object;
    EXPECT_EQ(Number(object, W("A")), 0u);
    for (DWORD round = 1; round <= 3; ++round) {
        // A refresh that is under way may put its lock into the folder while it is being removed.
        std::error_code busy;
        do {
            std::filesystem::remove_all(m_root.Path() / "policy", busy);
        } while (busy);
        PutDword(kPolicy, W("A"), round);
        Signal();
        EXPECT_TRUE(Eventually([&] { return Number(object, W("A")) == round; })) << round;
    }
}

// A gate that a callback waits at, and the test opens.
class CGate {
  public:
    void Wait() {
        std::unique_lock lock(m_mutex);
        m_reached = true;
        m_changed.notify_all();
        m_changed.wait(lock, [this] { return m_open; });
    }
    void AwaitArrival() {
        std::unique_lock lock(m_mutex);
        m_changed.wait(lock, [this] { return m_reached; });
    }
    void Open() {
        const std::lock_guard lock(m_mutex);
        m_open = true;
        m_changed.notify_all();
    }

  private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_reached = false;
    bool m_open = false;
};

TEST_F(PolicyRefresh, AReleaseWaitsForTheRefreshThatIsUnderWay) {
    CRecorder recorder;
    CGate gate;
    auto object = std::make_unique<CTestInstance>();
    EXPECT_EQ(Number(*object, W("A")), 0u);
    DWORD cookie = 0;
    ASSERT_EQ((*object)->RegisterNotification(W(""), &recorder, &cookie), S_OK);
    recorder.then = [&] {
        gate.Wait();
        return S_OK;
    };
    PutDword(kPolicy, W("A"), 1);
    Signal();
    gate.AwaitArrival();
    std::atomic<bool> released{false};
    std::thread releasing([&] {
        object.reset();
        released = true;
    });
    Signal();  // one more, which must find nobody
    std::this_thread::sleep_for(20ms);
    gate.Open();
    releasing.join();
    EXPECT_TRUE(released);
    EXPECT_TRUE(Eventually([&] { return recorder.references == 1; }));
    EXPECT_EQ(recorder.Batches(), 1);
}

TEST_F(PolicyRefresh, ACallbackMayDropTheLastReference) {
    for (int round = 0; round < 20; ++round) {
        CRecorder recorder;
        auto object = std::make_unique<CTestInstance>();
        EXPECT_EQ(Number(*object, W("none")), 0u);
        DWORD cookie = 0;
        ASSERT_EQ((*object)->RegisterNotification(W(""), &recorder, &cookie), S_OK);
        recorder.then = [&] {
            object.reset();
            return S_OK;
        };
        PutDword(kPolicy, W("A"), static_cast<DWORD>(round + 1));
        Signal();
        EXPECT_TRUE(Eventually([&] { return recorder.references == 1; })) << round;
        EXPECT_FALSE(object);
    }
}

// Refreshes from outside against queries, registrations, and objects that come and go. Whoever stays hears every change
// in its order: each old value is the new one of the delivery before.
TEST_F(PolicyRefresh, NothingIsLostInTheMiddleOfEverything) {
    const char* wanted = std::getenv("OV_REFRESHES");
    const DWORD refreshes = wanted ? static_cast<DWORD>(std::stoul(wanted)) : 100;
    std::deque<CRecorder> recorders(2);
    CTestInstance object;
    PutDword(kPolicy, W("A"), 0);
    EXPECT_EQ(Number(object, W("A")), 0u);
    DWORD cookie = 0;
    ASSERT_EQ(object->RegisterNotification(W("A"), &recorders[0], &cookie), S_OK);
    recorders[0].Take();

    std::atomic<bool> stop{false};
    std::vector<std::thread> threads;
    for (int i = 0; i < 2; ++i) {
        threads.emplace_back([&] {
            DWORD last = 0;
            while (!stop) {
                const DWORD now = Number(object, W("A"));
                EXPECT_GE(now, last) << "no store is seen half-built or going back";
                last = now;
            }
        });
    }
    threads.emplace_back([&] {
        while (!stop) {
            DWORD mine = 0;
            EXPECT_EQ(object->RegisterNotification(W(""), &recorders[1], &mine), S_OK);
            EXPECT_EQ(object->UnregisterNotification(mine), S_OK);
            recorders[1].Take();
        }
    });
    threads.emplace_back([&] {
        while (!stop) {
            CTestInstance brief;
            Number(brief, W("A"));
        }
    });
    CClient outside(m_root.Path().string());
    for (DWORD i = 1; i <= refreshes; ++i) {
        ASSERT_EQ(outside.Ask("set HKLM\\SOFTWARE\\Policies\\Orvantis A " + std::to_string(i)), "0");
        ASSERT_EQ(outside.Ask("signal"), "1");
    }
    EXPECT_TRUE(Eventually([&] { return Number(object, W("A")) == refreshes; }));
    stop = true;
    for (std::thread& thread : threads) thread.join();

    const std::vector<std::string> heard = recorders[0].Take();
    ASSERT_FALSE(heard.empty());
    std::string last = "dword 0";
    for (const std::string& line : heard) {
        const std::size_t arrow = line.find(" -> ");
        EXPECT_EQ(line.substr(0, arrow), "A: " + last);
        last = line.substr(arrow + 4);
    }
    EXPECT_EQ(last, "dword " + std::to_string(refreshes));
}

}  // namespace
