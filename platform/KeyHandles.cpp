#include "KeyHandles.h"

#include <mutex>
#include <new>

#include "Hive.h"

namespace {

constexpr std::uint32_t kChunk = 256;
constexpr std::uint32_t kChunks = 16384;
constexpr unsigned kSerialShift = 32;
// A place's number in a handle: real handles are multiples of 4, and null is none.
constexpr unsigned kIndexShift = 2;
// The predefined keys have all bits above set.
constexpr std::uint32_t kLastSerial = 0x7FFFFFFF;

std::atomic<CKeySlot*> g_chunks[kChunks];
std::mutex g_growLock;  // taken under a hive's lock
std::uint32_t g_used;   // guarded by g_growLock

}  // namespace

CKeySlot& CKeySlots::Take() {
    if (!m_free) Grow();
    CKeySlot& slot = *m_free;
    m_free = slot.nextFree;
    slot.isOpen = true;
    slot.isDead = false;
    slot.view = 0;
    return slot;
}

void CKeySlots::Give(CKeySlot& slot) noexcept {
    slot.isOpen = false;
    slot.serial = slot.serial == kLastSerial ? 1 : slot.serial + 1;
    slot.nextFree = m_free;
    m_free = &slot;
}

void CKeySlots::Grow() {
    CKeySlot* chunk = new CKeySlot[kChunk];
    const std::lock_guard lock(g_growLock);
    if (g_used == kChunks) {
        delete[] chunk;
        throw std::bad_alloc();
    }
    for (std::uint32_t i = kChunk; i-- > 0;) {
        chunk[i].hive.store(&m_hive, std::memory_order_relaxed);
        chunk[i].index = g_used * kChunk + i;
        chunk[i].nextFree = m_free;
        m_free = &chunk[i];
    }
    g_chunks[g_used++].store(chunk, std::memory_order_release);
}

void CKeySlots::KillFrom(std::int64_t id) noexcept {
    for (const std::atomic<CKeySlot*>& entry : g_chunks) {
        CKeySlot* chunk = entry.load(std::memory_order_acquire);
        if (!chunk) return;
        if (chunk->hive.load(std::memory_order_relaxed) != &m_hive) continue;
        for (CKeySlot* slot = chunk; slot != chunk + kChunk; ++slot) {
            if (slot->isOpen && slot->id >= id) slot->isDead = true;
        }
    }
}

HKEY CKeySlots::Handle(const CKeySlot& slot) noexcept {
    const std::uint64_t number = static_cast<std::uint64_t>(slot.serial) << kSerialShift |
                                 static_cast<std::uint64_t>(slot.index + 1) << kIndexShift;
    return reinterpret_cast<HKEY>(number);
}

CKeySlot* CKeySlots::Find(HKEY key) noexcept {
    const std::uint64_t number = reinterpret_cast<std::uint64_t>(key);
    const std::uint64_t index = (number & 0xFFFFFFFF) >> kIndexShift;
    if (index == 0 || index > std::uint64_t{kChunk} * kChunks) return nullptr;
    CKeySlot* chunk = g_chunks[(index - 1) / kChunk].load(std::memory_order_acquire);
    return chunk ? &chunk[(index - 1) % kChunk] : nullptr;
}
