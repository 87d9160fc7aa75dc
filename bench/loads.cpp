// Goals 9 and 10, and the way of a policy change from one process to a subscriber in another.
#include <sqlite3.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "Items.h"
#include "Maps.h"
#include "Measure.h"
#include "module/RegistryKey.h"
#include "support/Recorder.h"
#include "support/StoreDoor.h"
#include "userenv.h"

namespace bench {
namespace {

constexpr std::size_t kItems = 10'000;

// The ordered map of the language, with the same rule for names.
struct UpLess {
    static char16_t Up(char16_t unit) noexcept {
        return unit >= u'a' && unit <= u'z' ? static_cast<char16_t>(unit - 32) : unit;
    }
    bool operator()(const std::u16string& a, const std::u16string& b) const noexcept {
        return std::lexicographical_compare(a.begin(), a.end(), b.begin(), b.end(),
                                            [](char16_t x, char16_t y) { return Up(x) < Up(y); });
    }
};
struct PeerValue {
    std::uint32_t type, number;
    std::u16string text;
    bool operator==(const PeerValue&) const = default;
};
using PeerMap = std::map<std::u16string, PeerValue, UpLess>;

std::size_t Merge(const PeerMap& a, const PeerMap& b) {
    const UpLess less;
    std::size_t different = 0;
    auto i = a.begin();
    auto j = b.begin();
    while (i != a.end() && j != b.end()) {
        if (less(i->first, j->first)) {
            ++different, ++i;
        } else if (less(j->first, i->first)) {
            ++different, ++j;
        } else {
            different += !(i->second == j->second);
            ++i, ++j;
        }
    }
    return different;
}

// Both sides hold what a load found before and now: the same. The old map is copied, though a move would serve.
void Reload(std::size_t count, const char* measure, const Limits& limits) {
    const auto items = MakeItems(count);
    const CPolicyMap before = MapOf(items);
    const CPolicyMap now = MapOf(items);
    PeerMap peerBefore;
    for (const Item& item : items) {
        peerBefore[Wide(item.name)] = {item.isString ? 2u : 4u, item.isString ? 0 : item.number, Wide(item.text)};
    }
    const PeerMap peerNow = peerBefore;
    Compare(
        measure, limits,
        [&](std::uint64_t times) {
            for (; times; --times) Must(CPolicyMap::Differences(before, now).empty(), "differences");
        },
        [&](std::uint64_t times) {
            for (; times; --times) {
                const PeerMap copy = peerBefore;
                Must(Merge(copy, peerNow) == 0, "merge");
            }
        },
        static_cast<double>(count), static_cast<double>(count));
}

void PutItems(const std::vector<Item>& items) {
    Must(!OvBeginRegistryBatch(), "begin");
    for (const Item& item : items) {
        const std::size_t cut = item.name.rfind('\\');
        const std::u16string path = u"SOFTWARE\\Policies\\Orvantis\\" + Wide(item.name.substr(0, cut));
        const std::u16string leaf = Wide(item.name.substr(cut + 1));
        CRegistryKey key;
        Must(!key.Create(HKEY_LOCAL_MACHINE, path.c_str(), nullptr, 0, KEY_ALL_ACCESS, nullptr, nullptr), "create");
        Must(!(item.isString ? key.SetString(leaf.c_str(), Wide(item.text).c_str())
                             : key.SetDword(leaf.c_str(), item.number)),
             "set");
    }
    Must(!OvEndRegistryBatch(TRUE), "commit");
}

// One table, walked in its order: names, types and data, and nothing is made of them.
class OrderedScan {
  public:
    OrderedScan(const std::vector<Item>& items, const std::filesystem::path& file) {
        for (const char* tail : {"", "-wal", "-shm"}) std::filesystem::remove(file.string() + tail);
        Must(sqlite3_open(file.c_str(), &m_db) == SQLITE_OK, "sqlite open");
        Run("PRAGMA journal_mode=WAL");
        Run("CREATE TABLE val(path TEXT, name TEXT, type INT, data, PRIMARY KEY(path,name)) WITHOUT ROWID");
        Run("BEGIN");
        sqlite3_stmt* insert = nullptr;
        sqlite3_prepare_v2(m_db, "INSERT INTO val VALUES(?,?,4,?)", -1, &insert, nullptr);
        for (const Item& item : items) {
            const std::size_t cut = item.name.rfind('\\');
            sqlite3_bind_text(insert, 1, item.name.c_str(), static_cast<int>(cut), SQLITE_TRANSIENT);
            sqlite3_bind_text(insert, 2, item.name.c_str() + cut + 1, -1, SQLITE_TRANSIENT);
            sqlite3_bind_int64(insert, 3, item.number);
            Must(sqlite3_step(insert) == SQLITE_DONE, "sqlite insert");
            sqlite3_reset(insert);
        }
        sqlite3_finalize(insert);
        Run("COMMIT");
        sqlite3_prepare_v2(m_db, "SELECT path,name,type,data FROM val ORDER BY path,name", -1, &m_scan, nullptr);
    }
    ~OrderedScan() {
        sqlite3_finalize(m_scan);
        sqlite3_close(m_db);
    }
    void Scan(std::size_t rows) {
        std::size_t seen = 0;
        for (; sqlite3_step(m_scan) == SQLITE_ROW; ++seen) {
            Keep(sqlite3_column_text(m_scan, 0));
            Keep(sqlite3_column_text(m_scan, 1));
            Keep(sqlite3_column_int64(m_scan, 3));
        }
        sqlite3_reset(m_scan);
        Must(seen == rows, "scan");
    }

  private:
    void Run(const char* sql) { Must(sqlite3_exec(m_db, sql, nullptr, nullptr, nullptr) == SQLITE_OK, sql); }
    sqlite3* m_db = nullptr;
    sqlite3_stmt* m_scan = nullptr;
};

// A whole load of an object: section, import, comparison, with nobody to tell.
void Import() {
    const auto items = MakeItems(kItems);
    PutItems(items);
    CTestInstance server;
    Must(server.Items().Size() == kItems, "import");
    OrderedScan scan(items, "bench-import.db");
    const Work reference = [&](std::uint64_t times) {
        for (; times; --times) scan.Scan(kItems);
    };
    Compare(
        "10 reload of a registry tree of 10,000 values / SQLite's ordered scan", {15, 8},
        [&](std::uint64_t times) {
            for (; times; --times) StoreDoor::LoadAndNotify(*server);
        },
        reference, kItems, kItems);
    Compare(
        "10 the same, read afresh each time", {15, 8},
        [&](std::uint64_t times) {
            for (; times; --times) {
                OvSetRoot(OvRoot());
                StoreDoor::LoadAndNotify(*server);
            }
        },
        reference, kItems, kItems);
}

double Milliseconds(Clock::duration time) {
    return std::chrono::duration<double, std::milli>(time).count();
}

// The last step of an application, in a process of its own: the values are there, now the signal is given.
void Signal() {
    const pid_t child = fork();
    if (child == 0) _exit(RefreshPolicyEx(TRUE, 0) ? 0 : 1);
    int status = 0;
    Must(waitpid(child, &status, 0) == child && status == 0, "signal");
}

// From the signal's begin to the end of the delivery, less what the load and the delivery take on this thread.
void Delivery() {
    std::vector<Item> items = MakeItems(1'000);
    CRecorder recorder;
    CTestInstance server;
    Must(server->GetInfo(0, nullptr) == S_OK, "first load");
    DWORD cookie = 0;
    Must(server->RegisterNotification(W(""), &recorder, &cookie) == S_OK, "register");
    std::vector<double> taken, loads;
    for (int round = 0; round < 20; ++round) {
        for (Item& item : items) ++item.number, item.text += 'x';
        PutItems(items);
        const auto loadBegun = Clock::now();
        StoreDoor::LoadAndNotify(*server);
        loads.push_back(Milliseconds(Clock::now() - loadBegun));
        for (Item& item : items) ++item.number, item.text += 'x';
        PutItems(items);
        const int before = recorder.Batches();
        const auto begun = Clock::now();
        Signal();
        while (recorder.Batches() == before) usleep(50);
        taken.push_back(Milliseconds(Clock::now() - begun));
    }
    server->UnregisterNotification(cookie);
    std::printf(
        "1,000 changed values from the signal to a subscriber of another process, ms, beyond the "
        "load\t%.2f\t%.2f\t%.3f\t\t50\t%s\n",
        Median(taken), Median(loads), Median(taken) - Median(loads),
        Median(taken) - Median(loads) <= 50 ? "ok" : "short");
}

}  // namespace

void Loads() {
    Reload(1'000, "9 reload of 1,000 items, nothing changed / std::map copy and merge", {1.0, 0.5});
    Reload(kItems, "9 reload of 10,000 items, nothing changed / std::map copy and merge", {1.0, 0.5});
    Delivery();
    Import();
}

}  // namespace bench
