// Damaged, missing and full: a hive that cannot be read is an error and never an empty registry, and what can be
// repaired is.
#include <sys/resource.h>
#include <unistd.h>

#include <csignal>
#include <fstream>
#include <memory>

#include "linux/HiveFile.h"
#include "linux/Process.h"
#include "support/ChildRole.h"
#include "support/Registry.h"
#include "support/TestRoot.h"

namespace {

namespace fs = std::filesystem;

class RegistryDamage : public RootTest {
  protected:
    std::unique_ptr<CClient> Start() const { return std::make_unique<CClient>(m_root.Path().string(), geteuid()); }

    // A hive of some pages, all of them in the database, that nobody has open.
    void MakeHive() const {
        const auto writer = Start();
        ASSERT_EQ(writer->Ask("begin"), "0");
        for (int i = 0; i < 400; ++i) {
            const std::string number = std::to_string(i);
            ASSERT_EQ(writer->Ask("set HKLM\\SOFTWARE\\T\\K" + number + " v" + number + " " + number), "0");
        }
        ASSERT_EQ(writer->Ask("commit"), "0");
        EXPECT_EQ(writer->Wait(), 0);
        hivefile::Checkpoint(hivefile::Machine(m_root.Path()));
    }
};

TEST_F(RegistryDamage, ADamagedHiveIsAnErrorForReadersAndWriters) {
    const struct {
        const char* why;
        void (*damage)(const fs::path& hive);
        const char* error;
    } kRows[] = {
        {"nothing left of it", [](const fs::path& hive) { fs::resize_file(hive, 0); }, "1015"},
        {"no database", [](const fs::path& hive) { hivefile::Overwrite(hive, 0, std::string(512, '\xA5')); }, "1009"},
        {"cut in its first page", [](const fs::path& hive) { fs::resize_file(hive, 700); }, "1015"},
        {"cut behind it", [](const fs::path& hive) { fs::resize_file(hive, 4096); }, "1015"},
        {"somebody else's database",
         [](const fs::path& hive) { hivefile::Overwrite(hive, 68, std::string("\0\0\0\1", 4)); }, "1015"},
        {"a later form", [](const fs::path& hive) { hivefile::Overwrite(hive, 60, std::string("\0\0\0\2", 4)); },
         "1015"},
        {"every page but the first",
         [](const fs::path& hive) {
             const auto size = fs::file_size(hive);
             hivefile::Overwrite(hive, 4096, std::string(size - 4096, '\x5A'));
         },
         "1015"},
    };
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.why);
        for (const fs::directory_entry& entry : fs::directory_iterator(m_root.Path())) fs::remove(entry);
        MakeHive();
        row.damage(hivefile::Machine(m_root.Path()));
        const auto size = fs::file_size(hivefile::Machine(m_root.Path()));
        const auto client = Start();
        for (int i = 0; i < 2; ++i) {
            EXPECT_EQ(client->Ask("get HKLM\\SOFTWARE\\T\\K1 v1"), row.error);
            EXPECT_EQ(client->Ask("set HKLM\\SOFTWARE\\T\\K1 v1 5"), row.error);
        }
        EXPECT_EQ(fs::file_size(hivefile::Machine(m_root.Path())), size) << "nothing was made in its place";
    }
}

TEST_F(RegistryDamage, AFolderInPlaceOfTheHiveIsAnError) {
    fs::create_directory(hivefile::Machine(m_root.Path()));
    EXPECT_EQ(Start()->Ask("get HKLM\\SOFTWARE v"), "1016");
    EXPECT_EQ(Start()->Ask("set HKLM\\SOFTWARE v 1"), "1016");
}

TEST_F(RegistryDamage, ARootThatIsAFileCannotBeWritten) {
    const fs::path file = m_root.Path() / "file";
    std::ofstream(file) << "x";
    CClient client(file.string(), geteuid());
    EXPECT_EQ(client.Ask("get HKLM\\SOFTWARE v"), "2");
    EXPECT_EQ(client.Ask("set HKLM\\SOFTWARE v 1"), "3");
    EXPECT_EQ(fs::file_size(file), 1u);
}

// What an earlier hive of this name left behind belongs to no new one.
TEST_F(RegistryDamage, ANewHiveTakesNothingFromTheOldOnesLog) {
    {
        const auto writer = Start();
        ASSERT_EQ(writer->Ask("set HKLM\\SOFTWARE\\Old v 1"), "0");
        writer->Kill();
    }
    ASSERT_GT(fs::file_size(hivefile::Log(m_root.Path())), 0u);
    fs::remove(hivefile::Machine(m_root.Path()));
    std::ofstream(m_root.Path() / "machine.db-new") << "of a maker that was killed";
    const auto client = Start();
    EXPECT_EQ(client->Ask("get HKLM\\SOFTWARE\\Old v"), "2");
    EXPECT_EQ(client->Ask("set HKLM\\SOFTWARE\\New v 2"), "0");
    EXPECT_EQ(client->Ask("get HKLM\\SOFTWARE\\Old v"), "2");
    EXPECT_EQ(Start()->Ask("get HKLM\\SOFTWARE\\New v"), "0 2");
    EXPECT_EQ(hivefile::CheckIntegrity(hivefile::Machine(m_root.Path())), "ok");
}

TEST_F(RegistryDamage, WithoutAUsableGenerationReadersAskTheDatabase) {
    const struct {
        const char* why;
        void (*damage)(const fs::path& root);
    } kRows[] = {
        {"missing", [](const fs::path& root) { fs::remove(hivefile::Generation(root)); }},
        {"empty", [](const fs::path& root) { fs::resize_file(hivefile::Generation(root), 0); }},
        {"cut in the counters", [](const fs::path& root) { fs::resize_file(hivefile::Generation(root), 11); }},
        {"another mark",
         [](const fs::path& root) { hivefile::Overwrite(hivefile::Generation(root), 0, std::string(8, 'x')); }},
        {"a writer died between the counters",
         [](const fs::path& root) {
             const hivefile::Counters counters = hivefile::ReadCounters(root);
             hivefile::WriteCounters(root, {counters.begun + 1, counters.done});
         }},
        {"nonsense in the counters",
         [](const fs::path& root) {
             hivefile::WriteCounters(root, {3, 1000000});
         }},
    };
    ASSERT_EQ(Start()->Ask("set HKLM\\SOFTWARE\\T v 1"), "0");
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.why);
        ASSERT_EQ(Start()->Ask("set HKLM\\SOFTWARE\\T v 1"), "0");
        row.damage(m_root.Path());
        const auto reader = Start();
        for (int i = 0; i < 3; ++i) EXPECT_EQ(reader->Ask("get HKLM\\SOFTWARE\\T v"), "0 1");
        const auto writer = Start();
        for (int i = 2; i < 5; ++i) {
            const std::string number = std::to_string(i);
            ASSERT_EQ(writer->Ask("set HKLM\\SOFTWARE\\T v " + number), "0");
            ASSERT_EQ(reader->Ask("get HKLM\\SOFTWARE\\T v"), "0 " + number);
        }
        EXPECT_EQ(fs::file_size(hivefile::Generation(m_root.Path())), 4096u);
        const hivefile::Counters counters = hivefile::ReadCounters(m_root.Path());
        EXPECT_EQ(counters.begun, counters.done) << "the writer mended it";
    }
}

// By hand, under a process that has it mapped. A write goes to the new file, and readers find that in the end.
TEST_F(RegistryDamage, AGenerationThatIsRemovedInUseIsNoticed) {
    const auto reader = Start();
    ASSERT_EQ(reader->Ask("set HKLM\\SOFTWARE\\T v 1"), "0");
    ASSERT_EQ(reader->Ask("get HKLM\\SOFTWARE\\T v"), "0 1");
    fs::remove(hivefile::Generation(m_root.Path()));
    ASSERT_EQ(Start()->Ask("set HKLM\\SOFTWARE\\T v 2"), "0");
    std::string answer;
    do {
        answer = reader->Ask("get HKLM\\SOFTWARE\\T v");
    } while (answer == "0 1");
    EXPECT_EQ(answer, "0 2");
    ASSERT_EQ(Start()->Ask("set HKLM\\SOFTWARE\\T v 3"), "0");
    EXPECT_EQ(reader->Ask("get HKLM\\SOFTWARE\\T v"), "0 3") << "at once again";
}

// A process whose files may not grow meets a full disk.
int PlayFullDisk(const std::vector<std::string>& arguments) {
    if (OvSetRoot(arguments.at(0).c_str())) return 2;
    const std::vector<BYTE> data(1 << 20, 0x5A);
    CRegistryKey key;
    if (key.Create(HKEY_LOCAL_MACHINE, W("SOFTWARE\\T"), nullptr, 0, KEY_ALL_ACCESS, nullptr, nullptr)) return 3;
    if (key.SetDword(W("before"), 1)) return 4;
    std::signal(SIGXFSZ, SIG_IGN);
    const rlimit small = {200'000, RLIM_INFINITY};
    if (setrlimit(RLIMIT_FSIZE, &small)) return 5;
    const auto size = static_cast<DWORD>(data.size());
    if (RegSetValueExW(key.Get(), W("big"), 0, REG_BINARY, data.data(), size) != ERROR_DISK_FULL) return 6;
    if (OvBeginRegistryBatch()) return 7;
    if (key.SetDword(W("batched"), 1)) return 8;
    if (RegSetValueExW(key.Get(), W("big"), 0, REG_BINARY, data.data(), size) != ERROR_DISK_FULL) {
        // The rows may wait in memory for the commit.
        if (OvEndRegistryBatch(TRUE) != ERROR_DISK_FULL) return 9;
    } else if (OvEndRegistryBatch(TRUE) != ERROR_DISK_FULL) {
        return 10;
    }
    DWORD value = 0;
    if (key.QueryDword(W("batched"), value) != ERROR_FILE_NOT_FOUND) return 11;
    if (key.QueryDword(W("before"), value) || value != 1) return 12;
    if (key.SetDword(W("after"), 2)) return 13;  // what is small still has room
    return key.QueryDword(W("after"), value) || value != 2 ? 14 : 0;
}

const CChildRole fullDiskRole("registry-full-disk", PlayFullDisk);

TEST_F(RegistryDamage, AFullDiskLosesOnlyWhatDidNotFit) {
    EXPECT_EQ(CProcess("registry-full-disk", {m_root.Path().string()}).Wait(), 0);
    EXPECT_EQ(testreg::Get(W("SOFTWARE\\T"), W("before")).error, ERROR_SUCCESS);
    EXPECT_EQ(testreg::Get(W("SOFTWARE\\T"), W("after")).error, ERROR_SUCCESS);
    EXPECT_EQ(testreg::Get(W("SOFTWARE\\T"), W("big")).error, ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(testreg::Get(W("SOFTWARE\\T"), W("batched")).error, ERROR_FILE_NOT_FOUND);
}

}  // namespace
