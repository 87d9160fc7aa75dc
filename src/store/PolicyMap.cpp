#include "store/PolicyMap.h"

#include <algorithm>
#include <new>
#include <numeric>
#include <utility>

namespace {

constexpr std::size_t kFirstTable = 16;

constexpr std::uint32_t TagOf(std::uint64_t hash) noexcept {
    return static_cast<std::uint32_t>(hash >> 32);
}

}  // namespace

bool CPolicyMap::Insert(CPolicyItem item) {
    const CFoldedName name(item.name);
    if ((m_entries.size() + 1) * 8 > m_slots.size() * 7) GrowTable();
    const std::size_t slot = SlotFor(name.Key(), name.Hash());
    if (m_slots[slot].index != kFree) return false;
    const std::size_t start = m_keys.size();
    if (start + name.Key().size() > UINT32_MAX) throw std::bad_alloc();
    m_keys.insert(m_keys.end(), name.Key().begin(), name.Key().end());
    try {
        m_entries.push_back(
            {std::move(item), static_cast<std::uint32_t>(start), static_cast<std::uint32_t>(name.Key().size())});
    } catch (...) {
        m_keys.resize(start);  // the key of an entry that is not there would only be lost room
        throw;
    }
    m_slots[slot] = SlotOf(name.Hash(), static_cast<std::uint32_t>(m_entries.size() - 1));
    return true;
}

const CPolicyItem* CPolicyMap::Find(wstr_view name) const {
    return Find(CFoldedName(name));
}

const CPolicyItem* CPolicyMap::Find(const CFoldedName& name) const noexcept {
    if (m_slots.empty()) return nullptr;
    const std::uint32_t index = m_slots[SlotFor(name.Key(), name.Hash())].index;
    return index == kFree ? nullptr : &m_entries[index].item;
}

void CPolicyMap::Clear() noexcept {
    m_entries.clear();
    m_keys.clear();
    m_slots.clear();
    m_order.clear();
}

const CPolicyItem& CPolicyMap::At(std::size_t rank) const {
    EnsureOrder();
    return m_entries[m_order[rank]].item;
}

std::size_t CPolicyMap::SlotFor(std::string_view key, std::uint64_t hash) const noexcept {
    const std::size_t mask = m_slots.size() - 1;
    const std::uint32_t tag = TagOf(hash);
    for (std::size_t at = static_cast<std::size_t>(hash) & mask;; at = (at + 1) & mask) {
        const Slot slot = m_slots[at];
        if (slot.index == kFree) return at;
        if (slot.tag == tag && KeyOf(slot) == key) return at;
    }
}

const CPolicyMap::Entry* CPolicyMap::EntryLike(std::string_view key, std::size_t likelyIndex) const noexcept {
    if (likelyIndex < m_entries.size() && KeyOf(m_entries[likelyIndex]) == key) return &m_entries[likelyIndex];
    if (m_slots.empty()) return nullptr;
    const std::uint32_t index = m_slots[SlotFor(key, CFoldedName::HashOfKey(key))].index;
    return index == kFree ? nullptr : &m_entries[index];
}

// A merge of both in key order would first have to bring both into that order. Here only the differences are sorted,
// and a store that did not change is compared in the order in which the sources delivered it, both times the same.
std::vector<PolicyDifference> CPolicyMap::Differences(const CPolicyMap& before, const CPolicyMap& after) {
    using Kind = PolicyDifference::Kind;
    std::vector<PolicyDifference> found;
    std::size_t common = 0;
    for (std::size_t i = 0; i < after.m_entries.size(); ++i) {
        const Entry& now = after.m_entries[i];
        const std::string_view key = after.KeyOf(now);
        const Entry* then = before.EntryLike(key, i);
        if (!then) {
            found.push_back({Kind::kCreated, key, &now.item});
            continue;
        }
        ++common;
        if (!ItemsEqual(then->item, now.item)) found.push_back({Kind::kChanged, key, &then->item});
    }
    for (std::size_t i = 0; common < before.m_entries.size() && i < before.m_entries.size(); ++i) {
        const Entry& then = before.m_entries[i];
        const std::string_view key = before.KeyOf(then);
        if (!after.EntryLike(key, i)) found.push_back({Kind::kDeleted, key, &then.item});
    }
    std::sort(found.begin(), found.end(), [](const auto& a, const auto& b) { return a.key < b.key; });
    return found;
}

CPolicyMap::Slot CPolicyMap::SlotOf(std::uint64_t hash, std::uint32_t index) const noexcept {
    return {TagOf(hash), index, m_entries[index].keyStart, m_entries[index].keyLength};
}

void CPolicyMap::GrowTable() {
    std::vector<Slot> slots(m_slots.empty() ? kFirstTable : m_slots.size() * 2, Slot{0, kFree, 0, 0});
    const std::size_t mask = slots.size() - 1;
    for (std::uint32_t index = 0; index < m_entries.size(); ++index) {
        const std::uint64_t hash = CFoldedName::HashOfKey(KeyOf(m_entries[index]));
        std::size_t at = static_cast<std::size_t>(hash) & mask;
        while (slots[at].index != kFree) at = (at + 1) & mask;
        slots[at] = SlotOf(hash, index);
    }
    m_slots.swap(slots);
}

void CPolicyMap::EnsureOrder() const {
    if (m_order.size() == m_entries.size()) return;
    std::vector<std::uint32_t> order(m_entries.size());
    std::iota(order.begin(), order.end(), 0u);
    const auto before = [this](std::uint32_t a, std::uint32_t b) { return KeyOf(m_entries[a]) < KeyOf(m_entries[b]); };
    // A source often delivers its items in key order already.
    if (!std::is_sorted(order.begin(), order.end(), before)) std::sort(order.begin(), order.end(), before);
    m_order.swap(order);
}
