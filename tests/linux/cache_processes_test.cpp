// The cache file between processes: writers that are killed, accounts that may not, a disk that is full.
// OV_KILL_ROUNDS says how often a writer is killed (20).
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <fstream>
#include <random>

#include "cache/CacheFile.h"
#include "linux/Process.h"
#include "security/CoreKey.h"
#include "support/ChildRole.h"
#include "support/Document.h"
#include "support/Registry.h"
#include "support/StoreDoor.h"
#include "support/TestRoot.h"

namespace {

namespace fs = std::filesystem;
using namespace testreg;

constexpr DWORD kItems = 2'000;

void Fill(CPolicyMap& store, DWORD count) {
    for (DWORD i = 0; i < count; ++i) {
        const std::string name = "Settings\\Item" + std::to_string(i);
        CPolicyItem item{wstr(name.begin(), name.end()), {}};
        item.value.SetNumber(OV_TYPE_DWORD, i);
        store.Insert(std::move(item));
    }
}

// Saves until it is killed. Its lines tell that it lives.
int SaveForEver(const std::vector<std::string>& arguments) {
    OvSetRoot(arguments.at(0).c_str());
    const CTestInstance object;
    CPolicyMap& store = StoreDoor::Items(*object);
    Fill(store, kItems);
    if (write(STDOUT_FILENO, "ready\n", 6) != 6) return 1;
    for (;;) StoreDoor::Save(*object);
}
const CChildRole saver("cache-saver", SaveForEver);

// Load and save as another user: the results, as numbers.
int LoadAndSave(const std::vector<std::string>& arguments) {
    OvSetRoot(arguments.at(0).c_str());
    const auto user = static_cast<uid_t>(std::stoul(arguments.at(1)));
    if (setgid(user) != 0 || setuid(user) != 0) return 1;
    const CTestInstance object;
    const HRESULT loaded = StoreDoor::Load(*object);
    Fill(StoreDoor::Items(*object), 1);
    std::printf("%08X %08X\n", static_cast<unsigned>(loaded), static_cast<unsigned>(StoreDoor::Save(*object)));
    return std::fflush(stdout);
}
const CChildRole other("cache-other", LoadAndSave);

class CacheProcesses : public RootTest {
  protected:
    CacheProcesses() { PutString(kCoreKey, W("BinDir"), WidePath(m_root.Path())); }

    fs::path Path() const { return m_root.Path() / "svinfo.cch"; }
    bool IsWhole() const {
        std::ifstream in(Path(), std::ios::binary);
        const std::string bytes{std::istreambuf_iterator<char>(in), {}};
        if (bytes.size() < kSmallestCacheFile) return false;
        const CCacheFileParts parts = PartsOfCacheFile({reinterpret_cast<const BYTE*>(bytes.data()), bytes.size()});
        return CacheDigestOf(parts.body) == parts.stored;
    }
};

TEST_F(CacheProcesses, KilledWriters) {
    // What the saver saves is what the policy says, so that a first load differs by what the cache lost.
    ASSERT_EQ(OvBeginRegistryBatch(), ERROR_SUCCESS);
    for (DWORD i = 0; i < kItems; ++i) {
        const std::string name = "Item" + std::to_string(i);
        PutDword(W("SOFTWARE\\Policies\\Orvantis\\Settings"), wstr(name.begin(), name.end()).c_str(), i);
    }
    ASSERT_EQ(OvEndRegistryBatch(TRUE), ERROR_SUCCESS);
    const char* const asked = std::getenv("OV_KILL_ROUNDS");
    const int rounds = asked ? std::atoi(asked) : 20;
    std::mt19937 dice(7);
    int whole = 0, torn = 0;
    for (int round = 0; round < rounds; ++round) {
        {
            CProcess process("cache-saver", {m_root.Path().string()});
            ASSERT_EQ(process.Hear(), "ready");
            usleep(static_cast<useconds_t>(dice() % 20'000));
            process.Kill();
        }
        const bool isWhole = IsWhole();
        ++(isWhole ? whole : torn);
        const bool isShort = fs::exists(Path()) && fs::file_size(Path()) < kSmallestCacheFile;
        const CTestInstance object;
        ASSERT_EQ(StoreDoor::Items(*object).Size(), isWhole ? kItems : 0) << round;
        ASSERT_EQ(fs::exists(Path()), isWhole || isShort) << round << ": refused as its length asks for";
        ASSERT_EQ(object->GetInfo(0, nullptr), S_OK) << round;
        const CLoadReport report = object->LastLoad();
        ASSERT_EQ(report.created, isWhole ? 0 : kItems) << round;
        ASSERT_EQ(report.changed + report.deleted, 0u) << round;
    }
    EXPECT_TRUE(rounds < 100 || (torn > 0 && whole > 0)) << whole << " whole, " << torn << " torn";
    if (asked) std::printf("killed %d writers: %d whole files, %d torn\n", rounds, whole, torn);
}

TEST_F(CacheProcesses, OnlyForTheSystemAndAdministrators) {
    if (geteuid() != 0) GTEST_SKIP() << "only root can be somebody else";
    Fill(StoreDoor::Items(*CTestInstance()), 1);
    {
        const CTestInstance object;
        Fill(StoreDoor::Items(*object), 1);
        EXPECT_EQ(StoreDoor::Save(*object), S_OK);
    }
    struct stat info;
    ASSERT_EQ(stat(Path().c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 07777, 0600u);
    fs::permissions(m_root.Path(), fs::perms::all);
    CProcess process("cache-other", {m_root.Path().string(), "65534"});
    EXPECT_EQ(process.Hear(), "80070005 80070005");
    EXPECT_EQ(process.Wait(), 0);
    EXPECT_TRUE(IsWhole());
    {
        // Reading is not enough: a file is opened for writing as well.
        fs::permissions(Path(), fs::perms(0644));
        CProcess reader("cache-other", {m_root.Path().string(), "65534"});
        EXPECT_EQ(reader.Hear(), "80070005 80070005");
    }
    // A link that somebody else put in the way leads nowhere.
    const fs::path victim = m_root.Path() / "victim";
    std::ofstream(victim) << "precious";
    fs::remove(Path());
    fs::create_symlink(victim, Path());
    ASSERT_EQ(lchown(Path().c_str(), 65534, 65534), 0);
    {
        const CTestInstance object;
        Fill(StoreDoor::Items(*object), 1);
        EXPECT_EQ(StoreDoor::Save(*object), E_ACCESSDENIED);
        EXPECT_EQ(StoreDoor::Load(*object), E_ACCESSDENIED);
    }
    EXPECT_EQ(fs::file_size(victim), 8u);
    // One's own leads on, also to a file that is not there yet.
    fs::remove(Path());
    fs::create_directory(m_root.Path() / "elsewhere");
    fs::create_symlink("elsewhere/cache", Path());
    const CTestInstance object;
    Fill(StoreDoor::Items(*object), 1);
    EXPECT_EQ(StoreDoor::Save(*object), S_OK);
    EXPECT_TRUE(fs::is_regular_file(m_root.Path() / "elsewhere" / "cache"));
    EXPECT_EQ(StoreDoor::Load(*object), S_OK);
}

// A child that a host forks while the file is open does not keep it.
TEST_F(CacheProcesses, AForkedChildHoldsNoLock) {
    const CTestInstance object;
    Fill(StoreDoor::Items(*object), 1);
    ASSERT_EQ(StoreDoor::Save(*object), S_OK);
    const HANDLE file =
        CreateFileW(WidePath(Path()).c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    ASSERT_NE(file, INVALID_HANDLE_VALUE);
    const pid_t child = fork();
    if (child == 0) {
        pause();
        _exit(0);
    }
    CloseHandle(file);
    EXPECT_EQ(StoreDoor::Load(*object), S_OK);
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
}

TEST_F(CacheProcesses, AFullDisk) {
    const CTestInstance object;
    Fill(StoreDoor::Items(*object), kItems);
    std::signal(SIGXFSZ, SIG_IGN);
    rlimit before;
    getrlimit(RLIMIT_FSIZE, &before);
    const rlimit small = {4096, before.rlim_max};
    CacheFileName();  // the hive writes, too
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
    EXPECT_EQ(StoreDoor::Save(*object), static_cast<HRESULT>(0x80070070u));
    setrlimit(RLIMIT_FSIZE, &before);
    EXPECT_EQ(fs::file_size(Path()), 4096u);
    EXPECT_EQ(StoreDoor::Load(*object), static_cast<HRESULT>(0x80090006u));
    EXPECT_FALSE(fs::exists(Path()));
    EXPECT_EQ(StoreDoor::Save(*object), S_OK);
}

TEST_F(CacheProcesses, WhatIsNoFile) {
    const CTestInstance object;
    Fill(StoreDoor::Items(*object), 1);
    fs::create_directory(Path());
    EXPECT_EQ(StoreDoor::Load(*object), E_ACCESSDENIED);
    EXPECT_EQ(StoreDoor::Save(*object), E_ACCESSDENIED);
    fs::remove(Path());
    ASSERT_EQ(mkfifo(Path().c_str(), 0600), 0);
    EXPECT_EQ(StoreDoor::Load(*object), E_ACCESSDENIED);
    EXPECT_EQ(StoreDoor::Save(*object), E_ACCESSDENIED);
    StoreDoor::Items(*object).Clear();
}

}  // namespace
