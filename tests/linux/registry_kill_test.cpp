// Writers that are killed at any moment: two processes write to one hive and read each other, a third writes and is
// killed, again and again.
//
// What is told: a write that returned is seen by every read that begins later, in any process; the parts of one batch
// are there together or not at all; and the hive stays whole. OV_KILL_ROUNDS says how often (20).
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <memory>
#include <random>

#include "linux/HiveFile.h"
#include "linux/Process.h"
#include "support/ChildRole.h"
#include "support/Registry.h"
#include "support/TestRoot.h"

namespace {

constexpr int kWriters = 3;  // the last one is killed
constexpr int kVictim = kWriters - 1;
constexpr uid_t kNobody = 65534;

// What the processes know without the registry.
struct Shared {
    std::atomic<bool> stop;
    std::atomic<std::uint32_t> written[kWriters];  // the last number whose write returned
    std::atomic<std::uint32_t> started;
};

class CSharedPage {
  public:
    explicit CSharedPage(const std::string& path) {
        const int file = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666);
        static_cast<void>(!ftruncate(file, sizeof(Shared)));
        fchmod(file, 0666);
        void* page = mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
        close(file);
        m_shared = page == MAP_FAILED ? nullptr : static_cast<Shared*>(page);
    }
    ~CSharedPage() { munmap(m_shared, sizeof(Shared)); }
    CSharedPage(const CSharedPage&) = delete;
    CSharedPage& operator=(const CSharedPage&) = delete;

    Shared* operator->() const { return m_shared; }

  private:
    Shared* m_shared;
};

wstr KeyOf(int writer) {
    return wstr(W("SOFTWARE\\Kill\\W")) + static_cast<WCHAR>(W('0') + writer);
}

LONG ReadNumber(int writer, LPCWSTR name, DWORD& number) {
    CRegistryKey key;
    number = 0;
    const LONG error = key.Open(HKEY_LOCAL_MACHINE, KeyOf(writer).c_str(), KEY_READ);
    if (error) return error == ERROR_FILE_NOT_FOUND ? ERROR_SUCCESS : error;
    const LONG read = key.QueryDword(name, number);
    return read == ERROR_FILE_NOT_FOUND ? ERROR_SUCCESS : read;
}

// What a writer told about before the read began must be there; later writes may be.
int CheckOthers(const CSharedPage& shared, int me) {
    for (int other = 0; other < kWriters; ++other) {
        if (other == me) continue;
        const std::uint32_t told = shared->written[other];
        DWORD number;
        if (const LONG error = ReadNumber(other, W("Number"), number)) return 1000 + error;
        if (number < told) return 10;
    }
    return 0;
}

int WriteOnce(int me, DWORD number) {
    CRegistryKey key;
    if (key.Create(HKEY_LOCAL_MACHINE, KeyOf(me).c_str(), nullptr, 0, KEY_READ | KEY_WRITE, nullptr, nullptr))
        return 20;
    // Some writes end in the index alone, some run into a checkpoint.
    const std::vector<BYTE> data(number % 7 == 0 ? 20000 : number % 100, 0x5A);
    if (OvBeginRegistryBatch()) return 21;
    if (key.SetDword(W("Twin"), number)) return 22;
    if (RegSetValueExW(key.Get(), W("Data"), 0, REG_BINARY, data.data(), static_cast<DWORD>(data.size()))) return 23;
    if (key.SetDword(W("Number"), number)) return 24;
    if (OvEndRegistryBatch(TRUE)) return 25;
    if (number % 4 == 0) return testreg::Make((KeyOf(me) + W("\\Below")).c_str()) ? 0 : 26;
    if (number % 4 == 2) return key.DeleteSubkey(W("Below")) ? 27 : 0;
    return 0;
}

int PlayWriter(const std::vector<std::string>& arguments) {
    if (OvSetRoot(arguments.at(0).c_str())) return 2;
    const CSharedPage shared(arguments.at(1));
    const int me = std::stoi(arguments.at(2));
    DWORD number;
    if (ReadNumber(me, W("Number"), number)) return 3;
    if (number < shared->written[me]) return 4;
    // The one that was killed may have been between a key and the next.
    if (number % 4 != 3) number += 4 - (number + 1) % 4;
    ++shared->started;
    while (!shared->stop) {
        if (const int error = WriteOnce(me, ++number)) return error;
        shared->written[me] = number;
        if (const int error = CheckOthers(shared, me)) return error;
    }
    return 0;
}

int PlayReader(const std::vector<std::string>& arguments) {
    if (setgid(kNobody) || setuid(kNobody) || OvSetRoot(arguments.at(0).c_str())) return 2;
    const CSharedPage shared(arguments.at(1));
    while (!shared->stop) {
        if (const int error = CheckOthers(shared, -1)) return error;
    }
    return 0;
}

const CChildRole writerRole("registry-kill-writer", PlayWriter);
const CChildRole readerRole("registry-kill-reader", PlayReader);

class RegistryKill : public RootTest {};

TEST_F(RegistryKill, NothingThatReturnedIsLost) {
    const char* setting = std::getenv("OV_KILL_ROUNDS");
    const int rounds = setting ? std::atoi(setting) : 20;
    const auto seed = std::random_device()();
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    const std::string root = m_root.Path().string();
    const std::string page = root + "/shared";
    const CSharedPage shared(page);
    const auto start = [&](int writer) {
        return std::make_unique<CProcess>("registry-kill-writer",
                                          std::vector<std::string>{root, page, std::to_string(writer)});
    };
    std::vector<std::unique_ptr<CProcess>> hammers;
    for (int writer = 0; writer < kVictim; ++writer) hammers.push_back(start(writer));
    if (geteuid() == 0) {
        hammers.push_back(std::make_unique<CProcess>("registry-kill-reader", std::vector<std::string>{root, page}));
    }
    for (int round = 0; round < rounds; ++round) {
        const std::uint32_t started = shared->started;
        const auto victim = start(kVictim);
        while (shared->started == started && hammers[0]) usleep(100);
        usleep(std::uniform_int_distribution<useconds_t>(0, 20000)(random));
        victim->Kill();
        ASSERT_EQ(victim->Wait(), 128 + SIGKILL) << "it ended by itself in round " << round;
        DWORD number = 0;
        ASSERT_EQ(ReadNumber(kVictim, W("Number"), number), ERROR_SUCCESS);
        ASSERT_GE(number, shared->written[kVictim]) << round;
    }
    shared->stop = true;
    for (const auto& hammer : hammers) EXPECT_EQ(hammer->Wait(), 0);
    for (int writer = 0; writer < kWriters; ++writer) {
        DWORD number = 0;
        DWORD twin = 0;
        EXPECT_EQ(ReadNumber(writer, W("Number"), number), ERROR_SUCCESS);
        EXPECT_EQ(ReadNumber(writer, W("Twin"), twin), ERROR_SUCCESS);
        EXPECT_GE(number, shared->written[writer]);
        EXPECT_GT(number, 0u);
        EXPECT_EQ(number, twin) << "one batch";
        RecordProperty("written" + std::to_string(writer), static_cast<int>(number));
    }
    EXPECT_EQ(OvSetRoot((root + "/elsewhere").c_str()), 0u) << "and leave the hive";
    EXPECT_EQ(hivefile::CheckIntegrity(hivefile::Machine(m_root.Path())), "ok");
}

}  // namespace
