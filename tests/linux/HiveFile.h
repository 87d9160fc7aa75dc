// The files of a hive, as somebody else's hands reach them.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>

namespace hivefile {

namespace fs = std::filesystem;

inline fs::path Machine(const fs::path& root) {
    return root / "machine.db";
}
inline fs::path Index(const fs::path& root) {
    return root / "machine.db-shm";
}
inline fs::path Log(const fs::path& root) {
    return root / "machine.db-wal";
}
inline fs::path Generation(const fs::path& root) {
    return root / "machine.db-gen";
}

// Writes over a part of a file, in place.
void Overwrite(const fs::path& file, std::uint64_t offset, const std::string& bytes);
std::string Read(const fs::path& file, std::uint64_t offset, std::size_t size);

// Both copies of the index's header, as a writer leaves them that is killed between the two. The process must not have
// the hive open itself: closing the file would drop its locks.
void TearIndex(const fs::path& root);

// The counters of the generation.
struct Counters {
    std::uint64_t begun = 0;
    std::uint64_t done = 0;
};
Counters ReadCounters(const fs::path& root);
void WriteCounters(const fs::path& root, const Counters& counters);

// "ok", or what SQLite finds wrong.
std::string CheckIntegrity(const fs::path& database);
// Everything from the log into the database, the log empty.
void Checkpoint(const fs::path& database);

}  // namespace hivefile
