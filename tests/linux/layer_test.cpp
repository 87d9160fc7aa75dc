// What the layer promises beyond the names it serves: whose clocks it reads, where it finds modules, forks, hiding.
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <string>

#include "../../platform/LocalMinute.h"
#include "Platform.h"
#include "module/Library.h"

namespace {

namespace fs = std::filesystem;

DWORD CoarseMilliseconds() {
    timespec now;
    clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
    return static_cast<DWORD>(now.tv_sec * 1000 + now.tv_nsec / 1000000);
}

TEST(LayerClocks, TicksAreTheMonotonicMilliseconds) {
    const DWORD before = CoarseMilliseconds();
    const DWORD ticks = GetTickCount();
    const DWORD after = CoarseMilliseconds();
    EXPECT_LE(ticks - before, after - before);
}

// Every second around the changes that a time zone makes, forwards, backwards and in leaps.
TEST(LayerClocks, LocalTimeIsTheCLibrarysAtEverySecond) {
    const struct {
        const char* why;
        const char* zone;
        std::time_t around;
    } kRows[] = {
        {"a new year", "UTC0", 1735689600},
        {"the clock goes forward", "CET-1CEST,M3.5.0,M10.5.0/3", 1711846800},
        {"the clock goes back", "CET-1CEST,M3.5.0,M10.5.0/3", 1729990800},
        {"an offset of half a minute", "ODD-0:19:32", 1735689600},
    };
    const std::string before = std::getenv("TZ") ? std::getenv("TZ") : "";
    for (const auto& row : kRows) {
        setenv("TZ", row.zone, 1);
        tzset();
        CLocalMinute minute;
        const auto check = [&](std::time_t second) {
            std::tm expected;
            localtime_r(&second, &expected);
            const std::tm given = minute.At(second);
            EXPECT_TRUE(given.tm_sec == expected.tm_sec && given.tm_min == expected.tm_min &&
                        given.tm_hour == expected.tm_hour && given.tm_mday == expected.tm_mday &&
                        given.tm_mon == expected.tm_mon && given.tm_year == expected.tm_year &&
                        given.tm_wday == expected.tm_wday)
                << row.why << ", second " << second;
        };
        for (std::time_t second = row.around - 200; second < row.around + 200; ++second) check(second);
        for (std::time_t second = row.around + 200; second > row.around - 200; second -= 7) check(second);
    }
    before.empty() ? unsetenv("TZ") : setenv("TZ", before.c_str(), 1);
    tzset();
}

// Runs `check` in the child of a fork; true if it held there.
template <class Check>
bool HoldsInChild(Check check) {
    const pid_t child = fork();
    if (child == 0) _exit(check() ? 0 : 1);
    int status = 0;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

TEST(LayerThreads, TheChildOfAForkHasNumbersOfItsOwn) {
    EXPECT_EQ(GetCurrentThreadId(), static_cast<DWORD>(gettid()));
    EXPECT_TRUE(HoldsInChild([] {
        return GetCurrentThreadId() == static_cast<DWORD>(gettid()) &&
               GetCurrentProcessId() == static_cast<DWORD>(getpid());
    }));
}

TEST(LayerThreads, TheChildOfAForkCanLeaveWhatItHolds) {
    CRITICAL_SECTION section;
    InitializeCriticalSection(&section);
    EnterCriticalSection(&section);
    EXPECT_TRUE(HoldsInChild([&] {
        LeaveCriticalSection(&section);
        return section.owner == 0;
    }));
    LeaveCriticalSection(&section);
    DeleteCriticalSection(&section);
}

TEST(LayerModules, HiddenOnesAreNotFound) {
    HMODULE ntdll = LoadLibraryW(W("ntdll.dll"));
    OvHideExport("NTDLL.DLL", "RtlUpcaseUnicodeString", TRUE);
    EXPECT_EQ(GetProcAddress(ntdll, "RtlUpcaseUnicodeString"), nullptr);
    EXPECT_EQ(GetLastError(), 127u);
    EXPECT_NE(GetProcAddress(ntdll, "RtlCompareUnicodeString"), nullptr);
    OvHideExport("ntdll.dll", "RtlUpcaseUnicodeString", FALSE);
    EXPECT_NE(GetProcAddress(ntdll, "RtlUpcaseUnicodeString"), nullptr);

    OvHideExport("ntdll.dll", nullptr, TRUE);
    EXPECT_EQ(LoadLibraryW(W("ntdll.dll")), nullptr);
    EXPECT_EQ(GetLastError(), 126u);
    EXPECT_EQ(GetModuleHandleW(W("ntdll.dll")), nullptr);
    OvHideExport("ntdll.dll", nullptr, FALSE);
    EXPECT_EQ(LoadLibraryW(W("ntdll.dll")), ntdll);
}

// The module of this tree lies beside the program of the tests.
TEST(LayerModules, AreFoundBesideTheProgramUnderAnySpelling) {
    HMODULE module = LoadLibraryW(W("OvSvInfo.dll"));
    ASSERT_NE(module, nullptr) << GetLastError();
    for (LPCWSTR name : {W("OvSvInfo"), W("OvSvInfo.so"), W("OvSvInfo.DLL")}) {
        HMODULE again = LoadLibraryW(name);
        EXPECT_EQ(again, module);
        EXPECT_TRUE(FreeLibrary(again));
    }
    EXPECT_EQ(GetModuleHandleW(W("ovsvinfo.dll")), module);

    WCHAR path[1024];
    ASSERT_NE(GetModuleFileNameW(module, path, 1024), 0u);
    EXPECT_EQ(LoadLibraryW(path), module) << "by its full path";
    wstr backslashes = path;
    for (WCHAR& unit : backslashes) {
        if (unit == W('/')) unit = W('\\');
    }
    EXPECT_EQ(LoadLibraryW(backslashes.c_str()), module) << "with the platform's separators";
    EXPECT_EQ(GetModuleHandleW(backslashes.c_str()), module);

    EXPECT_NE(GetProcAddress(module, "DllGetClassObject"), nullptr);
    EXPECT_EQ(GetProcAddress(module, "DllMain"), nullptr) << "not exported";
    EXPECT_EQ(GetProcAddress(module, "malloc"), nullptr) << "a dependency's export is not the module's";
    EXPECT_EQ(GetLastError(), 127u);
    for (int i = 0; i < 3; ++i) EXPECT_TRUE(FreeLibrary(module));
}

TEST(LayerModules, WildHandlesAreRefused) {
    alignas(16) char nothing[64] = {};
    HMODULE wild = reinterpret_cast<HMODULE>(nothing);
    WCHAR path[16];
    SetLastError(ERROR_SUCCESS);
    EXPECT_EQ(GetProcAddress(wild, "DllGetClassObject"), nullptr);
    EXPECT_EQ(GetLastError(), 126u);
    EXPECT_FALSE(FreeLibrary(wild));
    EXPECT_FALSE(FreeLibrary(nullptr));
    EXPECT_EQ(GetLastError(), 6u);
    EXPECT_EQ(GetModuleFileNameW(wild, path, 16), 0u);
    EXPECT_FALSE(DisableThreadLibraryCalls(wild));
}

TEST(LayerModules, AFileThatIsNoModule) {
    const fs::path file = fs::temp_directory_path() / ("ovtest-" + std::to_string(getpid()) + ".so");
    if (FILE* out = std::fopen(file.c_str(), "w")) std::fclose(out);
    const std::u16string name = file.u16string();
    EXPECT_EQ(LoadLibraryW(name.c_str()), nullptr);
    EXPECT_EQ(GetLastError(), 193u);
    fs::remove(file);
}

TEST(LayerMemory, IsTheCLibrarys) {
    void* block = CoTaskMemAlloc(8);
    ASSERT_NE(block, nullptr);
    free(block);  // a client without the layer does this; the address sanitizer watches
}

// Nothing behind the page of the last unit can be read.
TEST(LayerText, ALengthIsFoundUpToTheEndOfReadableMemory) {
    const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    void* pages = mmap(nullptr, 2 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(pages, MAP_FAILED);
    char* const end = static_cast<char*>(pages) + page;
    ASSERT_EQ(mprotect(end, page, PROT_NONE), 0);
    for (std::size_t length = 0; length < 40; ++length) {
        for (std::size_t before = 0; before < 16; ++before) {
            // A NUL in front of the text must not be taken for its end, nor one byte of a unit for a NUL.
            auto* text = reinterpret_cast<WCHAR*>(end) - (length + 1) - before;
            text[-1] = 0;
            std::fill_n(text, length, W('\u0100'));
            std::fill_n(text + length, before + 1, WCHAR{0});
            EXPECT_EQ(wcslen(text), length) << before;
        }
    }
    munmap(pages, 2 * page);
}

TEST(LayerText, ADefaultCharacterIsNoneForUtf8) {
    char out[4];
    BOOL used = FALSE;
    SetLastError(ERROR_SUCCESS);
    EXPECT_EQ(WideCharToMultiByte(CP_UTF8, 0, W("a"), -1, out, 4, "?", nullptr), 0);
    EXPECT_EQ(GetLastError(), 87u);
    EXPECT_EQ(WideCharToMultiByte(CP_UTF8, 0, W("a"), -1, out, 4, nullptr, &used), 0);
    EXPECT_EQ(WideCharToMultiByte(1252, WC_ERR_INVALID_CHARS, W("a"), -1, out, 4, nullptr, nullptr), 0);
    EXPECT_EQ(GetLastError(), 1004u) << "a flag of UTF-8 alone";
}

TEST(LayerModules, ACutPathEndsInNul) {
    WCHAR cut[8] = {W('?'), W('?'), W('?'), W('?'), W('?'), W('?'), W('?'), W('?')};
    EXPECT_EQ(GetModuleFileNameW(nullptr, cut, 6), 6u);
    EXPECT_EQ(wcslen(cut), 5u);
}

TEST(LayerHandles, AClosedOneStaysClosedWhenItsPlaceIsUsedAgain) {
    HANDLE closed = CreateMutexW(nullptr, FALSE, nullptr);
    EXPECT_TRUE(CloseHandle(closed));
    HANDLE next = CreateMutexW(nullptr, FALSE, nullptr);
    EXPECT_NE(next, closed);
    SetLastError(ERROR_SUCCESS);
    EXPECT_FALSE(CloseHandle(closed));
    EXPECT_EQ(GetLastError(), 6u);
    EXPECT_TRUE(CloseHandle(next));
}

TEST(LayerMutexes, WhatIsNotServedIsRefused) {
    SetLastError(ERROR_SUCCESS);
    EXPECT_EQ(CreateMutexW(nullptr, TRUE, nullptr), nullptr) << "nothing can own one";
    EXPECT_EQ(GetLastError(), 87u);
}

}  // namespace
