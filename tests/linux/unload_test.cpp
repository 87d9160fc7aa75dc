// The module loaded, used and unloaded over and over: nothing of it stays in the process.
#include <gtest/gtest.h>
#include <orvantis/ServerInfo.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "linux/Process.h"
#include "module/Library.h"
#include "support/Recorder.h"
#include "support/Registry.h"
#include "support/RunProgram.h"
#include "support/TestRoot.h"

namespace {

using namespace testreg;

bool IsMapped() {
    std::ifstream maps("/proc/self/maps");
    for (std::string line; std::getline(maps, line);) {
        if (line.find("/OvSvInfo.so") != line.npos) return true;
    }
    return false;
}

// Entries of a folder about this process: its threads, its open files.
std::size_t Count(const char* folder) {
    std::size_t count = 0;
    for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator(folder)) ++count;
    return count;
}

void UseOnce(DWORD number) {
    const CDLLLoader module(W("OvSvInfo"));
    ASSERT_TRUE(module) << GetLastError();
    const auto getClassObject = module.Find<LPFNGETCLASSOBJECT>("DllGetClassObject");
    const auto canUnload = module.Find<LPFNCANUNLOADNOW>("DllCanUnloadNow");
    void* found = nullptr;
    ASSERT_EQ(getClassObject(CLSID_ServerInfo, IID_IClassFactory, &found), S_OK);
    auto* factory = static_cast<IClassFactory*>(found);
    ASSERT_EQ(factory->CreateInstance(nullptr, IID_IOVServerInfo, &found), S_OK);
    auto* server = static_cast<IOVServerInfo*>(found);
    ASSERT_EQ(server->QueryInterface(IID_IOVServerInfoNotify, &found), S_OK);
    auto* notify = static_cast<IOVServerInfoNotify*>(found);
    factory->Release();
    CRecorder recorder;
    DWORD cookie = 0;
    EXPECT_EQ(notify->RegisterNotification(W(""), &recorder, &cookie), S_OK);
    DWORD held = 0;
    EXPECT_EQ(server->GetItemLong(W("A"), &held), S_OK);
    EXPECT_EQ(held, number);
    notify->Release();
    EXPECT_EQ(canUnload(), S_FALSE);
    server->Release();
    EXPECT_EQ(recorder.references, 1u);
    EXPECT_EQ(canUnload(), S_OK);
}

class Unload : public RootTest {};

TEST_F(Unload, AThousandTimesLeavesNothing) {
    PutDword(W("SOFTWARE\\Policies\\Orvantis"), W("A"), 7);
    UseOnce(7);  // what the layer makes once for a process is there
    EXPECT_FALSE(IsMapped());
    const std::size_t threads = Count("/proc/self/task"), files = Count("/proc/self/fd");
    const char* rounds = std::getenv("OV_LOADS");  // fewer where each takes long
    for (int i = rounds ? std::atoi(rounds) : 1000; i > 0; --i) {
        UseOnce(7);
        if (HasFatalFailure()) return;
    }
    EXPECT_FALSE(IsMapped());
    EXPECT_LE(Count("/proc/self/task"), threads + 1) << "the pool may keep one more thread asleep";
    EXPECT_LE(Count("/proc/self/fd"), files);
}

// Another process can write, and apply policy.
TEST_F(Unload, LeavesNoLock) {
    PutDword(W("SOFTWARE\\Policies\\Orvantis"), W("A"), 7);
    for (int i = 0; i < 3; ++i) UseOnce(7);
    CClient other(m_root.Path().string());
    EXPECT_EQ(other.Ask("set HKLM\\SOFTWARE\\Policies\\Orvantis A 8"), "0");
    EXPECT_EQ(other.Ask("section"), "1");
}

// A hive that is none: what is asked for is not found, and nothing else happens.
TEST_F(Unload, ARegistryThatCannotBeRead) {
    { std::ofstream(m_root.Path() / "machine.db") << "this is no database, and long enough to be taken for one"; }
    const CDLLLoader module(W("OvSvInfo"));
    void* found = nullptr;
    ASSERT_EQ(module.Find<LPFNGETCLASSOBJECT>("DllGetClassObject")(CLSID_ServerInfo, IID_IClassFactory, &found), S_OK);
    auto* factory = static_cast<IClassFactory*>(found);
    ASSERT_EQ(factory->CreateInstance(nullptr, IID_IOVServerInfo, &found), S_OK);
    factory->Release();
    auto* server = static_cast<IOVServerInfo*>(found);
    OV_SERVER_INFO_EX records[2] = {{W("A"), OV_QUERY, {}}, {W("LogonPolicy"), OV_QUERY_DEFAULT, {}}};
    EXPECT_EQ(server->GetInfo(2, records), S_OK);
    for (const OV_SERVER_INFO_EX& record : records) EXPECT_EQ(record.hr, static_cast<HRESULT>(0x80070002));
    EXPECT_EQ(server->Release(), 0u);
}

// The hosts of the client guide, as they stand there.
TEST_F(Unload, TheHostsOfTheGuide) {
    PutDword(W("SOFTWARE\\Orvantis\\Policies\\SpareKey"), W("SpareKeyAllowed"), 1);
    PutDword(W("SOFTWARE\\Policies\\Orvantis\\SpareKey"), W("Other"), 1);
    const std::vector<std::pair<std::string, std::string>> root = {{"OV_ROOT", m_root.Path().string()}};
    const CRunResult host = RunProgram({OV_BINARIES "/client_guide"}, root);
    EXPECT_EQ(host.exitCode, 0) << host.errors;
    EXPECT_EQ(host.output, "1 (local)\n");
    const CRunResult parts = RunProgram({OV_BINARIES "/client_guide_parts"}, root);
    EXPECT_EQ(parts.exitCode, 0) << parts.errors;
}

}  // namespace
