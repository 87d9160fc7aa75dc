// What a process keeps of a hive in memory: after any writes of its own it must be what the file holds, for all of its
// threads, in every root, and in the child of a fork.
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <random>
#include <thread>

#include "linux/Process.h"
#include "support/ChildRole.h"
#include "support/Registry.h"
#include "support/TestRoot.h"

namespace {

namespace fs = std::filesystem;

// The tree below a key as text, each line a key or a value.
void Print(HKEY parent, const wstr& name, const std::string& indent, std::string& out) {
    CRegistryKey key;
    ASSERT_EQ(key.Open(parent, name.c_str(), KEY_READ), ERROR_SUCCESS);
    out += indent + std::string(name.begin(), name.end()) + '\n';
    WCHAR text[300];
    DWORD length = 300;
    BYTE data[300];
    DWORD size = sizeof data;
    DWORD type;
    for (DWORD i = 0; !RegEnumValueW(key.Get(), i, text, &length, nullptr, &type, data, &size); ++i) {
        out += indent + "  " + std::string(text, text + length) + " = " + std::to_string(type) + ':';
        for (DWORD at = 0; at < size; ++at) out += std::to_string(data[at]) + ' ';
        out += '\n';
        length = 300;
        size = sizeof data;
    }
    length = 300;
    for (DWORD i = 0; !RegEnumKeyExW(key.Get(), i, text, &length, nullptr, nullptr, nullptr, nullptr); ++i) {
        Print(key.Get(), wstr(text, length), indent + "    ", out);
        length = 300;
    }
}

std::string Tree() {
    std::string out;
    Print(HKEY_LOCAL_MACHINE, W("SOFTWARE"), "", out);
    return out;
}

class RegistryView : public RootTest {
  protected:
    // Everything that is in memory goes; so do the handles.
    void ReadAfresh() const { ASSERT_EQ(OvSetRoot(m_root.Path().c_str()), 0u); }
};

class CRandomWriter {
  public:
    explicit CRandomWriter(unsigned seed) : m_random(seed) {}

    void Write() {
        const wstr path = Path();
        switch (Below(8)) {
            case 0:
                testreg::Make(path.c_str());
                break;
            case 1:
                RegDeleteKeyW(HKEY_LOCAL_MACHINE, path.c_str());
                break;
            case 2:
            case 3: {
                CRegistryKey key;
                if (!key.Open(HKEY_LOCAL_MACHINE, path.c_str(), KEY_ALL_ACCESS)) {
                    RegDeleteValueW(key.Get(), Name().c_str());
                }
                break;
            }
            default: {
                const std::vector<BYTE> data(Below(40), static_cast<BYTE>(Below(256)));
                testreg::PutBytes(path.c_str(), Name().c_str(), Below(12), data.data(), data.size());
            }
        }
    }

    void Read() {
        CRegistryKey key;
        if (key.Open(HKEY_LOCAL_MACHINE, Path().c_str(), KEY_READ)) return;
        DWORD number;
        key.QueryDword(Name().c_str(), number);
    }

    DWORD Below(DWORD bound) { return std::uniform_int_distribution<DWORD>(0, bound - 1)(m_random); }

  private:
    wstr Name() {
        wstr name = Below(2) ? W("value") : W("VALUE");
        return Below(8) == 0 ? wstr() : name + static_cast<WCHAR>(W('a') + Below(20));
    }

    wstr Path() {
        wstr path = W("SOFTWARE");
        for (DWORD depth = Below(4); depth-- > 0;) {
            path += Below(2) ? W("\\key") : W("\\KEY");
            path += static_cast<WCHAR>(W('0') + Below(3));
        }
        return path;
    }

    std::mt19937 m_random;
};

TEST_F(RegistryView, IsWhatTheFileHoldsAfterAnyWrites) {
    testreg::Make(W("SOFTWARE"));
    for (unsigned seed = 1; seed <= 20; ++seed) {
        SCOPED_TRACE(seed);
        CRandomWriter writer(seed);
        const bool batched = seed % 2 == 0;
        if (batched) {
            ASSERT_EQ(OvBeginRegistryBatch(), ERROR_SUCCESS);
        }
        for (int i = 0; i < 60; ++i) {
            writer.Write();
            if (i % 3 == 0) writer.Read();
        }
        const std::string before = Tree();
        if (batched) {
            ASSERT_EQ(OvEndRegistryBatch(TRUE), ERROR_SUCCESS);
        }
        const std::string warm = Tree();
        ReadAfresh();
        const std::string cold = Tree();
        ASSERT_EQ(warm, cold);
        ASSERT_EQ(before, cold);
    }
}

TEST_F(RegistryView, ABatchThatIsTakenBackLeavesNoTrace) {
    testreg::Make(W("SOFTWARE"));
    CRandomWriter writer(7);
    for (int i = 0; i < 60; ++i) writer.Write();
    const std::string before = Tree();
    ASSERT_EQ(OvBeginRegistryBatch(), ERROR_SUCCESS);
    for (int i = 0; i < 60; ++i) writer.Write();
    EXPECT_NE(Tree(), before);
    std::string seenByOthers;
    std::thread([&] { seenByOthers = Tree(); }).join();
    EXPECT_EQ(seenByOthers, before);
    ASSERT_EQ(OvEndRegistryBatch(FALSE), ERROR_SUCCESS);
    EXPECT_EQ(Tree(), before);
    ReadAfresh();
    EXPECT_EQ(Tree(), before);
}

TEST_F(RegistryView, ABatchEndsWithItsThread) {
    testreg::PutDword(W("SOFTWARE\\T"), W("v"), 1);
    std::thread([] {
        EXPECT_EQ(OvBeginRegistryBatch(), ERROR_SUCCESS);
        testreg::PutDword(W("SOFTWARE\\T"), W("v"), 2);
    }).join();
    testreg::PutDword(W("SOFTWARE\\T"), W("w"), 3);
    EXPECT_EQ(testreg::Get(W("SOFTWARE\\T"), W("v")).bytes[0], 1);
}

// A value that is rewritten again and again must not fill the memory with what it was.
TEST_F(RegistryView, RewritingKeepsTheLastData) {
    const CRegistryKey key = testreg::Make(W("SOFTWARE\\T"));
    std::vector<BYTE> data(200'000);
    for (DWORD i = 1; i < 60; ++i) {
        data.assign(i % 2 ? 200'000 + i : 10 + i, static_cast<BYTE>(i));
        ASSERT_EQ(RegSetValueExW(key.Get(), W("v"), 0, REG_BINARY, data.data(), static_cast<DWORD>(data.size())),
                  ERROR_SUCCESS);
        EXPECT_EQ(testreg::Get(W("SOFTWARE\\T"), W("v")).bytes, data);
    }
}

// Each thread has values of its own, so that each knows what it must read; keys come and go beside them.
TEST_F(RegistryView, ManyThreadsReadAndWriteAtOnce) {
    constexpr int kThreads = 4;
    testreg::Make(W("SOFTWARE\\T"));
    std::atomic<int> failures{0};
    const auto work = [&](int me) {
        const wstr name(1, static_cast<WCHAR>(W('a') + me));
        const wstr below = W("below") + name;
        CRegistryKey key;
        if (key.Open(HKEY_LOCAL_MACHINE, W("SOFTWARE\\T"), KEY_ALL_ACCESS)) ++failures;
        for (DWORD i = 1; i <= 60; ++i) {
            DWORD value = 0;
            if (key.SetDword(name.c_str(), i)) ++failures;
            if (key.QueryDword(name.c_str(), value) || value != i) ++failures;
            CRegistryKey sub;
            if (sub.Create(key.Get(), below.c_str(), nullptr, 0, KEY_ALL_ACCESS, nullptr, nullptr)) ++failures;
            if (sub.SetDword(W("v"), i)) ++failures;
            if (key.DeleteSubkey(below.c_str())) ++failures;
            if (sub.QueryDword(W("v"), value) != ERROR_KEY_DELETED) ++failures;
            for (const WCHAR other : {W('a'), W('b'), W('c'), W('d')}) {
                key.QueryDword(wstr(1, other).c_str(), value);
            }
        }
    };
    std::vector<std::thread> threads;
    for (int me = 0; me < kThreads; ++me) threads.emplace_back(work, me);
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(failures, 0);
    const std::string warm = Tree();
    ReadAfresh();
    EXPECT_EQ(Tree(), warm);
}

// The registry of a process may be pointed elsewhere while other threads use it.
TEST_F(RegistryView, AnotherRootIsAnotherComputer) {
    testreg::PutDword(W("SOFTWARE\\T"), W("v"), 1);
    CRegistryKey old = testreg::Make(W("SOFTWARE\\T"));
    HKEY user = nullptr;
    ASSERT_EQ(RegOpenCurrentUser(KEY_READ, &user), ERROR_SUCCESS);
    const fs::path second = m_root.Path() / "second";
    ASSERT_EQ(OvSetRoot(second.c_str()), 0u);
    EXPECT_EQ(OvRoot(), second.string());
    EXPECT_EQ(testreg::Get(W("SOFTWARE\\T"), W("v")).error, ERROR_FILE_NOT_FOUND);
    DWORD value = 0;
    EXPECT_EQ(old.QueryDword(W("v"), value), ERROR_KEY_DELETED);
    EXPECT_EQ(old.SetDword(W("v"), 5), ERROR_KEY_DELETED);
    EXPECT_EQ(old.Close(), ERROR_SUCCESS);
    EXPECT_EQ(RegCloseKey(user), ERROR_SUCCESS);
    testreg::PutDword(W("SOFTWARE\\T"), W("v"), 2);
    ReadAfresh();
    EXPECT_EQ(testreg::Get(W("SOFTWARE\\T"), W("v")).bytes[0], 1);

    EXPECT_EQ(OvSetRoot(""), static_cast<DWORD>(ERROR_INVALID_PARAMETER));
    ASSERT_EQ(OvBeginRegistryBatch(), ERROR_SUCCESS);
    EXPECT_EQ(OvSetRoot(second.c_str()), static_cast<DWORD>(ERROR_BUSY));
    ASSERT_EQ(OvEndRegistryBatch(FALSE), ERROR_SUCCESS);
}

int PlayManyUsers(const std::vector<std::string>& arguments) {
    if (OvSetRoot(arguments.at(0).c_str())) return 2;
    const auto openFiles = [] {
        return std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator());
    };
    const auto path = [](int user) {
        const std::string text = "S-1-22-1-" + std::to_string(100000 + user) + "\\Software";
        return wstr(text.begin(), text.end());
    };
    for (const int round : {0, 1}) {
        for (int user = 0; user < 150; ++user) {
            CRegistryKey key;
            if (key.Create(HKEY_USERS, path(user).c_str(), nullptr, 0, KEY_READ | KEY_WRITE, nullptr, nullptr))
                return 3;
            DWORD value = 0;
            if (round == 1 && (key.QueryDword(W("v"), value) || value != static_cast<DWORD>(user))) return 4;
            if (key.SetDword(W("v"), static_cast<DWORD>(user))) return 5;
        }
        if (openFiles() > 300) return 6;
    }
    return 0;
}

const CChildRole manyUsersRole("registry-many-users", PlayManyUsers);

TEST_F(RegistryView, MoreUsersThanFilesMayBeOpen) {
    EXPECT_EQ(CProcess("registry-many-users", {m_root.Path().string()}).Wait(), 0);
}

// SQLite's book of locks does not survive a fork: a connection that did would go without them.
bool HasHiveOpen() {
    for (const fs::directory_entry& entry : fs::directory_iterator("/proc/self/fd")) {
        std::error_code gone;
        if (fs::read_symlink(entry.path(), gone).string().find("machine.db") != std::string::npos) return true;
    }
    return false;
}

int InChild(int (*body)(HKEY), HKEY key) {
    const pid_t child = fork();
    if (child == 0) _exit(body(key));
    int status = 0;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128;
}

TEST_F(RegistryView, BothSidesOfAForkGoOn) {
    testreg::PutDword(W("SOFTWARE\\T"), W("v"), 1);
    testreg::PutDword(W("SOFTWARE\\U"), W("v"), 2);
    const CRegistryKey key = testreg::Make(W("SOFTWARE\\T"));
    EXPECT_TRUE(HasHiveOpen());
    const auto child = [](HKEY held) -> int {
        if (HasHiveOpen()) return 9;
        DWORD value = 0;
        DWORD size = sizeof value;
        if (RegQueryValueExW(held, W("v"), nullptr, nullptr, reinterpret_cast<BYTE*>(&value), &size)) return 1;
        if (value != 1) return 2;
        if (testreg::Get(W("SOFTWARE\\U"), W("v")).error) return 3;  // not in memory yet
        value = 3;
        if (RegSetValueExW(held, W("v"), 0, REG_DWORD, reinterpret_cast<const BYTE*>(&value), sizeof value)) return 4;
        return testreg::Get(W("SOFTWARE\\T"), W("v")).bytes[0] == 3 ? 0 : 5;
    };
    EXPECT_EQ(InChild(child, key.Get()), 0);
    DWORD value = 0;
    EXPECT_EQ(key.QueryDword(W("v"), value), ERROR_SUCCESS);
    EXPECT_EQ(value, 3u);
    testreg::PutDword(W("SOFTWARE\\T"), W("v"), 4);
    EXPECT_EQ(testreg::Get(W("SOFTWARE\\T"), W("v")).bytes[0], 4);
}

// The child of a fork within a batch cannot have the hive, and must not harm the parent's batch.
TEST_F(RegistryView, AForkLeavesABatchToTheParent) {
    testreg::PutDword(W("SOFTWARE\\T"), W("v"), 1);
    const CRegistryKey key = testreg::Make(W("SOFTWARE\\T"));
    ASSERT_EQ(OvBeginRegistryBatch(), ERROR_SUCCESS);
    testreg::PutDword(W("SOFTWARE\\T"), W("v"), 2);
    const auto child = [](HKEY held) -> int {
        const DWORD value = 3;
        if (RegSetValueExW(held, W("v"), 0, REG_DWORD, reinterpret_cast<const BYTE*>(&value), sizeof value) !=
            ERROR_REGISTRY_IO_FAILED) {
            return 1;
        }
        if (OvEndRegistryBatch(TRUE) != ERROR_INVALID_PARAMETER) return 2;
        HKEY user = nullptr;
        return RegOpenCurrentUser(KEY_READ, &user) ? 3 : 0;  // other hives are not concerned
    };
    EXPECT_EQ(InChild(child, key.Get()), 0);
    EXPECT_EQ(testreg::Get(W("SOFTWARE\\T"), W("v")).bytes[0], 2);
    ASSERT_EQ(OvEndRegistryBatch(TRUE), ERROR_SUCCESS);
    ReadAfresh();
    EXPECT_EQ(testreg::Get(W("SOFTWARE\\T"), W("v")).bytes[0], 2);
}

}  // namespace
