// CPolicyMap: items by name, ordered for walking and indexed for finding.
//
// Two properties define it: names that differ only in case are one key, and insertion never replaces. The precedence of
// the policy sources rests on the second: what is loaded first stays.
//
// Shape    items lie in the order of their insertion; a table of hashes of folded names finds them, an order by folded
//          name walks them. The order is made when a walk first asks for it. A slot of the table tells both where the
//          key and where the item lies, so that finding waits for memory twice, not three times.
// Fails    a failed allocation raises std::bad_alloc and leaves the map as it was.
// Threads  none of its own: its owner's lock guards it, reads included, since a first walk makes the order.
#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

#include "Platform.h"
#include "store/PolicyNames.h"
#include "store/PolicyValue.h"

// One name in which two maps differ.
struct PolicyDifference {
    enum class Kind { kCreated, kDeleted, kChanged };
    Kind kind;
    std::string_view key;     // folded; orders the differences
    const CPolicyItem* item;  // the earlier item, or the new one where there was none
};

class CPolicyMap {
  public:
    // False, and the new item is gone, when the name is there already.
    bool Insert(CPolicyItem item);

    // Null when there is none. The item is good until the next insertion.
    const CPolicyItem* Find(wstr_view name) const;
    const CPolicyItem* Find(const CFoldedName& name) const noexcept;

    std::size_t Size() const noexcept { return m_entries.size(); }
    bool IsEmpty() const noexcept { return m_entries.empty(); }
    void Clear() noexcept;

    // The walk in key order, `rank` below Size(): the empty name first, then by upcased units.
    const CPolicyItem& At(std::size_t rank) const;

    // What became of `before`, in key order. The differences point into both maps.
    static std::vector<PolicyDifference> Differences(const CPolicyMap& before, const CPolicyMap& after);

  private:
    struct alignas(64) Entry {  // a cache line, with all that a hit reads
        CPolicyItem item;
        std::uint32_t keyStart;  // of the folded name in m_keys
        std::uint32_t keyLength;
    };
    struct Slot {
        std::uint32_t tag;    // the upper half of the hash
        std::uint32_t index;  // into m_entries; kFree when the slot is empty
        std::uint32_t keyStart;
        std::uint32_t keyLength;
    };
    static constexpr std::uint32_t kFree = UINT32_MAX;

    // An entry's or a slot's.
    template <class Holder>
    std::string_view KeyOf(const Holder& holder) const noexcept {
        return {m_keys.data() + holder.keyStart, holder.keyLength};
    }
    // The slot that holds the folded name, or the free one where it would go. The table must not be empty.
    std::size_t SlotFor(std::string_view key, std::uint64_t hash) const noexcept;
    Slot SlotOf(std::uint64_t hash, std::uint32_t index) const noexcept;
    // The entry with that key, tried first at the place where another map has it; null when there is none.
    const Entry* EntryLike(std::string_view key, std::size_t likelyIndex) const noexcept;
    void GrowTable();
    void EnsureOrder() const;

    std::vector<Entry> m_entries;
    std::vector<char> m_keys;                    // the folded names, one behind the other
    std::vector<Slot> m_slots;                   // open addressing, at most 7/8 full; its size is a power of two
    mutable std::vector<std::uint32_t> m_order;  // indices by key; shorter than m_entries until a walk completes it
};
