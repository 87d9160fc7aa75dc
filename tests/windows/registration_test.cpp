// The system's own program for registering modules, which knows nothing of roots: it writes to the registry of the
// prefix that the tests run in.
#include <gtest/gtest.h>

#include "module/Library.h"
#include "module/RegistryKey.h"
#include "support/Document.h"
#include "support/RunProgram.h"

namespace {

constexpr LPCWSTR kComponents = W("SOFTWARE\\Orvantis\\Core\\SysComponents");
constexpr LPCWSTR kSettings =
    W("SOFTWARE\\Orvantis\\Client\\Configuration\\ProprietarySettings\\{5ED04F3F-AC3E-4BE0-A157-782B204E2B8C}");

wstr Registered() {
    CRegistryKey key;
    WCHAR text[2 * MAX_PATH] = {};
    DWORD length = 2 * MAX_PATH;
    if (key.Open(HKEY_LOCAL_MACHINE, kComponents, KEY_READ)) return {};
    return key.QueryString(W("CServerInfo"), text, length) ? wstr() : wstr(text);
}

bool Exists(LPCWSTR path) {
    CRegistryKey key;
    return key.Open(HKEY_LOCAL_MACHINE, path, KEY_READ) == ERROR_SUCCESS;
}

// What `svinfo register` and `unregister` do, through the same exports.
TEST(RegisteringProgram, DoesWhatTheToolDoes) {
    WCHAR module[MAX_PATH] = {};
    {
        const CDLLLoader loaded(W("OvSvInfo.dll"));
        ASSERT_NE(GetModuleFileNameW(loaded.Get(), module, MAX_PATH), 0u);
    }
    const std::string path = Narrow(module);
    EXPECT_EQ(RunProgram({"regsvr32.exe", "/s", path}).exitCode, 0);
    EXPECT_EQ(Registered(), wstr(W("{5833D5CB-2254-4F1D-9B43-0359D70F9596}:")) + module);
    EXPECT_TRUE(Exists(kSettings));
    EXPECT_EQ(RunProgram({"regsvr32.exe", "/s", "/u", path}).exitCode, 0);
    EXPECT_EQ(Registered(), wstr());
    EXPECT_FALSE(Exists(kComponents)) << "its last component is gone";
    EXPECT_FALSE(Exists(kSettings));
}

// The host of the client guide, as it stands there.
TEST(ClientGuide, TheHostRuns) {
    const CRunResult host = RunProgram({"client_guide.exe"});
    EXPECT_EQ(host.exitCode, 1) << "there is no such item in the prefix: " << host.errors;
    EXPECT_EQ(host.output, "");
}

}  // namespace
