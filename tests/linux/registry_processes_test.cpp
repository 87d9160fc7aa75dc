// Several processes on one hive: what each sees of the others, and who may do what.
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <csignal>
#include <fstream>
#include <memory>

#include "linux/HiveFile.h"
#include "linux/Process.h"
#include "support/Registry.h"
#include "support/TestRoot.h"

namespace {

namespace fs = std::filesystem;

constexpr uid_t kNobody = 65534;
constexpr uid_t kSomeone = 12345;

// The process of the test itself stays away from the registry where a case is about who has it open.
class RegistryProcesses : public RootTest {
  protected:
    std::unique_ptr<CClient> Start(uid_t user = 0) const {
        return std::make_unique<CClient>(m_root.Path().string(), user ? user : geteuid());
    }
};

class RegistryUsers : public RegistryProcesses {
  protected:
    void SetUp() override {
        if (geteuid() != 0) GTEST_SKIP() << "only root can be somebody else";
    }

    bool HasAccessLists() const {
        const fs::path probe = m_root.Path() / "probe";
        std::ofstream(probe) << "x";
        // Version 2; owner, group and others as in the mode 0644.
        const std::uint32_t list[] = {2, 0x00060001, 0xFFFFFFFF, 0x00040004, 0xFFFFFFFF, 0x00040020, 0xFFFFFFFF};
        return setxattr(probe.c_str(), "system.posix_acl_access", list, sizeof list, 0) == 0;
    }
};

TEST_F(RegistryProcesses, AWriteIsSeenByTheNextReadOfAnyProcess) {
    const auto writer = Start();
    const auto reader = Start();
    EXPECT_EQ(reader->Ask("get HKLM\\SOFTWARE\\T v"), "2") << "there is no hive yet";
    for (int i = 1; i <= 50; ++i) {
        const std::string number = std::to_string(i);
        ASSERT_EQ(writer->Ask("set HKLM\\SOFTWARE\\T v " + number), "0");
        ASSERT_EQ(reader->Ask("get HKLM\\SOFTWARE\\T v"), "0 " + number);
        // Each reads its own writes, and the other's between them.
        ASSERT_EQ(reader->Ask("set HKLM\\SOFTWARE\\T w " + number), "0");
        ASSERT_EQ(writer->Ask("get HKLM\\SOFTWARE\\T w"), "0 " + number);
        ASSERT_EQ(writer->Ask("get HKLM\\SOFTWARE\\T v"), "0 " + number);
    }
}

TEST_F(RegistryProcesses, ReadingMakesNothing) {
    const auto reader = Start();
    for (const char* question : {"get HKLM\\SOFTWARE v", "hold HKLM\\SOFTWARE", "get HKCU\\Software v"}) {
        EXPECT_EQ(reader->Ask(question), "2");
    }
    EXPECT_TRUE(fs::is_empty(m_root.Path()));
    fs::remove(m_root.Path());
    EXPECT_EQ(reader->Ask("get HKLM\\SOFTWARE v"), "2") << "no root either";
    EXPECT_EQ(reader->Ask("set HKLM\\SOFTWARE v 1"), "0") << "the first write makes it";
}

// All of them find no hive, and all of them write the first key.
TEST_F(RegistryProcesses, OneOfManyFirstWritersMakesTheHive) {
    for (int round = 0; round < 5; ++round) {
        const fs::path root = m_root.Path() / std::to_string(round);
        std::vector<std::unique_ptr<CClient>> clients;
        for (int i = 0; i < 4; ++i) clients.push_back(std::make_unique<CClient>(root.string(), geteuid()));
        for (const auto& client : clients) EXPECT_EQ(client->Ask("get HKLM\\SOFTWARE v"), "2");
        for (std::size_t i = 0; i < clients.size(); ++i) {
            clients[i]->Tell("set HKLM\\SOFTWARE\\T" + std::to_string(i) + " v " + std::to_string(i));
        }
        for (const auto& client : clients) EXPECT_EQ(client->Hear(), "0");
        for (std::size_t i = 0; i < clients.size(); ++i) {
            for (const auto& client : clients) {
                EXPECT_EQ(client->Ask("get HKLM\\SOFTWARE\\T" + std::to_string(i) + " v"), "0 " + std::to_string(i));
            }
        }
        EXPECT_FALSE(fs::exists(root / "machine.db-new"));
    }
}

TEST_F(RegistryProcesses, AKeyThatAnotherProcessDeletedIsDead) {
    const auto holder = Start();
    ASSERT_EQ(holder->Ask("set HKLM\\SOFTWARE\\T v 1"), "0");
    ASSERT_EQ(holder->Ask("hold HKLM\\SOFTWARE\\T"), "0");
    ASSERT_EQ(RegDeleteKeyW(HKEY_LOCAL_MACHINE, W("SOFTWARE\\T")), ERROR_SUCCESS);
    EXPECT_EQ(holder->Ask("held v"), "1018");
    testreg::PutDword(W("SOFTWARE\\T"), W("v"), 2);
    EXPECT_EQ(holder->Ask("held v"), "1018") << "another key of the same name";
    EXPECT_EQ(holder->Ask("get HKLM\\SOFTWARE\\T v"), "0 2");
}

TEST_F(RegistryProcesses, ABatchIsSeenWholeAtItsCommit) {
    const auto writer = Start();
    const auto reader = Start();
    ASSERT_EQ(writer->Ask("set HKLM\\SOFTWARE\\T v 1"), "0");
    ASSERT_EQ(reader->Ask("hold HKLM\\SOFTWARE\\T"), "0");
    for (const char* end : {"rollback", "commit"}) {
        SCOPED_TRACE(end);
        ASSERT_EQ(writer->Ask("begin"), "0");
        EXPECT_EQ(writer->Ask("begin"), "170");
        ASSERT_EQ(writer->Ask("set HKLM\\SOFTWARE\\T v 2"), "0");
        ASSERT_EQ(writer->Ask("set HKLM\\SOFTWARE\\T\\Below w 3"), "0");
        EXPECT_EQ(writer->Ask("get HKLM\\SOFTWARE\\T v"), "0 2") << "who writes sees it";
        EXPECT_EQ(writer->Ask("get HKLM\\SOFTWARE\\T\\Below w"), "0 3");
        EXPECT_EQ(reader->Ask("held v"), "0 1");
        EXPECT_EQ(reader->Ask("get HKLM\\SOFTWARE\\T\\Below w"), "2");
        ASSERT_EQ(writer->Ask("hold HKLM\\SOFTWARE\\T\\Below"), "0");
        ASSERT_EQ(writer->Ask(end), "0");
        const bool committed = *end == 'c';
        ASSERT_EQ(reader->Ask("set HKLM\\SOFTWARE\\Other w 9"), "0")
            << "it may be given the number of a key that is gone";
        EXPECT_EQ(writer->Ask("held w"), committed ? "0 3" : "1018");
        for (const auto& process : {writer.get(), reader.get()}) {
            EXPECT_EQ(process->Ask("get HKLM\\SOFTWARE\\T v"), committed ? "0 2" : "0 1");
            EXPECT_EQ(process->Ask("get HKLM\\SOFTWARE\\T\\Below w"), committed ? "0 3" : "2");
        }
    }
    EXPECT_EQ(writer->Ask("commit"), "87") << "there is none";
}

TEST_F(RegistryProcesses, ABatchThatIsKilledLeavesNothing) {
    const auto reader = Start();
    ASSERT_EQ(reader->Ask("set HKLM\\SOFTWARE\\T v 1"), "0");
    const auto writer = Start();
    ASSERT_EQ(writer->Ask("begin"), "0");
    ASSERT_EQ(writer->Ask("set HKLM\\SOFTWARE\\T v 2"), "0");
    writer->Kill();
    EXPECT_EQ(writer->Wait(), 128 + SIGKILL);
    EXPECT_EQ(reader->Ask("get HKLM\\SOFTWARE\\T v"), "0 1");
    EXPECT_EQ(reader->Ask("set HKLM\\SOFTWARE\\T v 3"), "0") << "its lock went with it";
}

// By hand, under a process that has it open: the new hive is seen, and handles on the old one's keys are dead.
TEST_F(RegistryProcesses, AHiveThatIsReplacedIsNoticed) {
    for (const bool withGeneration : {true, false}) {
        SCOPED_TRACE(withGeneration);
        const fs::path root = m_root.Path() / (withGeneration ? "with" : "without");
        const fs::path second = root / "second";
        CClient other(root.string(), geteuid());
        ASSERT_EQ(other.Ask("set HKLM\\SOFTWARE\\T v 1"), "0");
        ASSERT_EQ(other.Ask("hold HKLM\\SOFTWARE\\T"), "0");
        ASSERT_EQ(CClient(second.string(), geteuid()).Ask("set HKLM\\SOFTWARE\\T v 2"), "0");
        if (withGeneration) fs::rename(hivefile::Generation(second), hivefile::Generation(root));
        for (const auto file : {hivefile::Log, hivefile::Index, hivefile::Machine}) {
            fs::rename(file(second), file(root));
        }
        // It may take as long as nobody looks at the names again, and may happen between opening a key and reading it.
        std::string answer;
        do {
            answer = other.Ask("get HKLM\\SOFTWARE\\T v");
        } while (answer == "0 1" || answer == "1018");
        EXPECT_EQ(answer, "0 2");
        EXPECT_EQ(other.Ask("held v"), "1018");
        EXPECT_EQ(other.Ask("set HKLM\\SOFTWARE\\T v 3"), "0");
        EXPECT_EQ(CClient(root.string(), geteuid()).Ask("get HKLM\\SOFTWARE\\T v"), "0 3") << "into the new one";
    }
}

TEST_F(RegistryUsers, EverybodyReadsWhatRootWroteUnderAnyMask) {
    const mode_t mask = umask(077);
    testreg::PutDword(W("SOFTWARE\\T"), W("v"), 7);
    umask(mask);
    for (const char* name : {"machine.db", "machine.db-wal", "machine.db-shm", "machine.db-gen"}) {
        struct stat status;
        ASSERT_EQ(stat((m_root.Path() / name).c_str(), &status), 0) << name;
        EXPECT_EQ(status.st_mode & 07777, 0644u) << name;
    }
    const auto reader = Start(kNobody);
    EXPECT_EQ(reader->Ask("get HKLM\\SOFTWARE\\T v"), "0 7");
    EXPECT_EQ(reader->Ask("set HKLM\\SOFTWARE\\T v 8"), "5");
    EXPECT_EQ(reader->Ask("create HKLM\\SOFTWARE\\New"), "5");
    EXPECT_EQ(reader->Ask("set HKCU\\Software\\T v 8"), "5") << "nor make a hive of their own";
    testreg::PutDword(W("SOFTWARE\\T"), W("v"), 9);
    EXPECT_EQ(reader->Ask("get HKLM\\SOFTWARE\\T v"), "0 9");
}

TEST_F(RegistryUsers, AReaderNeedsNoWriterToBeThere) {
    ASSERT_EQ(Start()->Ask("set HKLM\\SOFTWARE\\T v 1"), "0");
    EXPECT_EQ(Start(kNobody)->Ask("get HKLM\\SOFTWARE\\T v"), "0 1") << "after a clean end of the last writer";
    {
        const auto killed = Start();
        ASSERT_EQ(killed->Ask("set HKLM\\SOFTWARE\\T v 2"), "0");
        killed->Kill();
    }
    const auto reader = Start(kNobody);
    EXPECT_EQ(reader->Ask("get HKLM\\SOFTWARE\\T v"), "0 2") << "after one that was killed";
    ASSERT_EQ(Start()->Ask("set HKLM\\SOFTWARE\\T v 3"), "0");
    EXPECT_EQ(reader->Ask("get HKLM\\SOFTWARE\\T v"), "0 3") << "one came and went";
}

// A writer that was killed while it wrote the index's header leaves it torn, and no reader may mend it. A reader that
// holds the index open makes it look alive to the next one.
TEST_F(RegistryUsers, ATornIndexKeepsNobodyFromReading) {
    auto writer = Start();
    ASSERT_EQ(writer->Ask("set HKLM\\SOFTWARE\\T v 1"), "0");
    ASSERT_EQ(writer->Ask("set HKLM\\SOFTWARE\\U v 2"), "0");
    const auto first = Start(kNobody);
    ASSERT_EQ(first->Ask("get HKLM\\SOFTWARE\\T v"), "0 1") << "with the writer, so that it has the index open";
    for (const bool inFlight : {false, true}) {
        SCOPED_TRACE(inFlight);
        writer->Kill();
        writer->Wait();
        hivefile::TearIndex(m_root.Path());
        if (inFlight) {
            const hivefile::Counters counters = hivefile::ReadCounters(m_root.Path());
            hivefile::WriteCounters(m_root.Path(), {counters.begun + 1, counters.done});
        }
        for (int i = 0; i < 3; ++i) {
            EXPECT_EQ(first->Ask("get HKLM\\SOFTWARE\\T v"), "0 1");
            EXPECT_EQ(first->Ask("get HKLM\\SOFTWARE\\U v"), "0 2") << "a key that it had not read before";
            EXPECT_EQ(first->Ask("set HKLM\\SOFTWARE\\T v 9"), "5");
        }
        const auto second = Start(kNobody);
        EXPECT_EQ(second->Ask("get HKLM\\SOFTWARE\\U v"), "0 2");
        EXPECT_EQ(second->Ask("get HKLM\\SOFTWARE\\None v"), "2");
        // The next writer mends it, and both see what it wrote.
        writer = Start();
        ASSERT_EQ(writer->Ask("set HKLM\\SOFTWARE\\U v 3"), "0");
        for (const auto& reader : {first.get(), second.get()}) {
            EXPECT_EQ(reader->Ask("get HKLM\\SOFTWARE\\U v"), "0 3");
            EXPECT_EQ(reader->Ask("get HKLM\\SOFTWARE\\T v"), "0 1");
        }
        ASSERT_EQ(writer->Ask("set HKLM\\SOFTWARE\\U v 2"), "0");
        EXPECT_EQ(second->Ask("get HKLM\\SOFTWARE\\U v"), "0 2");
        EXPECT_EQ(first->Ask("get HKLM\\SOFTWARE\\U v"), "0 2");
    }
}

TEST_F(RegistryUsers, AHiveWithoutItsCompanionsCanStillBeRead) {
    ASSERT_EQ(Start()->Ask("set HKLM\\SOFTWARE\\T v 1"), "0");
    fs::remove(hivefile::Index(m_root.Path()));
    EXPECT_EQ(Start(kNobody)->Ask("get HKLM\\SOFTWARE\\T v"), "0 1") << "the log holds it";
    hivefile::Checkpoint(hivefile::Machine(m_root.Path()));
    for (const char* companion : {"machine.db-wal", "machine.db-shm", "machine.db-gen"}) {
        fs::remove(m_root.Path() / companion);
    }
    const auto reader = Start(kNobody);
    EXPECT_EQ(reader->Ask("get HKLM\\SOFTWARE\\T v"), "0 1") << "a copy of the database alone";
    EXPECT_EQ(reader->Ask("get HKLM\\SOFTWARE\\None v"), "2");
    ASSERT_EQ(Start()->Ask("set HKLM\\SOFTWARE\\T v 2"), "0");
    EXPECT_EQ(reader->Ask("get HKLM\\SOFTWARE\\T v"), "0 2");
}

TEST_F(RegistryUsers, AUsersPolicyIsRootsToWriteAndTheirsAloneToRead) {
    const std::string sid = "S-1-22-1-" + std::to_string(kSomeone);
    const auto user = Start(kSomeone);
    EXPECT_EQ(user->Ask("get HKCU\\Software\\T v"), "2");
    const auto root = Start();
    ASSERT_EQ(root->Ask("set " + sid + "\\Software\\T v 1"), "0");
    const fs::path hive = m_root.Path() / "users" / (sid + ".db");
    if (!HasAccessLists()) GTEST_SKIP() << "no access lists on this file system";
    EXPECT_EQ(user->Ask("get HKCU\\Software\\T v"), "0 1");
    EXPECT_EQ(user->Ask("get " + sid + "\\Software\\T v"), "0 1");
    EXPECT_EQ(user->Ask("set HKCU\\Software\\T v 2"), "5");
    ASSERT_EQ(root->Ask("set " + sid + "\\Software\\T v 3"), "0");
    EXPECT_EQ(user->Ask("get HKCU\\Software\\T v"), "0 3");

    const auto another = Start(kNobody);
    EXPECT_EQ(another->Ask("get " + sid + "\\Software\\T v"), "5");
    EXPECT_EQ(another->Ask("get HKCU\\Software\\T v"), "2");
    EXPECT_EQ(root->Ask("get HKCU\\Software\\T v"), "2") << "root is a user too";
    for (const fs::directory_entry& entry : fs::directory_iterator(hive.parent_path())) {
        struct stat status;
        ASSERT_EQ(stat(entry.path().c_str(), &status), 0);
        EXPECT_EQ(status.st_mode & 07, 0u) << entry.path();
        EXPECT_EQ(status.st_uid, 0u) << entry.path();
    }
}

TEST_F(RegistryUsers, HiveNamesAreSids) {
    const auto root = Start();
    EXPECT_EQ(root->Ask("create S-1-22-1-77"), "0");
    EXPECT_EQ(root->Ask("create s-1-5-18\\Software"), "0") << "case does not matter";
    EXPECT_TRUE(fs::exists(m_root.Path() / "users" / "S-1-5-18.db"));
    EXPECT_EQ(root->Ask("create S-1-../../x"), "87");
    HKEY users = nullptr;
    ASSERT_EQ(RegOpenKeyExW(HKEY_USERS, nullptr, 0, KEY_READ, &users), ERROR_SUCCESS);
    for (HKEY key : {users, HKEY_USERS}) {
        WCHAR name[64];
        DWORD length = 64;
        EXPECT_EQ(RegEnumKeyExW(key, 0, name, &length, nullptr, nullptr, nullptr, nullptr), ERROR_SUCCESS);
        EXPECT_EQ(wstr(name), wstr(W("S-1-22-1-77")));
        length = 64;
        EXPECT_EQ(RegEnumKeyExW(key, 1, name, &length, nullptr, nullptr, nullptr, nullptr), ERROR_SUCCESS);
        EXPECT_EQ(wstr(name), wstr(W("S-1-5-18")));
        EXPECT_EQ(RegEnumKeyExW(key, 2, name, &length, nullptr, nullptr, nullptr, nullptr), ERROR_NO_MORE_ITEMS);
        EXPECT_EQ(RegDeleteKeyW(key, W("S-1-5-18")), ERROR_ACCESS_DENIED);
        const DWORD one = 1;
        EXPECT_EQ(RegSetValueExW(key, W("v"), 0, REG_DWORD, reinterpret_cast<const BYTE*>(&one), 4),
                  ERROR_ACCESS_DENIED);
    }
    RegCloseKey(users);
    EXPECT_EQ(RegOpenKeyExW(HKEY_USERS, W("S-1-5-99"), 0, KEY_READ, &users), ERROR_FILE_NOT_FOUND);
}

}  // namespace
