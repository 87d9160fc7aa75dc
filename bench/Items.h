// The items that are asked for, the same for every subject and every peer.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

namespace bench {

struct Rng {
    std::uint64_t state;
    explicit Rng(std::uint64_t seed) : state(seed * 0x9E3779B97F4A7C15ull + 1) {}
    std::uint64_t Next() {
        state ^= state << 13;
        state ^= state >> 7;
        state ^= state << 17;
        return state;
    }
    std::uint64_t Below(std::uint64_t n) { return Next() % n; }
};

struct Item {
    std::string name;  // ASCII, a backslash path in mixed case
    bool isString;
    std::uint32_t number;
    std::string text;
};

// Distinct items: three of four "CommonSettings\{GUID}\Setting000123" (67 characters), the others about 36 long. `miss`
// gives names of the same shape and with the same beginnings that are not in the set.
inline std::vector<Item> MakeItems(std::size_t count, bool miss = false) {
    std::vector<Item> items;
    items.reserve(count);
    Rng kinds(7), guids(11);
    char guid[64] = "", text[160];
    for (std::size_t i = 0; i < count; ++i) {
        if (i % 40 == 0) {
            const unsigned a = static_cast<unsigned>(guids.Next()), b = static_cast<unsigned>(guids.Next() & 0xFFFF);
            const unsigned c = static_cast<unsigned>(guids.Next() & 0xFFFF),
                           d = static_cast<unsigned>(guids.Next() & 0xFFFF);
            std::snprintf(guid, sizeof guid, "{%08X-%04X-%04X-%04X-%012llX}", a, b, c, d,
                          static_cast<unsigned long long>(guids.Next() & 0xFFFFFFFFFFFFull));
        }
        const char* leaf = miss ? "Setting_" : "Setting";
        const auto number = static_cast<unsigned>(i);
        if (i % 4 == 3) {
            std::snprintf(text, sizeof text, "CommonSettings\\Area%04u\\%s%06u", number / 40, leaf, number);
        } else {
            std::snprintf(text, sizeof text, "CommonSettings\\%s\\%s%06u", guid, leaf, number);
        }
        Item item{text, (kinds.Next() & 3) == 0, static_cast<std::uint32_t>(kinds.Next()), {}};
        if (item.isString) {
            std::snprintf(text, sizeof text, "value %x of %u", item.number, number);
            item.text = text;
        }
        items.push_back(std::move(item));
    }
    return items;
}

// The items with other numbers.
inline std::vector<Item> Vary(std::vector<Item> items, std::uint32_t by) {
    for (Item& item : items) item.number += by;
    return items;
}

inline std::u16string Wide(const std::string& text) {
    return {text.begin(), text.end()};
}

// The queries cycled through: a random order of indices below `count`.
inline std::vector<std::uint32_t> QueryOrder(std::size_t count) {
    std::vector<std::uint32_t> order(std::max<std::size_t>(65536, std::min<std::size_t>(count, 1u << 19)));
    Rng rng(42);
    for (std::uint32_t& index : order) index = static_cast<std::uint32_t>(rng.Below(count));
    return order;
}

// The texts of queries in one block, in the order in which they are asked. Callers spell names in another case than the
// store does, so some letters are raised.
class Queries16 {
  public:
    template <class Filter>
    Queries16(const std::vector<Item>& items, Filter wanted) {
        for (std::uint32_t index : QueryOrder(items.size())) {
            if (!wanted(items[index])) continue;
            m_starts.push_back(m_block.size());
            for (char c : items[index].name) {
                const bool raise = m_block.size() % 3 == 0 && c >= 'a' && c <= 'z';
                m_block.push_back(static_cast<char16_t>(raise ? c - 32 : c));
            }
            m_block.push_back(0);
        }
    }
    std::size_t Size() const { return m_starts.size(); }
    const char16_t* operator[](std::size_t at) const { return m_block.data() + m_starts[at]; }
    std::u16string_view View(std::size_t at) const {
        const std::size_t end = at + 1 < m_starts.size() ? m_starts[at + 1] : m_block.size();
        return {m_block.data() + m_starts[at], end - m_starts[at] - 1};
    }

  private:
    std::vector<char16_t> m_block;
    std::vector<std::size_t> m_starts;
};

}  // namespace bench
