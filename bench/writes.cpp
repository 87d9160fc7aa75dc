// Writing one item with all that follows it, beside what it cannot do without: a durable row and a line in a log.
#include <fcntl.h>
#include <sqlite3.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "Items.h"
#include "Measure.h"
#include "module/RegistryKey.h"
#include "support/Recorder.h"
#include "support/StoreDoor.h"

namespace bench {
namespace {

void PutText(LPCWSTR path, LPCWSTR name, const std::string& text) {
    CRegistryKey key;
    Must(!key.Create(HKEY_LOCAL_MACHINE, path, nullptr, 0, KEY_ALL_ACCESS, nullptr, nullptr), "create");
    Must(!key.SetString(name, Wide(text).c_str()), "set");
}

// One row that is changed in a transaction of its own, on the disk when it returns; then one line at a file's end.
class Peer {
  public:
    explicit Peer(const std::filesystem::path& folder) : m_log((folder / "bench-peer.log").string()) {
        const std::string file = (folder / "bench-peer.db").string();
        for (const char* tail : {"", "-wal", "-shm"}) std::filesystem::remove(file + tail);
        Must(sqlite3_open(file.c_str(), &m_db) == SQLITE_OK, "sqlite open");
        Run("PRAGMA journal_mode=WAL");
        Run("PRAGMA synchronous=FULL");
        Run("CREATE TABLE val(name TEXT PRIMARY KEY, data) WITHOUT ROWID");
        Run("INSERT INTO val VALUES('X', 0)");
        sqlite3_prepare_v2(m_db, "UPDATE val SET data=? WHERE name='X'", -1, &m_update, nullptr);
    }
    ~Peer() {
        sqlite3_finalize(m_update);
        sqlite3_close(m_db);
    }
    void Write(DWORD number) {
        sqlite3_bind_int64(m_update, 1, number);
        Must(sqlite3_step(m_update) == SQLITE_DONE, "update");
        sqlite3_reset(m_update);
        const std::string line = "policy item 'X' was changed to '" + std::to_string(number) + "'\n";
        const int file = open(m_log.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0600);
        Must(write(file, line.data(), line.size()) == static_cast<ssize_t>(line.size()), "append");
        close(file);
    }

  private:
    void Run(const char* sql) { Must(sqlite3_exec(m_db, sql, nullptr, nullptr, nullptr) == SQLITE_OK, sql); }

    std::string m_log;
    sqlite3* m_db = nullptr;
    sqlite3_stmt* m_update = nullptr;
};

}  // namespace

void Writes(const char* programs) {
    const std::filesystem::path folder = std::filesystem::current_path();
    PutText(W("SOFTWARE\\Classes\\CLSID\\{337779A6-4848-428E-BE47-5C1C951794A7}\\InprocServer32"), nullptr,
            (std::filesystem::absolute(programs) / "OVEventLogger.so").string());
    PutText(W("SOFTWARE\\Orvantis\\EventLog"), W("AuditFile"), (folder / "bench-audit.log").string());
    std::filesystem::remove(folder / "bench-audit.log");
    CRecorder recorder;
    Peer peer(folder);
    CTestInstance server;
    DWORD cookie = 0;
    Must(server->RegisterNotification(W(""), &recorder, &cookie) == S_OK, "register");
    Must(ImpersonateSelf(SecurityImpersonation), "impersonate");
    DWORD number = 0, rows = 0;
    Compare(
        "a changed item with a subscriber and the file logger / one durable row and one line", {3, 3},
        [&](std::uint64_t times) {
            for (; times; --times) Must(server->SetItemLong(W("Bench\\X"), ++number) == S_OK, "set");
        },
        [&](std::uint64_t times) {
            for (; times; --times) peer.Write(++rows);
        });
    RevertToSelf();
    Must(recorder.Take().size() == number, "hear of every change");
    Must(std::filesystem::file_size(folder / "bench-audit.log") > number * 80, "log every change");
    server->UnregisterNotification(cookie);
}

}  // namespace bench
