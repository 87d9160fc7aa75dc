// One connection to the database of a hive, and the statements that are run over it.
//
// Tables   key(parent, folded, id, name, boot) and value(key, folded, name, type, data), each in the order of its first
//          two columns. `folded` is the upcased name, high byte first, so that the order of bytes is that of units;
//          `name` is the name as it was given, low byte first, lone surrogates and all. The hive's root is the key 1.
//          `boot` names the boot that a volatile key belongs to: such a key is gone in every other one.
//          security(key, dacl) holds the access lists that keys were given; the first such list makes it.
// Ids      are given out once, by the table `counter`: a handle on a deleted key must not wake up on another.
// Threads  one at a time, as the owner's lock says.
// Fails    with the errors of HiveError.h.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>

#include "win/types.h"

struct sqlite3;
struct sqlite3_stmt;

inline constexpr std::int64_t kRootKey = 1;

enum class Sql {
    Begin,
    BeginWrite,
    Commit,
    Rollback,
    DataVersion,
    Identity,
    KeyById,
    Keys,
    Values,
    KeyByName,
    HasKeys,
    LastId,
    NextId,
    AddKey,
    RemoveKey,
    PutValue,
    RemoveValue,
    RemoveValues,
    StaleKeys,
    RemoveStaleValues,
    RemoveStaleKeys,
    HasSecurity,
    MakeSecurity,
    Security,
    PutSecurity,
    RemoveSecurity,
    RemoveStaleSecurity,
    Count
};

class CHiveDatabase {
  public:
    // What a connection is for. A stand-in reads a hive whose index cannot be used and cannot be mended by this
    // process: it keeps an index of its own, takes no locks, and sees the hive as it was when it first read. Where the
    // log is missing as well, as in a hive that was copied back, the database alone is read.
    enum class Use { Read, Write, StandIn, StandInWithoutLog };

    // Does not touch the file yet, so that most failures show at the first statement. A connection for writing on a
    // hive that may only be read is ERROR_ACCESS_DENIED (5).
    static DWORD Open(const std::string& path, Use use, std::unique_ptr<CHiveDatabase>& database);
    // Fills an empty file with an empty hive. No name of a hive may stand for the file yet.
    static DWORD Build(const std::string& path);

    ~CHiveDatabase();
    CHiveDatabase(const CHiveDatabase&) = delete;
    CHiveDatabase& operator=(const CHiveDatabase&) = delete;

    DWORD Run(Sql sql) noexcept;
    // Changes with every commit of another connection. Outside a transaction it costs one of its own.
    DWORD ReadDataVersion(std::int64_t& version) noexcept;
    // Whether there is a table `security`. Without it the statements about its rows cannot be run.
    DWORD HasSecurity(bool& has) noexcept;
    // Once a connection, within its first transaction: whether the file is a hive of this form, else 1015.
    DWORD Identify() noexcept;

    // How many there are in this process.
    static int Count() noexcept;

    // Ends a transaction that is open, if one is.
    void Rollback() noexcept;
    bool InTransaction() const noexcept;
    // Rows changed since the connection was opened.
    std::int64_t Changes() const noexcept;
    // What the index is to a process that could not mend it. Torn: a writer was killed while it wrote there.
    enum class Index { Usable, Missing, Torn };

    // Whether anything failed since ForgetFailure, and whether the index was the reason.
    bool HasFailed() const noexcept { return m_hasFailed; }
    Index IndexState() const noexcept { return m_index; }
    void ForgetFailure() noexcept {
        m_hasFailed = false;
        m_index = Index::Usable;
    }

    // What is left of a connection in the child of a fork: it belongs to the parent, and even closing it would harm
    // the hive. It stays in memory, untouched.
    static void Abandon(std::unique_ptr<CHiveDatabase>& database) noexcept { static_cast<void>(database.release()); }

  private:
    friend class CQuery;

    CHiveDatabase() noexcept;
    sqlite3_stmt* Statement(Sql sql, int& code) noexcept;
    DWORD Fail(int code) noexcept;

    sqlite3* m_database = nullptr;
    std::int64_t m_waitStarted = 0;  // of the wait for a lock that is under way, nanoseconds
    bool m_isIdentified = false;
    bool m_hasFailed = false;
    Index m_index = Index::Usable;
    sqlite3_stmt* m_statements[static_cast<std::size_t>(Sql::Count)] = {};
};

// One run of a statement. What is bound must stay until the run is over.
class CQuery {
  public:
    CQuery(CHiveDatabase& database, Sql sql) noexcept;
    ~CQuery();
    CQuery(const CQuery&) = delete;
    CQuery& operator=(const CQuery&) = delete;

    CQuery& Bind(std::int64_t number) noexcept;
    CQuery& Bind(std::span<const BYTE> bytes) noexcept;
    CQuery& BindNull() noexcept;

    // The next row; false at the end and on failure, which Error() tells apart.
    bool Row() noexcept;
    DWORD Error() const noexcept { return m_error; }
    // For statements without rows.
    DWORD Execute() noexcept;

    // Of the current row, columns counted from 0. Bytes are valid until the next row.
    std::int64_t Number(int column) const noexcept;
    std::span<const BYTE> Bytes(int column) const noexcept;
    bool IsNull(int column) const noexcept;

  private:
    void Check(int code) noexcept;

    CHiveDatabase& m_database;
    sqlite3_stmt* m_statement;
    int m_bound = 0;
    DWORD m_error = ERROR_SUCCESS;
};
