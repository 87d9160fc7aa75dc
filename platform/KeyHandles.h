// Key handles: numbers for open keys, found to be none once they are closed, also after their place was used again.
//
// Shape    a place in one table of the process, which is never given back, and a serial number that changes with every
//          close. A place belongs to one hive for good, and that hive's lock guards it.
#pragma once

#include <atomic>
#include <cstdint>

#include "RegistryPath.h"

class CHive;
struct CKey;

struct CKeySlot {
    // Set once, before the place is used.
    std::atomic<CHive*> hive{nullptr};
    std::uint32_t index = 0;

    // Guarded by the hive's lock.
    std::uint32_t serial = 1;
    bool isOpen = false;
    bool isDead = false;            // its key went with a transaction that was taken back
    std::uint32_t incarnation = 0;  // of the hive that the key belongs to
    std::int64_t id = 0;
    REGSAM access = 0;
    CPathStart start;
    CKey* key = nullptr;  // where the key was found last, good in the view of this number
    std::uint64_t view = 0;
    CKeySlot* nextFree = nullptr;
};

// The handles of one hive. Guarded by its lock.
class CKeySlots {
  public:
    explicit CKeySlots(CHive& hive) noexcept : m_hive(hive) {}

    // Raises std::bad_alloc when the table is full.
    CKeySlot& Take();
    void Give(CKeySlot& slot) noexcept;
    // The keys from this one on do not exist any more.
    void KillFrom(std::int64_t id) noexcept;

    static HKEY Handle(const CKeySlot& slot) noexcept;
    // The place that the handle speaks of, whether it still does or not; null when there is none. Needs no lock.
    static CKeySlot* Find(HKEY key) noexcept;
    static bool IsFor(const CKeySlot& slot, HKEY key) noexcept { return slot.isOpen && Handle(slot) == key; }

  private:
    void Grow();

    CHive& m_hive;
    CKeySlot* m_free = nullptr;
};
