// Goals 5 and 10a: what an item that is not managed costs, and a walk over one large key.
#include <sqlite3.h>

#include <filesystem>
#include <string>
#include <vector>

#include "Floor.h"
#include "Items.h"
#include "Measure.h"
#include "support/StoreDoor.h"

namespace bench {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t kItems = 10'000;

std::string Up(std::string text) {
    for (char& c : text) c = static_cast<char>(c >= 'a' && c <= 'z' ? c - 32 : c);
    return text;
}

// The two-table form of a registry, and the two SELECTs of an open and a read in it.
class TwoTables {
  public:
    TwoTables(const std::vector<Item>& items, const fs::path& file) {
        for (const char* tail : {"", "-wal", "-shm"}) fs::remove(file.string() + tail);
        Must(sqlite3_open(file.c_str(), &m_db) == SQLITE_OK, "sqlite open");
        Run("PRAGMA journal_mode=WAL");
        Run("CREATE TABLE key(path TEXT PRIMARY KEY, id INT) WITHOUT ROWID");
        Run("CREATE TABLE val(name TEXT, key INT, type INT, data, PRIMARY KEY(key,name)) WITHOUT ROWID");
        Run("BEGIN");
        sqlite3_stmt* key = Prepare("INSERT OR IGNORE INTO key VALUES(?1,?2)");
        sqlite3_stmt* value = Prepare("INSERT INTO val VALUES(?1,(SELECT id FROM key WHERE path=?2),4,?3)");
        sqlite3_int64 id = 0;
        for (const Item& item : items) {
            const auto [path, leaf] = Split(Up(item.name));
            Text(key, 1, path);
            sqlite3_bind_int64(key, 2, ++id);
            Step(key, SQLITE_DONE);
            Text(value, 1, leaf);
            Text(value, 2, path);
            sqlite3_bind_int64(value, 3, item.number);
            Step(value, SQLITE_DONE);
        }
        sqlite3_finalize(key);
        sqlite3_finalize(value);
        Run("COMMIT");
        m_key = Prepare("SELECT id,path FROM key WHERE path=?1");
        m_value = Prepare("SELECT type,data FROM val WHERE key=?2 AND name=?1");
        m_scan = Prepare("SELECT name,type,data FROM val WHERE key=?1 ORDER BY name");
    }
    ~TwoTables() {
        for (sqlite3_stmt* statement : {m_key, m_value, m_scan}) sqlite3_finalize(statement);
        sqlite3_close(m_db);
    }

    // Each SELECT is its own transaction.
    bool Read(const std::string& path, const std::string& leaf) {
        Text(m_key, 1, path);
        const sqlite3_int64 id = sqlite3_step(m_key) == SQLITE_ROW ? sqlite3_column_int64(m_key, 0) : -1;
        sqlite3_reset(m_key);
        Text(m_value, 1, leaf);
        sqlite3_bind_int64(m_value, 2, id);
        const bool found = sqlite3_step(m_value) == SQLITE_ROW;
        sqlite3_reset(m_value);
        return found;
    }

    void Scan(sqlite3_int64 key, int rows) {
        sqlite3_bind_int64(m_scan, 1, key);
        int seen = 0;
        while (sqlite3_step(m_scan) == SQLITE_ROW) {
            Keep(sqlite3_column_text(m_scan, 0));
            Keep(sqlite3_column_int(m_scan, 1));
            Keep(sqlite3_column_int64(m_scan, 2));
            ++seen;
        }
        sqlite3_reset(m_scan);
        Must(seen == rows, "scan");
    }

    static std::pair<std::string, std::string> Split(const std::string& name) {
        const std::size_t cut = name.rfind('\\');
        return {name.substr(0, cut), name.substr(cut + 1)};
    }

  private:
    void Run(const char* sql) { Must(sqlite3_exec(m_db, sql, nullptr, nullptr, nullptr) == SQLITE_OK, sql); }
    sqlite3_stmt* Prepare(const char* sql) {
        sqlite3_stmt* statement = nullptr;
        Must(sqlite3_prepare_v3(m_db, sql, -1, SQLITE_PREPARE_PERSISTENT, &statement, nullptr) == SQLITE_OK, sql);
        return statement;
    }
    static void Text(sqlite3_stmt* statement, int at, const std::string& text) {
        sqlite3_bind_text(statement, at, text.data(), static_cast<int>(text.size()), SQLITE_STATIC);
    }
    static void Step(sqlite3_stmt* statement, int wanted) {
        Must(sqlite3_step(statement) == wanted, "sqlite step");
        sqlite3_reset(statement);
    }
    sqlite3* m_db = nullptr;
    sqlite3_stmt *m_key = nullptr, *m_value = nullptr, *m_scan = nullptr;
};

void PutValues(LPCWSTR path, const std::vector<std::u16string>& names) {
    HKEY key = nullptr;
    Must(!RegCreateKeyExW(HKEY_LOCAL_MACHINE, path, 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &key, nullptr), "create");
    for (DWORD i = 0; i < names.size(); ++i) {
        Must(!RegSetValueExW(key, names[i].c_str(), 0, REG_DWORD, reinterpret_cast<const BYTE*>(&i), sizeof i), "set");
    }
    RegCloseKey(key);
}

// Both keys are there, as on a computer that is in use; the item is in neither.
void Misses(const std::vector<Item>& items) {
    PutValues(W("SOFTWARE\\Orvantis\\Policies\\CommonSettings"), {u"a"});
    PutValues(W("SOFTWARE\\Orvantis\\Policies\\Default"), {u"a"});
    const auto absent = MakeItems(kItems, true);
    const Queries16 names(absent, [](const Item&) { return true; });
    CTestInstance server;
    IOVServerInfo* object = server.operator->();
    std::size_t at = 0;
    const Work ours = [&](std::uint64_t times) {
        DWORD number = 0;
        for (; times; --times) {
            if (object->GetItemLong(names[at], &number) != static_cast<HRESULT>(0x80070002)) Must(false, "miss");
            if (++at == names.Size()) at = 0;
        }
    };
    TwoTables tables(items, "bench-registry.db");
    std::vector<std::pair<std::string, std::string>> keys;
    for (std::uint32_t index : QueryOrder(absent.size())) keys.push_back(TwoTables::Split(Up(absent[index].name)));
    std::size_t next = 0;
    const Work reference = [&](std::uint64_t times) {
        for (; times; --times) {
            for (int level = 0; level < 2; ++level) {
                if (tables.Read(keys[next].first, keys[next].second)) Must(false, "miss");
            }
            if (++next == keys.size()) next = 0;
        }
    };
    Compare("5 GetItemLong miss through both local keys / the same 4 SELECTs", {1.0, 1 / 3.0}, ours, reference);
}

void Enumeration() {
    constexpr DWORD kValues = 10'000;
    std::vector<std::u16string> names;
    std::vector<Item> rows;
    for (DWORD i = 0; i < kValues; ++i) {
        char name[32];
        std::snprintf(name, sizeof name, "Setting%06u", i);
        names.push_back(Wide(name));
        rows.push_back({std::string("Key\\") + name, false, i, {}});
    }
    PutValues(W("SOFTWARE\\Large"), names);
    HKEY key = nullptr;
    Must(!RegOpenKeyExW(HKEY_LOCAL_MACHINE, W("SOFTWARE\\Large"), 0, KEY_READ, &key), "open");
    const auto walk = [&] {
        WCHAR name[64];
        BYTE data[64];
        DWORD index = 0;
        for (;; ++index) {
            DWORD length = 64, size = sizeof data, type = 0;
            const LONG error = RegEnumValueW(key, index, name, &length, nullptr, &type, data, &size);
            if (error == ERROR_NO_MORE_ITEMS) break;
            if (error) Must(false, "enumerate");
            Keep(name);
        }
        Must(index == kValues, "all values");
    };
    TwoTables tables(rows, "bench-scan.db");
    const Work reference = [&](std::uint64_t times) {
        for (; times; --times) tables.Scan(1, kValues);
    };
    Compare(
        "10a enumeration of 10,000 values of one key / SQLite's scan", {10, 4},
        [&](std::uint64_t times) {
            for (; times; --times) walk();
        },
        reference, kValues, kValues);
    // Pointing the process at its root again drops everything that the layer holds in memory.
    Compare(
        "10a the same, read afresh each time", {10, 4},
        [&](std::uint64_t times) {
            for (; times; --times) {
                OvSetRoot(OvRoot());
                RegCloseKey(key);
                Must(!RegOpenKeyExW(HKEY_LOCAL_MACHINE, W("SOFTWARE\\Large"), 0, KEY_READ, &key), "open");
                walk();
            }
        },
        reference, kValues, kValues);
    RegCloseKey(key);
}

}  // namespace

void Registry() {
    Misses(MakeItems(kItems));
    Enumeration();
}

}  // namespace bench
