// Goals 1 to 4, 6 and 7: questions to a filled store, beside the floor, a policy store of the field and a database.
#include <dconf.h>
#include <sqlite3.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <thread>

#include "Floor.h"
#include "Items.h"
#include "Measure.h"
#include "support/StoreDoor.h"

namespace bench {
namespace {

constexpr std::size_t kItems = 10'000;

void Fill(CPolicyMap& map, const std::vector<Item>& items) {
    // In a random order, so that the entries do not lie in the order of their keys.
    std::vector<std::uint32_t> order(items.size());
    for (std::size_t i = 0; i < order.size(); ++i) order[i] = static_cast<std::uint32_t>(i);
    Rng rng(5);
    for (std::size_t i = order.size(); i > 1; --i) std::swap(order[i - 1], order[rng.Below(i)]);
    for (std::uint32_t index : order) {
        CPolicyItem item{Wide(items[index].name), {}};
        if (items[index].isString) {
            item.value.SetString(Wide(items[index].text).c_str());
        } else {
            item.value.SetNumber(OV_TYPE_DWORD, items[index].number);
        }
        Must(map.Insert(std::move(item)), "insert");
    }
}

template <class Step>
Work Cycle(const Queries16& queries, Step step, std::size_t start = 0) {
    return [&queries, step, at = start % queries.Size()](std::uint64_t times) mutable {
        for (; times; --times) {
            step(at);
            if (++at == queries.Size()) at = 0;
        }
    };
}

Work AskLongs(IOVServerInfo* server, const Queries16& queries, std::size_t start = 0) {
    return Cycle(
        queries,
        [server, &queries](std::size_t at) {
            DWORD number = 0;
            if (server->GetItemLong(queries[at], &number) != S_OK) Must(false, "GetItemLong");
            Keep(number);
        },
        start);
}

Work FloorLongs(RecursiveMutex& mutex, const LimitTable& table, const Queries16& queries, std::size_t start = 0) {
    return Cycle(
        queries,
        [&](std::size_t at) {
            FloorQuery(mutex, table, queries.View(at), [](const LimitTable::Flat* found) {
                if (!found) Must(false, "floor");
                Keep(found->number);
            });
        },
        start);
}

// Enough operations to make the start of a thread disappear in them.
constexpr std::uint64_t kThreaded = 100'000;

// Two threads do `times` operations each at once.
Work TwoThreads(Work first, Work second) {
    return [first, second](std::uint64_t times) {
        std::thread other([&] { second(times); });
        first(times);
        other.join();
    };
}

// A compiled database of the same items, read through the library of the field.
class DconfPeer {
  public:
    DconfPeer(const std::vector<Item>& items, const std::filesystem::path& folder) {
        namespace fs = std::filesystem;
        fs::remove_all(folder);
        fs::create_directories(folder / "keys");
        {
            std::ofstream keys(folder / "keys" / "all");
            std::string last;
            std::vector<const Item*> sorted;
            for (const Item& item : items) sorted.push_back(&item);
            const auto group = [](const Item* item) { return item->name.substr(0, item->name.rfind('\\')); };
            std::stable_sort(sorted.begin(), sorted.end(),
                             [&](const Item* a, const Item* b) { return group(a) < group(b); });
            for (const Item* item : sorted) {
                std::string path = group(item);
                std::replace(path.begin(), path.end(), '\\', '/');
                if (path != last) keys << '[' << path << "]\n";
                last = path;
                keys << item->name.substr(item->name.rfind('\\') + 1);
                if (item->isString) {
                    keys << "='" << item->text << "'\n";
                } else {
                    keys << "=uint32 " << item->number << '\n';
                }
            }
        }
        const std::string command =
            "dconf compile '" + (folder / "db").string() + "' '" + (folder / "keys").string() + "'";
        Must(std::system(command.c_str()) == 0, "dconf compile");
        std::ofstream(folder / "profile") << "file-db:" << fs::absolute(folder / "db").string() << '\n';
        setenv("DCONF_PROFILE", fs::absolute(folder / "profile").c_str(), 1);
        m_client = dconf_client_new();
    }
    ~DconfPeer() { g_object_unref(m_client); }

    void ReadLong(const char* path) {
        GVariant* value = dconf_client_read(m_client, path);
        if (!value) Must(false, "dconf read");
        Keep(g_variant_get_uint32(value));
        g_variant_unref(value);
    }

  private:
    DConfClient* m_client;
};

class SqlitePeer {
  public:
    SqlitePeer(const std::vector<Item>& items, const std::filesystem::path& file) {
        for (const char* tail : {"", "-wal", "-shm"}) std::filesystem::remove(file.string() + tail);
        Must(sqlite3_open(file.c_str(), &m_db) == SQLITE_OK, "sqlite open");
        Run("PRAGMA journal_mode=WAL");
        Run("CREATE TABLE item(name TEXT PRIMARY KEY, type INT, data) WITHOUT ROWID");
        Run("BEGIN");
        sqlite3_stmt* insert = Prepare("INSERT INTO item VALUES(?,4,?)");
        for (const Item& item : items) {
            const std::string key = Up(item.name);
            sqlite3_bind_text(insert, 1, key.data(), static_cast<int>(key.size()), SQLITE_STATIC);
            sqlite3_bind_int64(insert, 2, item.number);
            Must(sqlite3_step(insert) == SQLITE_DONE, "sqlite insert");
            sqlite3_reset(insert);
        }
        sqlite3_finalize(insert);
        Run("COMMIT");
        m_select = Prepare("SELECT type,data FROM item WHERE name=?1");
    }
    ~SqlitePeer() {
        sqlite3_finalize(m_select);
        sqlite3_close(m_db);
    }

    void ReadLong(const std::string& key) {
        sqlite3_bind_text(m_select, 1, key.data(), static_cast<int>(key.size()), SQLITE_STATIC);
        if (sqlite3_step(m_select) != SQLITE_ROW) Must(false, "sqlite select");
        Keep(sqlite3_column_int64(m_select, 1));
        sqlite3_reset(m_select);
    }

    static std::string Up(std::string text) {
        for (char& c : text) c = static_cast<char>(c >= 'a' && c <= 'z' ? c - 32 : c);
        return text;
    }

  private:
    void Run(const char* sql) { Must(sqlite3_exec(m_db, sql, nullptr, nullptr, nullptr) == SQLITE_OK, sql); }
    sqlite3_stmt* Prepare(const char* sql) {
        sqlite3_stmt* statement = nullptr;
        Must(sqlite3_prepare_v3(m_db, sql, -1, SQLITE_PREPARE_PERSISTENT, &statement, nullptr) == SQLITE_OK, sql);
        return statement;
    }
    sqlite3* m_db = nullptr;
    sqlite3_stmt* m_select = nullptr;
};

bool IsNumber(const Item& item) {
    return !item.isString;
}
bool IsText(const Item& item) {
    return item.isString;
}

void Arrays(const CTestInstance& server, const LimitTable& table, const std::vector<Item>& items) {
    constexpr DWORD kRecords = 100;
    const Queries16 numbers(items, IsNumber);
    IOVServerInfo* object = server.operator->();
    std::vector<OV_SERVER_INFO_EX> records(kRecords);
    std::size_t ask = 0, floor = 0;
    const Work ours = [&](std::uint64_t times) {
        for (; times; --times) {
            for (OV_SERVER_INFO_EX& record : records) {
                record = {numbers[ask], 0, {}};
                if (++ask == numbers.Size()) ask = 0;
            }
            Must(object->GetInfo(kRecords, records.data()) == S_OK && records[kRecords - 1].hr == S_OK, "GetInfo");
            Keep(records);
        }
    };
    const Work bare = [&](std::uint64_t times) {
        for (; times; --times) {
            for (DWORD i = 0; i < kRecords; ++i) {
                const LimitTable::Flat* found = FloorFind(table, numbers.View(floor));
                if (!found) Must(false, "floor");
                Keep(found->number);
                if (++floor == numbers.Size()) floor = 0;
            }
        }
    };
    Compare("4 GetInfo of 100 records, per record / H", {2.2, 1.7}, ours, bare, kRecords, kRecords);
}

void Texts(const CTestInstance& server, RecursiveMutex& mutex, const LimitTable& table,
           const std::vector<Item>& items) {
    const Queries16 texts(items, IsText);
    IOVServerInfo* object = server.operator->();
    const Work ours = Cycle(texts, [&](std::size_t at) {
        LPWSTR text = nullptr;
        if (object->GetItemString(texts[at], &text) != S_OK) Must(false, "GetItemString");
        Keep(text);
        CoTaskMemFree(text);
    });
    const Work floor = Cycle(texts, [&](std::size_t at) {
        FloorQuery(mutex, table, texts.View(at), [&](const LimitTable::Flat* found) {
            if (!found) Must(false, "floor");
            void* copy = std::malloc(44);
            std::memcpy(copy, table.KeyOf(*found), 42);
            Keep(copy);
            std::free(copy);
        });
    });
    Compare("2 GetItemString hit / (Q + allocate + copy + free)", {2.0, 1.5}, ours, floor);
}

void Sizes() {
    const auto small = MakeItems(1'000), large = MakeItems(100'000);
    CTestInstance few, many;
    Fill(few.Items(), small);
    Fill(many.Items(), large);
    const Queries16 fewNames(small, IsNumber), manyNames(large, IsNumber);
    Compare("3 GetItemLong hit, 100,000 items / 1,000 items", {3.0, 2.0}, AskLongs(many.operator->(), manyNames),
            AskLongs(few.operator->(), fewNames));
}

void Threads(const CTestInstance& server, const std::vector<Item>& items, RecursiveMutex& mutex,
             const LimitTable& table, const Queries16& numbers) {
    IOVServerInfo* one = server.operator->();
    Compare("6 GetItemLong, two threads, one object / locked floor of two threads", {1.5, 1.0},
            TwoThreads(AskLongs(one, numbers), AskLongs(one, numbers, 777)),
            TwoThreads(FloorLongs(mutex, table, numbers), FloorLongs(mutex, table, numbers, 777)), 1, 1, kThreaded);
    CTestInstance other;
    Fill(other.Items(), items);
    // Work per time: two threads do twice the operations of one.
    Compare("7 GetItemLong, two threads with an object each, throughput / one thread", {1.7, 1.9, Better::kHigher},
            TwoThreads(AskLongs(one, numbers), AskLongs(other.operator->(), numbers, 777)), AskLongs(one, numbers), 2,
            1, kThreaded);
}

}  // namespace

void Queries() {
    const auto items = MakeItems(kItems);
    const LimitTable table(items);
    RecursiveMutex mutex;
    CTestInstance server;
    Fill(server.Items(), items);
    const Queries16 numbers(items, IsNumber);

    Compare("1 GetItemLong hit / Q", {2.0, 1.5}, AskLongs(server.operator->(), numbers),
            FloorLongs(mutex, table, numbers));
    std::vector<std::string> paths, keys;
    for (std::uint32_t index : QueryOrder(items.size())) {
        if (items[index].isString) continue;
        std::string path = "/" + items[index].name;
        std::replace(path.begin(), path.end(), '\\', '/');
        paths.push_back(std::move(path));
        keys.push_back(SqlitePeer::Up(items[index].name));
    }
    {
        DconfPeer dconf(items, "bench-dconf");
        Compare("1 GetItemLong hit / dconf", {1.0, 1 / 2.3}, AskLongs(server.operator->(), numbers),
                Cycle(numbers, [&](std::size_t at) { dconf.ReadLong(paths[at].c_str()); }));
        Compare("6 GetItemLong, two threads, one object / dconf's shared client", {1.0, 1 / 2.5},
                TwoThreads(AskLongs(server.operator->(), numbers), AskLongs(server.operator->(), numbers, 777)),
                TwoThreads(Cycle(numbers, [&](std::size_t at) { dconf.ReadLong(paths[at].c_str()); }),
                           Cycle(
                               numbers, [&](std::size_t at) { dconf.ReadLong(paths[at].c_str()); }, 777)),
                1, 1, kThreaded);
    }
    {
        SqlitePeer sqlite(items, "bench-items.db");
        Compare("1 GetItemLong hit / SQLite", {1.0, 0.1}, AskLongs(server.operator->(), numbers),
                Cycle(numbers, [&](std::size_t at) { sqlite.ReadLong(keys[at]); }));
    }
    Texts(server, mutex, table, items);
    Sizes();
    Arrays(server, table, items);
    Threads(server, items, mutex, table, numbers);
}

}  // namespace bench
