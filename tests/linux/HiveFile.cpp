#include "linux/HiveFile.h"

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <cstring>
#include <fstream>
#include <memory>

namespace hivefile {

namespace {

constexpr std::uint64_t kBegun = 8;  // behind the mark

std::string FirstText(const fs::path& database, const char* sql) {
    sqlite3* connection = nullptr;
    EXPECT_EQ(sqlite3_open_v2(database.c_str(), &connection, SQLITE_OPEN_READWRITE, nullptr), SQLITE_OK);
    const std::unique_ptr<sqlite3, int (*)(sqlite3*)> closer(connection, sqlite3_close);
    sqlite3_stmt* statement = nullptr;
    if (sqlite3_prepare_v2(connection, sql, -1, &statement, nullptr) != SQLITE_OK) return sqlite3_errmsg(connection);
    const std::unique_ptr<sqlite3_stmt, int (*)(sqlite3_stmt*)> finisher(statement, sqlite3_finalize);
    if (sqlite3_step(statement) != SQLITE_ROW) return sqlite3_errmsg(connection);
    return reinterpret_cast<const char*>(sqlite3_column_text(statement, 0));
}

}  // namespace

void Overwrite(const fs::path& file, std::uint64_t offset, const std::string& bytes) {
    std::fstream stream(file, std::ios::in | std::ios::out | std::ios::binary);
    stream.seekp(static_cast<std::streamoff>(offset));
    stream.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    stream.flush();
    EXPECT_TRUE(stream.good()) << file;
}

std::string Read(const fs::path& file, std::uint64_t offset, std::size_t size) {
    std::ifstream stream(file, std::ios::binary);
    stream.seekg(static_cast<std::streamoff>(offset));
    std::string bytes(size, '\0');
    stream.read(bytes.data(), static_cast<std::streamsize>(size));
    EXPECT_TRUE(stream.good()) << file;
    return bytes;
}

void TearIndex(const fs::path& root) {
    constexpr std::size_t kHeaderCopy = 48;
    Overwrite(Index(root), 0, std::string(kHeaderCopy, '\x11') + std::string(kHeaderCopy, '\x22'));
}

Counters ReadCounters(const fs::path& root) {
    const std::string bytes = Read(Generation(root), kBegun, sizeof(Counters));
    Counters counters;
    std::memcpy(&counters, bytes.data(), sizeof counters);
    return counters;
}

void WriteCounters(const fs::path& root, const Counters& counters) {
    Overwrite(Generation(root), kBegun, {reinterpret_cast<const char*>(&counters), sizeof counters});
}

std::string CheckIntegrity(const fs::path& database) {
    return FirstText(database, "PRAGMA integrity_check");
}

void Checkpoint(const fs::path& database) {
    EXPECT_EQ(FirstText(database, "PRAGMA wal_checkpoint(TRUNCATE)"), "0");
}

}  // namespace hivefile
