#include "HiveDatabase.h"

#include <sqlite3.h>
#include <time.h>

#include <atomic>
#include <cerrno>
#include <iterator>

#include "HiveError.h"

namespace {

// Written into the header of every hive: "OvHv", and the form of its tables.
constexpr int kApplicationId = 0x4F764876;
constexpr int kFormat = 1;

constexpr const char* kSchema =
    "PRAGMA application_id=1333151862;"
    "PRAGMA user_version=1;"
    "CREATE TABLE key(parent INTEGER NOT NULL, folded BLOB NOT NULL, id INTEGER NOT NULL, name BLOB NOT NULL, boot "
    "BLOB,"
    " PRIMARY KEY(parent, folded)) WITHOUT ROWID;"
    "CREATE UNIQUE INDEX key_id ON key(id);"
    "CREATE INDEX key_boot ON key(boot) WHERE boot IS NOT NULL;"
    "CREATE TABLE value(key INTEGER NOT NULL, folded BLOB NOT NULL, name BLOB NOT NULL, type INTEGER NOT NULL,"
    " data BLOB NOT NULL, PRIMARY KEY(key, folded)) WITHOUT ROWID;"
    "CREATE TABLE counter(last INTEGER NOT NULL);"
    "INSERT INTO counter VALUES(1);"
    "INSERT INTO key VALUES(0, x'', 1, x'', NULL);";
static_assert(kApplicationId == 1333151862 && kFormat == 1);

// In the order of Sql.
constexpr const char* kStatements[] = {
    "BEGIN",
    "BEGIN IMMEDIATE",
    "COMMIT",
    "ROLLBACK",
    "PRAGMA data_version",
    "SELECT (SELECT application_id FROM pragma_application_id), (SELECT user_version FROM pragma_user_version)",
    "SELECT parent, boot IS NOT NULL FROM key WHERE id=?1",
    "SELECT id, name, boot IS NOT NULL FROM key WHERE parent=?1 AND (boot IS NULL OR boot=?2) ORDER BY folded",
    "SELECT name, type, data FROM value WHERE key=?1 ORDER BY folded",
    "SELECT id, boot IS NOT NULL FROM key WHERE parent=?1 AND folded=?2",
    "SELECT 1 FROM key WHERE parent=?1 LIMIT 1",
    "SELECT last FROM counter",
    "UPDATE counter SET last=last+1 RETURNING last",
    "INSERT INTO key(parent, folded, id, name, boot) VALUES(?1, ?2, ?3, ?4, ?5)",
    "DELETE FROM key WHERE id=?1",
    ("INSERT INTO value(key, folded, name, type, data) VALUES(?1, ?2, ?3, ?4, ?5)"
     " ON CONFLICT DO UPDATE SET type=excluded.type, data=excluded.data"),
    "DELETE FROM value WHERE key=?1 AND folded=?2",
    "DELETE FROM value WHERE key=?1",
    "SELECT 1 FROM key WHERE boot IS NOT NULL AND boot<>?1 LIMIT 1",
    "DELETE FROM value WHERE key IN (SELECT id FROM key WHERE boot IS NOT NULL AND boot<>?1)",
    "DELETE FROM key WHERE boot IS NOT NULL AND boot<>?1",
    "SELECT 1 FROM sqlite_master WHERE type='table' AND name='security'",
    "CREATE TABLE IF NOT EXISTS security(key INTEGER PRIMARY KEY, dacl BLOB NOT NULL)",
    "SELECT dacl FROM security WHERE key=?1",
    "INSERT INTO security(key, dacl) VALUES(?1, ?2) ON CONFLICT DO UPDATE SET dacl=excluded.dacl",
    "DELETE FROM security WHERE key=?1",
    "DELETE FROM security WHERE key IN (SELECT id FROM key WHERE boot IS NOT NULL AND boot<>?1)",
};
static_assert(std::size(kStatements) == static_cast<std::size_t>(Sql::Count));

// A writer's turn comes within microseconds as a rule, and behind an import of thousands of values within a second.
constexpr std::int64_t kPatience = 10'000'000'000;
constexpr long kFirstPause = 100'000;
constexpr long kLongestPause = 5'000'000;

std::atomic<int> g_connections{0};

std::int64_t Nanoseconds() noexcept {
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<std::int64_t>(now.tv_sec) * 1'000'000'000 + now.tv_nsec;
}

// SQLite's own waits grow to 100 ms, much longer than a writer holds the lock.
int WaitForLock(void* started, int waits) noexcept {
    std::int64_t& start = *static_cast<std::int64_t*>(started);
    if (waits == 0) start = Nanoseconds();
    if (Nanoseconds() - start > kPatience) return 0;
    long pause = kFirstPause;
    for (int i = 0; i < waits && pause < kLongestPause; ++i) pause *= 2;
    const timespec time = {0, pause < kLongestPause ? pause : kLongestPause};
    nanosleep(&time, nullptr);
    return 1;
}

// The log is written back into the database and emptied once it is this long, in pages.
constexpr int kLongLog = 100;

// Emptied, and not only written back: what is left in the log, the next process to open the hive reads through, and
// takes for something that was never written back. Processes that write once each would make it longer for ever.
// Whoever reads at this moment is not waited for; a later commit tries again.
int AfterCommit(void* context, sqlite3* database, const char* name, int pages) noexcept {
    if (pages < kLongLog) return SQLITE_OK;
    sqlite3_busy_handler(database, nullptr, nullptr);
    sqlite3_wal_checkpoint_v2(database, name, SQLITE_CHECKPOINT_TRUNCATE, nullptr, nullptr);
    sqlite3_busy_handler(database, WaitForLock, context);
    return SQLITE_OK;
}

DWORD Execute(sqlite3* database, const char* sql) noexcept {
    const int code = sqlite3_exec(database, sql, nullptr, nullptr, nullptr);
    return code == SQLITE_OK ? ERROR_SUCCESS : HiveErrorFromSqlite(code, sqlite3_system_errno(database));
}

CHiveDatabase::Index IndexBehind(int code) noexcept {
    if (code == SQLITE_READONLY_RECOVERY) return CHiveDatabase::Index::Torn;
    const bool missing = (code & 0xFF) == SQLITE_READONLY || (code & 0xFF) == SQLITE_CANTOPEN;
    return missing ? CHiveDatabase::Index::Missing : CHiveDatabase::Index::Usable;
}

// The name of a file for SQLite that nobody writes to.
std::string Immutable(const std::string& path) {
    constexpr char kDigits[] = "0123456789ABCDEF";
    std::string name = "file:";
    for (const char byte : path) {
        const auto code = static_cast<unsigned char>(byte);
        if (byte == '%' || byte == '?' || byte == '#') {
            name += '%';
            name += kDigits[code >> 4];
            name += kDigits[code & 15];
        } else {
            name += byte;
        }
    }
    return name + "?immutable=1";
}

}  // namespace

DWORD CHiveDatabase::Open(const std::string& path, Use use, std::unique_ptr<CHiveDatabase>& result) {
    std::unique_ptr<CHiveDatabase> database(new CHiveDatabase);
    const bool withoutLog = use == Use::StandInWithoutLog;
    const int flags = (use == Use::Write ? SQLITE_OPEN_READWRITE : SQLITE_OPEN_READONLY) | SQLITE_OPEN_NOMUTEX |
                      SQLITE_OPEN_EXRESCODE | (withoutLog ? SQLITE_OPEN_URI : 0);
    const char* const locking = use == Use::StandIn || withoutLog ? "unix-none" : nullptr;
    const std::string name = withoutLog ? Immutable(path) : path;
    const int code = sqlite3_open_v2(name.c_str(), &database->m_database, flags, locking);
    if (code != SQLITE_OK) return database->m_database ? database->Fail(code) : HiveErrorFromSqlite(code, 0);
    sqlite3_busy_handler(database->m_database, WaitForLock, &database->m_waitStarted);
    int keepLog = 1;
    sqlite3_file_control(database->m_database, "main", SQLITE_FCNTL_PERSIST_WAL, &keepLog);
    if (use == Use::Write) {
        // Closing is no time to wait for the disk; who goes on reading needs no checkpoint.
        sqlite3_db_config(database->m_database, SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);
        if (sqlite3_db_readonly(database->m_database, "main") == 1) return ERROR_ACCESS_DENIED;
        if (const DWORD error = Execute(database->m_database, "PRAGMA synchronous=NORMAL")) return error;
        sqlite3_wal_hook(database->m_database, AfterCommit, &database->m_waitStarted);
    }
    // Alone with the file, SQLite keeps the index in its own memory.
    if (use == Use::StandIn) {
        if (const DWORD error = Execute(database->m_database, "PRAGMA locking_mode=EXCLUSIVE")) return error;
    }
    result = std::move(database);
    return ERROR_SUCCESS;
}

DWORD CHiveDatabase::Build(const std::string& path) {
    sqlite3* database = nullptr;
    int code = sqlite3_open_v2(path.c_str(), &database,
                               SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX | SQLITE_OPEN_EXRESCODE, nullptr);
    DWORD error = code == SQLITE_OK ? ERROR_SUCCESS : HiveErrorFromSqlite(code, sqlite3_system_errno(database));
    // Nobody else knows the file, and whoever made it flushes it.
    if (!error) error = Execute(database, "PRAGMA synchronous=OFF; PRAGMA journal_mode=MEMORY; BEGIN;");
    if (!error) error = Execute(database, kSchema);
    if (!error) error = Execute(database, "COMMIT; PRAGMA journal_mode=WAL;");
    code = sqlite3_close(database);
    if (!error && code != SQLITE_OK) error = HiveErrorFromSqlite(code, 0);
    return error;
}

CHiveDatabase::CHiveDatabase() noexcept {
    ++g_connections;
}

CHiveDatabase::~CHiveDatabase() {
    for (sqlite3_stmt* statement : m_statements) sqlite3_finalize(statement);
    sqlite3_close(m_database);
    --g_connections;
}

int CHiveDatabase::Count() noexcept {
    return g_connections;
}

DWORD CHiveDatabase::Fail(int code) noexcept {
    m_hasFailed = true;
    m_index = IndexBehind(code);
    // SQLite keeps no number for a commit that fails; calls that succeed behind the one that failed leave it in errno.
    const int kept = sqlite3_system_errno(m_database);
    return HiveErrorFromSqlite(code, kept ? kept : errno);
}

sqlite3_stmt* CHiveDatabase::Statement(Sql sql, int& code) noexcept {
    const auto index = static_cast<std::size_t>(sql);
    sqlite3_stmt*& statement = m_statements[index];
    code = SQLITE_OK;
    if (!statement)
        code = sqlite3_prepare_v3(m_database, kStatements[index], -1, SQLITE_PREPARE_PERSISTENT, &statement, nullptr);
    return statement;
}

DWORD CHiveDatabase::Run(Sql sql) noexcept {
    return CQuery(*this, sql).Execute();
}

DWORD CHiveDatabase::ReadDataVersion(std::int64_t& version) noexcept {
    CQuery query(*this, Sql::DataVersion);
    if (query.Row()) version = query.Number(0);
    return query.Error();
}

DWORD CHiveDatabase::Identify() noexcept {
    if (m_isIdentified) return ERROR_SUCCESS;
    CQuery query(*this, Sql::Identity);
    if (!query.Row()) return query.Error() ? query.Error() : static_cast<DWORD>(ERROR_REGISTRY_CORRUPT);
    if (query.Number(0) != kApplicationId || query.Number(1) != kFormat) return ERROR_REGISTRY_CORRUPT;
    m_isIdentified = true;
    return ERROR_SUCCESS;
}

DWORD CHiveDatabase::HasSecurity(bool& has) noexcept {
    CQuery query(*this, Sql::HasSecurity);
    has = query.Row();
    return query.Error();
}

void CHiveDatabase::Rollback() noexcept {
    if (InTransaction()) Run(Sql::Rollback);
}

bool CHiveDatabase::InTransaction() const noexcept {
    return sqlite3_get_autocommit(m_database) == 0;
}

std::int64_t CHiveDatabase::Changes() const noexcept {
    return sqlite3_total_changes64(m_database);
}

CQuery::CQuery(CHiveDatabase& database, Sql sql) noexcept : m_database(database) {
    int code;
    m_statement = database.Statement(sql, code);
    Check(code);
}

CQuery::~CQuery() {
    sqlite3_reset(m_statement);
}

void CQuery::Check(int code) noexcept {
    if (code != SQLITE_OK && !m_error) m_error = m_database.Fail(code);
}

CQuery& CQuery::Bind(std::int64_t number) noexcept {
    if (!m_error) Check(sqlite3_bind_int64(m_statement, ++m_bound, number));
    return *this;
}

CQuery& CQuery::Bind(std::span<const BYTE> bytes) noexcept {
    // Null would stand for NULL, and no bytes at all are a value too.
    const void* data = bytes.empty() ? "" : static_cast<const void*>(bytes.data());
    if (!m_error) Check(sqlite3_bind_blob64(m_statement, ++m_bound, data, bytes.size(), SQLITE_STATIC));
    return *this;
}

CQuery& CQuery::BindNull() noexcept {
    if (!m_error) Check(sqlite3_bind_null(m_statement, ++m_bound));
    return *this;
}

bool CQuery::Row() noexcept {
    if (m_error) return false;
    errno = 0;
    const int code = sqlite3_step(m_statement);
    if (code == SQLITE_ROW) return true;
    if (code != SQLITE_DONE) Check(code);
    return false;
}

DWORD CQuery::Execute() noexcept {
    while (Row()) {
    }
    return m_error;
}

std::int64_t CQuery::Number(int column) const noexcept {
    return sqlite3_column_int64(m_statement, column);
}

std::span<const BYTE> CQuery::Bytes(int column) const noexcept {
    const auto* data = static_cast<const BYTE*>(sqlite3_column_blob(m_statement, column));
    return {data, data ? static_cast<std::size_t>(sqlite3_column_bytes(m_statement, column)) : 0};
}

bool CQuery::IsNull(int column) const noexcept {
    return sqlite3_column_type(m_statement, column) == SQLITE_NULL;
}
