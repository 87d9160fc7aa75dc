// The version resource of the module, read back as the system's own dialogs read it.
#include <gtest/gtest.h>

#include <cstdio>
#include <vector>

#include "Platform.h"

namespace {

class VersionResource : public testing::Test {
  protected:
    void SetUp() override {
        m_module = LoadLibraryW(W("OvSvInfo.dll"));
        ASSERT_NE(m_module, nullptr) << GetLastError();
        WCHAR path[MAX_PATH];
        ASSERT_NE(GetModuleFileNameW(m_module, path, MAX_PATH), 0u);
        m_block.resize(GetFileVersionInfoSizeW(path, nullptr));
        ASSERT_FALSE(m_block.empty()) << GetLastError();
        ASSERT_TRUE(GetFileVersionInfoW(path, 0, static_cast<DWORD>(m_block.size()), m_block.data()));
    }
    void TearDown() override { FreeLibrary(m_module); }

    template <class T>
    const T* Find(LPCWSTR path) {
        void* found = nullptr;
        UINT size = 0;
        return VerQueryValueW(m_block.data(), path, &found, &size) ? static_cast<const T*>(found) : nullptr;
    }

    HMODULE m_module = nullptr;
    std::vector<BYTE> m_block;
};

TEST_F(VersionResource, HasTheNumbersOfTheProject) {
    unsigned major = 0;
    unsigned minor = 0;
    unsigned patch = 0;
    ASSERT_EQ(std::sscanf(OV_VERSION, "%u.%u.%u", &major, &minor, &patch), 3);
    const auto* fixed = Find<VS_FIXEDFILEINFO>(W("\\"));
    ASSERT_NE(fixed, nullptr);
    EXPECT_EQ(fixed->dwFileVersionMS, major << 16 | minor);
    EXPECT_EQ(fixed->dwFileVersionLS, patch << 16);
    EXPECT_EQ(fixed->dwProductVersionMS, fixed->dwFileVersionMS);
    EXPECT_EQ(fixed->dwProductVersionLS, fixed->dwFileVersionLS);
    EXPECT_EQ(fixed->dwFileType, static_cast<DWORD>(VFT_DLL));
    EXPECT_EQ(fixed->dwFileOS, static_cast<DWORD>(VOS_NT_WINDOWS32));
}

TEST_F(VersionResource, HasItsStringsUnderTheTranslationItNames) {
    const auto* translation = Find<WORD>(W("\\VarFileInfo\\Translation"));
    ASSERT_NE(translation, nullptr);
    EXPECT_EQ(translation[0], 0x409);
    EXPECT_EQ(translation[1], 1200);
    const wstr version(OV_VERSION, OV_VERSION + sizeof OV_VERSION - 1);
    const struct {
        LPCWSTR name;
        wstr text;  // empty: any
    } rows[] = {
        {W("CompanyName"), {}},
        {W("FileDescription"), {}},
        {W("FileVersion"), version},
        {W("InternalName"), W("OvSvInfo")},
        {W("OriginalFilename"), W("OvSvInfo.dll")},
        {W("ProductName"), {}},
        {W("ProductVersion"), version},
    };
    for (const auto& row : rows) {
        const auto* text = Find<WCHAR>((wstr(W("\\StringFileInfo\\040904B0\\")) + row.name).c_str());
        ASSERT_NE(text, nullptr) << row.name;
        EXPECT_NE(wstr(text), wstr()) << row.name;
        EXPECT_TRUE(row.text.empty() || row.text == text) << row.name << ": " << text;
    }
}

}  // namespace
