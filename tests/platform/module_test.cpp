// Modules and their exports.
#include <gtest/gtest.h>

#include "Platform.h"
#include "module/Library.h"

namespace {

wstr FileNameOf(HMODULE module, DWORD room = 1024) {
    wstr path(room, W('?'));
    const DWORD length = GetModuleFileNameW(module, path.data(), room);
    return path.substr(0, length);
}

bool EndsWith(const wstr& text, const wstr& end) {
    return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

TEST(SystemModules, AreFoundInAnyCaseAndWithoutExtension) {
    HMODULE ntdll = LoadLibraryW(W("ntdll.dll"));
    ASSERT_NE(ntdll, nullptr);
    for (LPCWSTR name : {W("NTDLL.DLL"), W("ntdll"), W("NtDll.dLl")}) {
        EXPECT_EQ(LoadLibraryW(name), ntdll) << wstr(name).size();
        EXPECT_EQ(GetModuleHandleW(name), ntdll);
    }
    EXPECT_TRUE(FreeLibrary(ntdll));
    EXPECT_EQ(GetModuleHandleW(W("ntdll.dll")), ntdll) << "it stays, whoever frees it";
}

TEST(SystemModules, OfferTheirExportsByExactName) {
    HMODULE advapi = LoadLibraryW(W("Advapi32.dll"));
    ASSERT_NE(advapi, nullptr);
    for (const char* name : {"RegDeleteKeyExW", "RegOpenKeyExW", "RegQueryValueExW", "RegOpenCurrentUser"}) {
        EXPECT_NE(GetProcAddress(advapi, name), nullptr) << name;
    }
    const struct {
        const char* why;
        const char* name;
    } kRows[] = {
        {"case counts", "regdeletekeyexw"},
        {"no such export", "RegNoSuchCall"},
        {"another module's export", "RtlCompareUnicodeString"},
        {"empty", ""},
    };
    for (const auto& row : kRows) {
        SetLastError(ERROR_SUCCESS);
        EXPECT_EQ(GetProcAddress(advapi, row.name), nullptr) << row.why;
        EXPECT_EQ(GetLastError(), 127u) << row.why;
    }
}

TEST(Modules, MissingOnes) {
    for (LPCWSTR name : {W("ovtest-no-such-module.dll"), W("ovtest-no-such-module"), W("/no/such/folder/thing.dll")}) {
        SetLastError(ERROR_SUCCESS);
        EXPECT_EQ(LoadLibraryW(name), nullptr);
        EXPECT_EQ(GetLastError(), 126u);
        EXPECT_EQ(GetModuleHandleW(name), nullptr);
        EXPECT_EQ(GetLastError(), 126u);
    }
    EXPECT_EQ(LoadLibraryW(nullptr), nullptr);
    EXPECT_EQ(GetLastError(), 87u);
}

TEST(Modules, TheProgramHasAHandleAndAPath) {
    HMODULE program = GetModuleHandleW(nullptr);
    ASSERT_NE(program, nullptr);
    const wstr path = FileNameOf(nullptr);
    EXPECT_EQ(FileNameOf(program), path);
    EXPECT_NE(path.find(W("platform_tests")), wstr::npos);

    WCHAR cut[8];
    std::fill(std::begin(cut), std::end(cut), W('?'));
    SetLastError(ERROR_SUCCESS);
    EXPECT_EQ(GetModuleFileNameW(nullptr, cut, 6), 6u);
    EXPECT_EQ(GetLastError(), 122u);
    EXPECT_EQ(wstr(cut, 5), path.substr(0, 5));  // the sixth unit is a NUL on newer systems
    EXPECT_EQ(cut[6], W('?')) << "nothing behind the room is touched";

    const auto length = static_cast<DWORD>(path.size());
    SetLastError(ERROR_SUCCESS);
    EXPECT_EQ(FileNameOf(nullptr, length).size(), length);
    EXPECT_EQ(GetLastError(), 122u) << "no room for the NUL";
    EXPECT_EQ(FileNameOf(nullptr, length + 1), path);
}

TEST(Modules, SystemDirectory) {
    WCHAR path[MAX_PATH];
    const UINT length = GetSystemDirectoryW(path, MAX_PATH);
    ASSERT_GT(length, 0u);
    ASSERT_LT(length, static_cast<UINT>(MAX_PATH));
    EXPECT_EQ(wcslen(path), length);
    EXPECT_FALSE(EndsWith(path, W("/"))) << "no separator at the end";

    WCHAR small[1] = {W('?')};
    EXPECT_EQ(GetSystemDirectoryW(small, 1), length + 1) << "what is needed, with the NUL";
    EXPECT_EQ(GetSystemDirectoryW(nullptr, 0), length + 1);
}

}  // namespace
