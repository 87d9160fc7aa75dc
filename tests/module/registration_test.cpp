// Registration, and the list of what is left behind.
#include <cstring>
#include <fstream>

#include "module/Library.h"
#include "module/Registration.h"
#include "support/Document.h"
#include "support/Registry.h"
#include "support/TestRoot.h"

namespace {

namespace fs = std::filesystem;
using namespace testreg;

constexpr LPCWSTR kSettings =
    W("SOFTWARE\\Orvantis\\Client\\Configuration\\ProprietarySettings\\{5ED04F3F-AC3E-4BE0-A157-782B204E2B8C}");
constexpr HRESULT kMissing = static_cast<HRESULT>(0x80070002u);

class Registration : public RootTest {
  protected:
    Registration() { PutString(W("SOFTWARE\\Orvantis"), W("OrvantisPath"), WidePath(m_root.Path())); }

    fs::path ListPath() const { return m_root.Path() / "Cleanup.txt"; }
    // The lines behind the byte order mark, ASCII alone.
    std::string List() const {
        std::ifstream in(ListPath(), std::ios::binary);
        const std::string bytes{std::istreambuf_iterator<char>(in), {}};
        std::string text;
        if (!bytes.starts_with("\xFF\xFE") || bytes.size() % 2) return "no list";
        for (std::size_t i = 2; i < bytes.size(); i += 2) {
            if (bytes[i + 1] != 0) return "no ASCII";
            text += bytes[i];
        }
        return text;
    }
    static bool HasKey(LPCWSTR path) {
        CRegistryKey key;
        return key.Open(HKEY_LOCAL_MACHINE, path, KEY_READ) == ERROR_SUCCESS;
    }
    static wstr Text(LPCWSTR path, LPCWSTR name) {
        const Value value = Get(path, name);
        wstr text(value.bytes.size() / sizeof(WCHAR), 0);
        if (!text.empty()) std::memcpy(text.data(), value.bytes.data(), text.size() * sizeof(WCHAR));
        return text;
    }
};

TEST_F(Registration, CleanupLines) {
    EXPECT_EQ(AddCleanupLine(W("HKLM"), W("A\\B"), 0, nullptr), S_OK);
    EXPECT_EQ(AddCleanupLine(W("HKLM"), W("A"), 8, nullptr), S_OK);
    EXPECT_EQ(AddCleanupLine(W("FILE"), W("f"), 0, W("x")), S_OK);
    EXPECT_EQ(AddCleanupLine(W("FILE"), W("f"), 4294967295, W("")), S_OK);
    const std::string lines = "HKLM\tA\\B\r\nHKLM\tA\t8\r\nFILE\tf\t0\tx\r\nFILE\tf\t4294967295\t \r\n";
    EXPECT_EQ(List(), lines) << "one mark, one line each";
    for (LPCWSTR none : {static_cast<LPCWSTR>(nullptr), W("")}) {
        EXPECT_EQ(AddCleanupLine(none, W("A"), 0, nullptr), E_INVALIDARG);
        EXPECT_EQ(AddCleanupLine(W("HKLM"), none, 0, nullptr), E_INVALIDARG);
    }
    EXPECT_EQ(List(), lines);
    std::ofstream(ListPath(), std::ios::binary) << "something else";
    EXPECT_EQ(AddCleanupLine(W("HKLM"), W("A"), 0, nullptr), static_cast<HRESULT>(0x8007000Du));
    EXPECT_EQ(fs::file_size(ListPath()), 14u) << "nothing is lost";
    PutDword(W("SOFTWARE\\Orvantis"), W("OrvantisPath"), 1);
    EXPECT_EQ(AddCleanupLine(W("HKLM"), W("A"), 0, nullptr), static_cast<HRESULT>(0x8007000Du));
}

TEST_F(Registration, ThroughTheModule) {
    const CDLLLoader module(W("OvSvInfo"));
    ASSERT_TRUE(module);
    const auto enter = module.Find<HRESULT(STDAPICALLTYPE*)()>("DllRegisterServer");
    const auto leave = module.Find<HRESULT(STDAPICALLTYPE*)()>("DllUnregisterServer");
    ASSERT_TRUE(enter && leave);
    EXPECT_EQ(leave(), kMissing) << "there is no list of components";
    fs::remove(ListPath());

    for (int twice = 0; twice < 2; ++twice) EXPECT_EQ(enter(), S_OK);
    WCHAR path[MAX_PATH] = {};
    ASSERT_NE(GetModuleFileNameW(module.Get(), path, MAX_PATH), 0u);
    EXPECT_EQ(Text(kComponentsKey, W("CServerInfo")),
              W("{5833D5CB-2254-4F1D-9B43-0359D70F9596}:") + wstr(path) + wstr(1, WCHAR{0}));
    EXPECT_TRUE(HasKey(kSettings));
    Make((kSettings + wstr(W("\\Deep\\Deeper"))).c_str());

    PutString(kComponentsKey, W("Another"), W("component"));
    EXPECT_EQ(leave(), S_OK);
    EXPECT_FALSE(HasKey(kSettings));
    EXPECT_EQ(Text(kComponentsKey, W("CServerInfo")), W(""));
    EXPECT_TRUE(HasKey(kComponentsKey)) << "another component is there";
    EXPECT_EQ(List(),
              "HKLM\tSOFTWARE\\Orvantis\\Policies\\CommonSettings\t8\r\n"
              "HKLM\tSOFTWARE\\Orvantis\\Policies\\Applications\t8\r\n"
              "HKLM\tSOFTWARE\\Orvantis\\Applications\\Logon\\CachedInfo\t8\r\nFILE\tsvinfo.cch\t1\r\n");

    CRegistryKey key;
    ASSERT_EQ(key.Open(HKEY_LOCAL_MACHINE, kComponentsKey, KEY_ALL_ACCESS), ERROR_SUCCESS);
    ASSERT_EQ(RegDeleteValueW(key.Get(), W("Another")), ERROR_SUCCESS);
    PutString(W("SOFTWARE\\Orvantis\\Core"), W("BinDir"), W("X:\\bin"));
    EXPECT_EQ(enter(), S_OK);
    EXPECT_EQ(leave(), S_OK);
    EXPECT_FALSE(HasKey(kComponentsKey)) << "the last one takes it away";
    EXPECT_TRUE(List().ends_with("\r\nFILE\tX:\\bin\\svinfo.cch\t1\r\n"));
}

}  // namespace
