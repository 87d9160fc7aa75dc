// The floor: what a query must do at the least, and nothing else.
//
//   H  fold the caller's name, find it in one open-addressing table of folded keys
//   Q  H, two nested pairs of a recursive lock, four coarse clock reads
#pragma once

#include <pthread.h>
#include <time.h>

#include <cstring>
#include <string_view>
#include <vector>

#include "Items.h"

namespace bench {

using View16 = std::u16string_view;

// Upcases ASCII in vectors; the names that are measured hold nothing else.
inline std::size_t FoldAscii(View16 name, char16_t* __restrict out) {
    const char16_t* __restrict in = name.data();
    const std::size_t size = name.size();
    std::uint16_t all = 0;
    for (std::size_t i = 0; i < size; ++i) {
        const auto unit = static_cast<std::uint16_t>(in[i]);
        all = static_cast<std::uint16_t>(all | unit);
        out[i] = static_cast<char16_t>(unit - (static_cast<std::uint16_t>(unit - 'a') < 26 ? 32 : 0));
    }
    return all < 0x80 ? size : 0;
}

inline std::uint64_t Mix(std::uint64_t a, std::uint64_t b) {
    __extension__ using Wide128 = unsigned __int128;
    const Wide128 product = static_cast<Wide128>(a) * b;
    return static_cast<std::uint64_t>(product) ^ static_cast<std::uint64_t>(product >> 64);
}

inline std::uint64_t Hash16(View16 text) {
    const char* p = reinterpret_cast<const char*>(text.data());
    std::size_t n = text.size() * 2;
    std::uint64_t hash = n * 0x9E3779B97F4A7C15ull, a, b;
    while (n > 16) {
        std::memcpy(&a, p, 8);
        std::memcpy(&b, p + 8, 8);
        hash = Mix(a ^ 0xA0761D6478BD642Full, b ^ hash);
        p += 16;
        n -= 16;
    }
    a = b = 0;
    if (n >= 8) {
        std::memcpy(&a, p, 8);
        std::memcpy(&b, p + n - 8, 8);
    } else if (n) {
        std::memcpy(&a, p, n);
    }
    return Mix(a ^ 0xE7037ED1A0B428DBull, b ^ hash);
}

class LimitTable {
  public:
    struct Flat {
        std::uint32_t start, length, type, number;
    };

    explicit LimitTable(const std::vector<Item>& items) {
        std::size_t capacity = 16;
        while (capacity < items.size() * 2) capacity *= 2;
        m_slots.assign(capacity, {0, UINT32_MAX});
        m_mask = capacity - 1;
        char16_t folded[256];
        for (const Item& item : items) {
            const std::size_t size = FoldAscii(Wide(item.name), folded);
            const std::uint64_t hash = Hash16({folded, size});
            m_items.push_back({static_cast<std::uint32_t>(m_arena.size()), static_cast<std::uint32_t>(size),
                               item.isString ? 2u : 4u, item.number});
            m_arena.insert(m_arena.end(), folded, folded + size);
            std::uint64_t at = hash & m_mask;
            while (m_slots[at].index != UINT32_MAX) at = (at + 1) & m_mask;
            m_slots[at] = {static_cast<std::uint32_t>(hash >> 32), static_cast<std::uint32_t>(m_items.size() - 1)};
        }
    }

    const Flat* Find(View16 key) const {
        const std::uint64_t hash = Hash16(key);
        for (std::uint64_t at = hash & m_mask;; at = (at + 1) & m_mask) {
            const Slot slot = m_slots[at];
            if (slot.index == UINT32_MAX) return nullptr;
            if (slot.tag != static_cast<std::uint32_t>(hash >> 32)) continue;
            const Flat& flat = m_items[slot.index];
            if (flat.length == key.size() && !std::memcmp(&m_arena[flat.start], key.data(), key.size() * 2)) {
                return &flat;
            }
        }
    }

    const char16_t* KeyOf(const Flat& flat) const { return &m_arena[flat.start]; }

  private:
    struct Slot {
        std::uint32_t tag, index;
    };
    std::vector<Slot> m_slots;
    std::vector<Flat> m_items;
    std::vector<char16_t> m_arena;
    std::uint64_t m_mask = 0;
};

class RecursiveMutex {
  public:
    RecursiveMutex() {
        pthread_mutexattr_t attributes;
        pthread_mutexattr_init(&attributes);
        pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE);
        pthread_mutex_init(&m_mutex, &attributes);
    }
    void Lock() { pthread_mutex_lock(&m_mutex); }
    void Unlock() { pthread_mutex_unlock(&m_mutex); }

  private:
    pthread_mutex_t m_mutex;
};

inline std::uint64_t CoarseMilliseconds() {
    timespec now;
    clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
    return static_cast<std::uint64_t>(now.tv_sec) * 1000 + static_cast<std::uint64_t>(now.tv_nsec) / 1000000;
}

// H for one name.
inline const LimitTable::Flat* FloorFind(const LimitTable& table, View16 name) {
    char16_t folded[256];
    return table.Find({folded, FoldAscii(name, folded)});
}

// Q around `work`, which gets what H found.
template <class Work>
inline void FloorQuery(RecursiveMutex& mutex, const LimitTable& table, View16 name, Work work) {
    static volatile std::uint64_t next = UINT64_MAX;
    static volatile bool on = false;
    const auto enter = [] {
        if (CoarseMilliseconds() > next) on = true;
    };
    mutex.Lock();
    enter();
    mutex.Lock();
    enter();
    mutex.Unlock();
    enter();
    enter();
    work(FloorFind(table, name));
    mutex.Unlock();
}

}  // namespace bench
