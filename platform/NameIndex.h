// The keys of a key, or its values: in the order of their names for walking, and found by name.
//
// An index on folded names is built at the first search, so that a mere enumeration never pays for it.
#pragma once

#include <algorithm>
#include <vector>

#include "RegistryName.h"

struct CNamed {
    const char16_t* name = nullptr;  // as it was given at creation
    std::uint32_t length = 0;
    std::uint32_t hash = 0;  // of the folded name, once the record is in an index

    std::u16string_view Name() const noexcept { return {name, length}; }
};

// Holds no record; they outlive it. Threads: as its owner locks it. Fails with std::bad_alloc and then is as it was.
template <class Record>
class CNameIndex {
  public:
    std::size_t Size() const noexcept { return m_ordered.size(); }
    Record* At(std::size_t index) const noexcept { return m_ordered[index]; }
    auto begin() const noexcept { return m_ordered.begin(); }
    auto end() const noexcept { return m_ordered.end(); }

    // Takes the place of what was there; sorted by name.
    void Adopt(std::vector<Record*>&& ordered) noexcept {
        m_ordered = std::move(ordered);
        m_slots.clear();
    }

    Record* Find(const CSoughtName& name) {
        if (m_ordered.empty()) return nullptr;
        if (m_slots.empty()) Build();
        for (std::size_t at = name.Hash() & Mask();; at = (at + 1) & Mask()) {
            const Slot& slot = m_slots[at];
            if (!slot.record) return nullptr;
            if (slot.hash == name.Hash() && SameName(slot.record->Name(), name.Name())) return slot.record;
        }
    }

    void Insert(Record* record) {
        record->hash = HashName(record->Name());
        m_ordered.insert(Place(record), record);
        if (m_slots.empty()) return;
        if (m_ordered.size() * 2 > m_slots.size()) {
            m_slots.clear();
        } else {
            Enter(record);
        }
    }

    void Erase(Record* record) noexcept {
        m_ordered.erase(Place(record));
        if (!m_slots.empty()) Leave(record);
    }

  private:
    struct Slot {
        Record* record = nullptr;
        std::uint32_t hash = 0;
    };

    auto Place(const Record* record) const noexcept {
        const auto before = [](const Record* a, const Record* b) {
            return std::is_lt(CompareNames(a->Name(), b->Name()));
        };
        return std::lower_bound(m_ordered.begin(), m_ordered.end(), record, before);
    }

    std::size_t Mask() const noexcept { return m_slots.size() - 1; }

    void Build() {
        std::size_t size = 8;
        while (size < m_ordered.size() * 3) size *= 2;
        m_slots.resize(size);
        for (Record* record : m_ordered) {
            record->hash = HashName(record->Name());
            Enter(record);
        }
    }

    void Enter(Record* record) noexcept {
        std::size_t at = record->hash & Mask();
        while (m_slots[at].record) at = (at + 1) & Mask();
        m_slots[at] = {record, record->hash};
    }

    // Closes the gap, so that a search still ends at the first empty slot.
    void Leave(Record* record) noexcept {
        std::size_t gap = record->hash & Mask();
        while (m_slots[gap].record != record) gap = (gap + 1) & Mask();
        for (std::size_t at = (gap + 1) & Mask(); m_slots[at].record; at = (at + 1) & Mask()) {
            const std::size_t home = m_slots[at].hash & Mask();
            if (((at - home) & Mask()) < ((at - gap) & Mask())) continue;
            m_slots[gap] = m_slots[at];
            gap = at;
        }
        m_slots[gap] = {};
    }

    std::vector<Record*> m_ordered;
    std::vector<Slot> m_slots;  // a power of two, never more than half full
};
