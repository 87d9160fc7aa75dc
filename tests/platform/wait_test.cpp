// Events, and the waits that are registered on them.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "Platform.h"

namespace {

using namespace std::chrono_literals;

struct CCalls {
    std::atomic<int> count{0};
    std::atomic<int> running{0};
    std::atomic<bool> hold{false};

    static void CALLBACK Called(PVOID context, BOOLEAN timedOut) {
        auto* self = static_cast<CCalls*>(context);
        EXPECT_FALSE(timedOut);
        ++self->running;
        ++self->count;
        while (self->hold) std::this_thread::sleep_for(1ms);
        --self->running;
    }
    bool Reach(int wanted) const {
        for (int i = 0; i < 5'000 && count < wanted; ++i) std::this_thread::sleep_for(1ms);
        return count == wanted;
    }
};

TEST(Events, AreSignalledOnceOrUntilTheyAreReset) {
    HANDLE once = CreateEventW(nullptr, FALSE, TRUE, nullptr);
    HANDLE stays = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    ASSERT_TRUE(once && stays);
    EXPECT_EQ(WaitForSingleObject(once, 0), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForSingleObject(once, 0), static_cast<DWORD>(WAIT_TIMEOUT)) << "the wait took the signal";
    EXPECT_EQ(WaitForSingleObject(stays, 1), static_cast<DWORD>(WAIT_TIMEOUT));
    EXPECT_TRUE(SetEvent(stays));
    EXPECT_EQ(WaitForSingleObject(stays, INFINITE), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForSingleObject(stays, 0), WAIT_OBJECT_0);
    EXPECT_TRUE(ResetEvent(stays));
    EXPECT_EQ(WaitForSingleObject(stays, 0), static_cast<DWORD>(WAIT_TIMEOUT));
    EXPECT_TRUE(CloseHandle(once));
    EXPECT_TRUE(CloseHandle(stays));
    EXPECT_FALSE(SetEvent(nullptr));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_HANDLE));
}

TEST(RegisteredWaits, FireAtEachSignalUntilTheyAreUnregistered) {
    HANDLE event = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    CCalls calls;
    HANDLE wait = nullptr;
    ASSERT_TRUE(RegisterWaitForSingleObject(&wait, event, &CCalls::Called, &calls, INFINITE, WT_EXECUTELONGFUNCTION));
    for (int i = 1; i <= 3; ++i) {
        EXPECT_TRUE(SetEvent(event));
        EXPECT_TRUE(calls.Reach(i)) << i;
    }
    EXPECT_TRUE(UnregisterWaitEx(wait, INVALID_HANDLE_VALUE));
    EXPECT_TRUE(SetEvent(event));
    std::this_thread::sleep_for(20ms);
    EXPECT_EQ(calls.count, 3);
    EXPECT_EQ(WaitForSingleObject(event, 0), WAIT_OBJECT_0) << "the signal is there for whoever waits now";
    CloseHandle(event);
}

TEST(RegisteredWaits, UnregisteringWaitsForTheCallThatRuns) {
    HANDLE event = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    CCalls calls;
    calls.hold = true;
    HANDLE wait = nullptr;
    ASSERT_TRUE(RegisterWaitForSingleObject(&wait, event, &CCalls::Called, &calls, INFINITE, WT_EXECUTELONGFUNCTION));
    SetEvent(event);
    ASSERT_TRUE(calls.Reach(1));
    std::thread letGo([&] {
        std::this_thread::sleep_for(20ms);
        calls.hold = false;
    });
    EXPECT_TRUE(UnregisterWaitEx(wait, INVALID_HANDLE_VALUE));
    EXPECT_EQ(calls.running, 0);
    letGo.join();
    CloseHandle(event);
}

TEST(RegisteredWaits, OnceIsOnce) {
    HANDLE event = CreateEventW(nullptr, FALSE, TRUE, nullptr);
    CCalls calls;
    HANDLE wait = nullptr;
    ASSERT_TRUE(RegisterWaitForSingleObject(&wait, event, &CCalls::Called, &calls, INFINITE, WT_EXECUTEONLYONCE));
    EXPECT_TRUE(calls.Reach(1)) << "a signal that was there already counts";
    SetEvent(event);
    std::this_thread::sleep_for(20ms);
    EXPECT_EQ(calls.count, 1);
    EXPECT_TRUE(UnregisterWaitEx(wait, INVALID_HANDLE_VALUE));
    CloseHandle(event);
}

TEST(Apartments, AreCountedForEachThread) {
    std::thread([] {
        EXPECT_EQ(CoInitializeEx(nullptr, COINIT_MULTITHREADED), S_OK);
        EXPECT_EQ(CoInitializeEx(nullptr, COINIT_MULTITHREADED), S_FALSE);
        EXPECT_EQ(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED), RPC_E_CHANGED_MODE);
        CoUninitialize();
        CoUninitialize();
        EXPECT_EQ(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED), S_OK);
        CoUninitialize();
    }).join();
}

}  // namespace
