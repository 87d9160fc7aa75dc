// Critical sections, handles, and the clocks.
#include <gtest/gtest.h>

#include <atomic>
#include <ctime>
#include <thread>
#include <vector>

#include "Platform.h"

namespace {

class Section : public testing::Test {
  protected:
    void SetUp() override { ASSERT_TRUE(InitializeCriticalSectionAndSpinCount(&m_section, 0)); }
    void TearDown() override { DeleteCriticalSection(&m_section); }

    CRITICAL_SECTION m_section;
};

// A plain counter: a thread sanitizer sees each step that the lock does not order.
TEST_F(Section, OneThreadAtATime) {
    constexpr int kThreads = 4;
    constexpr int kSteps = 20000;
    int counter = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back([&] {
            for (int step = 0; step < kSteps; ++step) {
                EnterCriticalSection(&m_section);
                EnterCriticalSection(&m_section);
                ++counter;
                LeaveCriticalSection(&m_section);
                if (step % 512 == 0) std::this_thread::yield();  // so that others come to sleep on it
                ++counter;
                LeaveCriticalSection(&m_section);
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(counter, 2 * kThreads * kSteps);
}

TEST_F(Section, IsHeldUntilTheLastLeave) {
    EnterCriticalSection(&m_section);
    EnterCriticalSection(&m_section);
    bool inside = false;
    std::thread other([&] {
        EnterCriticalSection(&m_section);
        inside = true;
        LeaveCriticalSection(&m_section);
    });
    LeaveCriticalSection(&m_section);
    // Still ours: were it free, the other thread's write would race with this read.
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_FALSE(inside);
    LeaveCriticalSection(&m_section);
    other.join();
    EXPECT_TRUE(inside);
}

TEST(LastError, BelongsToTheThread) {
    std::atomic<int> step{0};
    std::thread other([&] {
        while (step != 1) {
        }
        SetLastError(6);
        step = 2;
    });
    SetLastError(5);  // behind the start of the thread, and read before its end: both may change it
    step = 1;
    while (step != 2) {
    }
    EXPECT_EQ(GetLastError(), 5u);
    other.join();
}

TEST(Mutexes, ANameIsOneObjectUntilItsLastHandle) {
    const LPCWSTR name = W("ovtest-sync-mutex");
    HANDLE first = CreateMutexW(nullptr, FALSE, name);
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(GetLastError(), 0u);
    HANDLE second = CreateMutexW(nullptr, FALSE, name);
    ASSERT_NE(second, nullptr);
    EXPECT_EQ(GetLastError(), 183u);
    EXPECT_NE(first, second);
    EXPECT_TRUE(CloseHandle(first));
    HANDLE third = CreateMutexW(nullptr, FALSE, name);
    EXPECT_EQ(GetLastError(), 183u) << "the second handle keeps it";
    EXPECT_TRUE(CloseHandle(second));
    EXPECT_TRUE(CloseHandle(third));
    HANDLE fourth = CreateMutexW(nullptr, FALSE, name);
    EXPECT_EQ(GetLastError(), 0u) << "nothing keeps it any more";
    EXPECT_TRUE(CloseHandle(fourth));
}

TEST(Mutexes, WithoutANameAreNeverShared) {
    HANDLE first = CreateMutexW(nullptr, FALSE, nullptr);
    HANDLE second = CreateMutexW(nullptr, FALSE, nullptr);
    EXPECT_EQ(GetLastError(), 0u);
    EXPECT_TRUE(CloseHandle(first));
    EXPECT_TRUE(CloseHandle(second));
}

TEST(Handles, WildOnesAreRefused) {
    HANDLE closed = CreateMutexW(nullptr, FALSE, nullptr);
    EXPECT_TRUE(CloseHandle(closed));
    const struct {
        const char* why;
        HANDLE handle;
    } kRows[] = {
        {"null", nullptr},
        {"closed already", closed},
        {"never given out", reinterpret_cast<HANDLE>(static_cast<ULONG_PTR>(0x7FFFFFF0))},
    };
    for (const auto& row : kRows) {
        SetLastError(ERROR_SUCCESS);
        EXPECT_FALSE(CloseHandle(row.handle)) << row.why;
        EXPECT_EQ(GetLastError(), 6u) << row.why;
    }
}

TEST(Clocks, LocalTimeIsThatOfTheCLibrary) {
    std::time_t before;
    std::time_t after;
    SYSTEMTIME local;
    do {  // a second may pass between the two
        before = std::time(nullptr);
        GetLocalTime(&local);
        after = std::time(nullptr);
    } while (before != after);
    const std::tm expected = *std::localtime(&before);
    EXPECT_EQ(local.wYear, expected.tm_year + 1900);
    EXPECT_EQ(local.wMonth, expected.tm_mon + 1);
    EXPECT_EQ(local.wDay, expected.tm_mday);
    EXPECT_EQ(local.wDayOfWeek, expected.tm_wday);
    EXPECT_EQ(local.wHour, expected.tm_hour);
    EXPECT_EQ(local.wMinute, expected.tm_min);
    EXPECT_EQ(local.wSecond, expected.tm_sec);
    EXPECT_LT(local.wMilliseconds, 1000);
}

TEST(Clocks, TicksGoOn) {
    const DWORD begin = GetTickCount();
    DWORD now = begin;
    while (now == begin) now = GetTickCount();
    EXPECT_LT(now - begin, 0x80000000u) << "forwards";
}

}  // namespace
