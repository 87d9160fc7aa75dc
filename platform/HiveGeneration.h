// The generation of a hive: two counters in a small file that every process maps, so that a reader finds out with one
// load whether anything was written since it looked last.
//
// Shape    one page: 8 bytes of mark, `begun`, `done`, each 8 bytes in the order of this machine.
// Writers  raise `begun` to a number of their own before they commit, holding SQLite's write lock, and `done` to that
//          number behind the commit. By then the lock is free and the next writer may have begun: `done` is never set
//          to what `begun` is by then, and never lowered. A writer that is killed in between leaves the two unequal,
//          and the next one mends it.
// Readers  note the counters before they read the rows. What they read is true as long as `begun` still is what it was,
//          provided that the two were equal then: no commit can have been under way. Unequal, or no such file, and they
//          must ask SQLite each time.
// Order    a commit that a reader could see the effect of has raised `begun` before; a commit that `done` tells of is
//          seen by every transaction that begins later.
// Damage   a file that is too short or lacks the mark counts as missing. It is never cut in place, since processes have
//          it mapped; a writer puts a new one under its name, and those who map the old one look at the name from time
//          to time (CHive).
#pragma once

#include <cstdint>

#include "HiveFiles.h"

struct CGenerationPage {
    std::uint64_t mark;
    std::uint64_t begun;
    std::uint64_t done;
};

struct CGenerationCounters {
    std::uint64_t begun = 0;
    std::uint64_t done = 0;

    bool operator==(const CGenerationCounters&) const = default;
    // 0 stands for no generation.
    std::uint64_t Settled() const noexcept { return begun == done ? begun : 0; }
};

// A mapping of the file. Threads: as its owner locks it.
class CHiveGeneration {
  public:
    CHiveGeneration() noexcept = default;
    ~CHiveGeneration() { Unmap(); }
    CHiveGeneration(const CHiveGeneration&) = delete;
    CHiveGeneration& operator=(const CHiveGeneration&) = delete;

    // A new file for a hive, in place of the one that is there.
    static DWORD Put(const CHiveFiles& files);

    // False when there is no usable file.
    bool MapForReading(const CHiveFiles& files) noexcept;
    void Unmap() noexcept;
    const CFileIdentity& Identity() const noexcept { return m_identity; }

    // Zeroes without a file.
    CGenerationCounters Read() const noexcept;
    std::uint64_t Begun() const noexcept { return m_page ? Load(m_page->begun) : 0; }

    // The writer's side, under SQLite's write lock. Prepare maps the file that the name stands for now, making it if it
    // is missing or damaged; without it nothing may be committed.
    DWORD Prepare(const CHiveFiles& files);
    // Returns the number of the commit, which End takes when it is over, well or not.
    std::uint64_t Begin() noexcept;
    void End(std::uint64_t number) noexcept;

  private:
    static std::uint64_t Load(const std::uint64_t& counter) noexcept {
        return __atomic_load_n(&counter, __ATOMIC_ACQUIRE);
    }
    bool Map(const char* path, bool writable) noexcept;

    CGenerationPage* m_page = nullptr;
    CFileIdentity m_identity;
};
