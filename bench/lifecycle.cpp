// The two ends of an object: what making one costs, and what leaving its store behind does.
#include <fcntl.h>
#include <sqlite3.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <vector>

#include "Items.h"
#include "Maps.h"
#include "Measure.h"
#include "module/RegistryKey.h"
#include "security/CoreKey.h"
#include "support/StoreDoor.h"

namespace bench {
namespace {

constexpr std::size_t kItems = 10'000;
constexpr int kPairs = 11;

void PutBinDir(const std::string& folder) {
    CRegistryKey key = OpenCoreKey(KEY_ALL_ACCESS);
    Must(key.SetString(W("BinDir"), Wide(folder).c_str()) == ERROR_SUCCESS, "BinDir");
}

double Milliseconds(Clock::time_point begin) {
    return std::chrono::duration<double, std::milli>(Clock::now() - begin).count();
}

// As many rows as the items, in one transaction, in place of those that were there.
class Rows {
  public:
    explicit Rows(const std::filesystem::path& file) {
        for (const char* tail : {"", "-wal", "-shm"}) std::filesystem::remove(file.string() + tail);
        Must(sqlite3_open(file.c_str(), &m_db) == SQLITE_OK, "sqlite open");
        for (const char* sql : {"PRAGMA journal_mode=WAL", "PRAGMA synchronous=NORMAL",
                                "CREATE TABLE val(name TEXT PRIMARY KEY, type, data) WITHOUT ROWID"}) {
            Run(sql);
        }
        sqlite3_prepare_v2(m_db, "INSERT INTO val VALUES(?, ?, ?)", -1, &m_insert, nullptr);
    }
    ~Rows() {
        sqlite3_finalize(m_insert);
        sqlite3_close(m_db);
    }
    void Replace(const std::vector<Item>& items) {
        Run("BEGIN IMMEDIATE");
        Run("DELETE FROM val");
        for (const Item& item : items) {
            sqlite3_bind_text(m_insert, 1, item.name.c_str(), -1, SQLITE_STATIC);
            sqlite3_bind_int(m_insert, 2, item.isString ? 1 : 4);
            if (item.isString) {
                sqlite3_bind_text(m_insert, 3, item.text.c_str(), -1, SQLITE_STATIC);
            } else {
                sqlite3_bind_int64(m_insert, 3, item.number);
            }
            Must(sqlite3_step(m_insert) == SQLITE_DONE, "insert");
            sqlite3_reset(m_insert);
        }
        Run("COMMIT");
    }

  private:
    void Run(const char* sql) { Must(sqlite3_exec(m_db, sql, nullptr, nullptr, nullptr) == SQLITE_OK, sql); }

    sqlite3* m_db = nullptr;
    sqlite3_stmt* m_insert = nullptr;
};

// An object with those items in its store, in milliseconds of its end.
double EndOf(const CPolicyMap& items) {
    auto* object = new CComObject<CServerInfo>;
    Must(object->Construct() == S_OK, "construct");
    object->AddRef();
    StoreDoor::Items(*object) = items;
    const auto begin = Clock::now();
    object->Release();
    return Milliseconds(begin);
}

void End(const std::filesystem::path& folder) {
    const std::vector<Item> items = MakeItems(kItems);
    Rows rows(folder / "bench-rows.db");
    CTestInstance saver;
    std::vector<double> ours, references, ratios;
    for (std::uint32_t pair = 0; pair < kPairs + 1; ++pair) {
        const std::vector<Item> varied = Vary(items, pair);
        const double took = EndOf(MapOf(varied));
        StoreDoor::Items(*saver) = MapOf(Vary(items, pair + 1000));
        const auto begin = Clock::now();
        Must(StoreDoor::Save(*saver) == S_OK, "save");
        rows.Replace(varied);
        const double reference = Milliseconds(begin);
        if (pair == 0) continue;  // the first end finds no copy to replace
        ours.push_back(took);
        references.push_back(reference);
        ratios.push_back(took / reference);
    }
    StoreDoor::Items(*saver).Clear();
    Print("end of an object of 10,000 items / save of the cache file and as many rows in one transaction, ms",
          Median(ours), Median(references), Median(ratios), {8, 8});
}

// Another process that reads one value of the same hive over and over while objects end. Its longest wait, in
// milliseconds.
void Readers() {
    constexpr LPCWSTR kKey = W("SOFTWARE\\Orvantis\\Core");
    int results[2], stop[2];
    Must(pipe(results) == 0 && pipe(stop) == 0, "pipe");
    const pid_t child = fork();
    if (child == 0) {
        fcntl(stop[0], F_SETFL, O_NONBLOCK);
        double longest = 0;
        std::uint64_t reads = 0;
        for (char byte; read(stop[0], &byte, 1) < 0; ++reads) {
            const auto begin = Clock::now();
            CRegistryKey key;
            WCHAR text[MAX_PATH];
            DWORD length = MAX_PATH;
            Must(key.Open(HKEY_LOCAL_MACHINE, kKey, KEY_READ) == ERROR_SUCCESS &&
                     key.QueryString(W("BinDir"), text, length) == ERROR_SUCCESS,
                 "read");
            longest = std::max(longest, Milliseconds(begin));
            usleep(200);
        }
        Must(reads > 100 && write(results[1], &longest, sizeof longest) == sizeof longest, "tell");
        _exit(0);
    }
    const std::vector<Item> items = MakeItems(kItems);
    double took = 0;
    for (std::uint32_t i = 0; i < 10; ++i) took = std::max(took, EndOf(MapOf(Vary(items, i))));
    Must(write(stop[1], "", 1) == 1, "stop");
    double longest = 0;
    int status = 0;
    Must(read(results[0], &longest, sizeof longest) == sizeof longest && waitpid(child, &status, 0) == child && !status,
         "hear of the reader");
    for (const int end : {results[0], results[1], stop[0], stop[1]}) close(end);
    Print("longest wait of a reader in another process while an object of 10,000 items ends, ms, of the end's", longest,
          took, longest, {50, 50});
}

// On a root that holds nothing but a folder for the cache file.
void Birth(const std::filesystem::path& folder) {
    std::filesystem::remove_all(folder / "bench-empty");
    const std::string empty = (folder / "bench-empty").string();
    const std::string before = OvRoot();
    Must(OvSetRoot(empty.c_str()) == ERROR_SUCCESS, "root");
    const Work ours = [](std::uint64_t times) {
        for (; times; --times) CTestInstance instance;
    };
    const std::string hive = empty + "/machine.db", cache = empty + "/svinfo.cch";
    const Work files = [&](std::uint64_t times) {
        for (; times; --times) {
            const int file = open(hive.c_str(), O_RDONLY | O_CLOEXEC);
            Must(file >= 0 && open(cache.c_str(), O_RDWR | O_CLOEXEC) < 0 && unlink(cache.c_str()) < 0,
                 "ask for files");
            close(file);
        }
    };
    PutBinDir(empty);
    constexpr std::uint64_t kTimes = 100;
    std::vector<double> a, b, beyond;
    for (int pair = 0; pair < kPairs; ++pair) {
        a.push_back(Nanoseconds(ours, kTimes) / kTimes / 1000);
        b.push_back(Nanoseconds(files, kTimes) / kTimes / 1000);
        beyond.push_back(a.back() - b.back());
    }
    Must(OvSetRoot(before.c_str()) == ERROR_SUCCESS, "root");
    Print("making and releasing an object on an empty root beyond its file calls, microseconds", Median(a), Median(b),
          Median(beyond), {300, 300});
}

}  // namespace

void Lifecycle() {
    const std::filesystem::path folder = std::filesystem::current_path();
    PutBinDir(folder.string());
    End(folder);
    Readers();
    Birth(folder);
}

}  // namespace bench
