#include "HiveView.h"

#include <algorithm>
#include <atomic>
#include <bit>
#include <cstring>
#include <utility>

#include "BootId.h"

static_assert(std::endian::native == std::endian::little, "names are stored as 16-bit units, low byte first");

namespace {

constexpr std::size_t kSmallestBlock = 4096;
constexpr std::size_t kLargestBlock = std::size_t{1} << 20;
constexpr std::size_t kAlignment = 8;

bool IsText(std::span<const BYTE> bytes, std::size_t mostUnits) noexcept {
    return bytes.size() % sizeof(char16_t) == 0 && bytes.size() / sizeof(char16_t) <= mostUnits;
}

std::size_t SizeOf(const CValue& value) noexcept {
    return sizeof value + value.length * sizeof(char16_t) + value.room;
}

void PutName(CNamed& record, const void* name, std::size_t length, void* room) noexcept {
    if (length) std::memcpy(room, name, length * sizeof(char16_t));
    record.name = static_cast<const char16_t*>(room);
    record.length = static_cast<std::uint32_t>(length);
}

}  // namespace

void* CArena::Take(std::size_t size) {
    size = (size + kAlignment - 1) / kAlignment * kAlignment;
    if (size > m_left) {
        // Blocks grow with the view; a small key costs one page.
        std::size_t block = std::clamp(m_used, kSmallestBlock, kLargestBlock);
        if (block < size) block = size;
        m_blocks.emplace_back(new std::byte[block]);
        m_next = m_blocks.back().get();
        m_left = block;
    }
    void* taken = m_next;
    m_next += size;
    m_left -= size;
    m_used += size;
    return taken;
}

void CArena::Reset() noexcept {
    m_blocks.clear();
    m_next = nullptr;
    m_left = 0;
    m_used = 0;
}

void CHiveView::Reset() noexcept {
    static std::atomic<std::uint64_t> last{0};
    m_number = ++last;
    m_keyById.clear();
    m_security.clear();
    m_keys.clear();
    m_arena.Reset();
    m_wasted = 0;
    m_isEmpty = false;
    m_root = nullptr;
}

void CHiveView::BecomeEmpty() {
    if (m_isEmpty) return;
    Reset();
    CKey& root = Enter(kRootKey);
    root.hasKeys = root.hasValues = true;
    m_isEmpty = true;
}

void CHiveView::Swap(CHiveView& other) noexcept {
    std::swap(m_number, other.m_number);
    std::swap(m_arena, other.m_arena);
    std::swap(m_wasted, other.m_wasted);
    std::swap(m_isEmpty, other.m_isEmpty);
    std::swap(m_root, other.m_root);
    m_keys.swap(other.m_keys);
    m_keyById.swap(other.m_keyById);
    m_security.swap(other.m_security);
}

CKey* CHiveView::Known(std::int64_t id) noexcept {
    const auto found = m_keyById.find(id);
    return found == m_keyById.end() ? nullptr : found->second;
}

CKey& CHiveView::Enter(std::int64_t id) {
    CKey*& known = m_keyById[id];
    if (!known) {
        known = &m_keys.emplace_back();
        known->id = id;
        if (id == kRootKey) m_root = known;
    }
    return *known;
}

void CHiveView::Name(CNamed& record, const void* name, std::size_t length) {
    PutName(record, name, length, m_arena.Take(length * sizeof(char16_t)));
}

CValue* CHiveView::NewValue(const void* name, std::size_t length, DWORD type, std::span<const BYTE> data) {
    const std::size_t nameSize = length * sizeof(char16_t);
    auto* memory = static_cast<std::byte*>(m_arena.Take(sizeof(CValue) + nameSize + data.size()));
    auto* value = new (memory) CValue;
    PutName(*value, name, length, memory + sizeof(CValue));
    value->type = type;
    value->size = value->room = static_cast<DWORD>(data.size());
    value->data = reinterpret_cast<BYTE*>(memory + sizeof(CValue) + nameSize);
    if (!data.empty()) std::memcpy(value->data, data.data(), data.size());
    return value;
}

DWORD CHiveView::FindKey(std::int64_t id, CKey*& key) {
    key = Known(id);
    if (key) return key->isGone ? ERROR_KEY_DELETED : ERROR_SUCCESS;
    if (m_isEmpty) return ERROR_KEY_DELETED;
    if (!m_source) return kRowsWanted;
    CQuery query(*m_source, Sql::KeyById);
    query.Bind(id);
    if (!query.Row()) return query.Error() ? query.Error() : static_cast<DWORD>(ERROR_KEY_DELETED);
    key = &Enter(id);
    key->isVolatile = query.Number(1) != 0;
    return ERROR_SUCCESS;
}

DWORD CHiveView::FindSubKey(CKey& parent, const CSoughtName& name, CKey*& key) {
    if (const DWORD error = NeedKeys(parent)) return error;
    key = parent.keys.Find(name);
    return key ? ERROR_SUCCESS : ERROR_FILE_NOT_FOUND;
}

DWORD CHiveView::FindValue(CKey& key, const CSoughtName& name, CValue*& value) {
    if (const DWORD error = NeedValues(key)) return error;
    value = key.values.Find(name);
    return value ? ERROR_SUCCESS : ERROR_FILE_NOT_FOUND;
}

DWORD CHiveView::FindSecurity(const CKey& key, std::span<const BYTE>& list) {
    list = {};
    if (const auto known = m_security.find(key.id); known != m_security.end()) {
        list = known->second;
        return ERROR_SUCCESS;
    }
    if (m_isEmpty) return ERROR_SUCCESS;
    if (!m_source) return kRowsWanted;
    bool hasAny = false;
    if (const DWORD error = m_source->HasSecurity(hasAny)) return error;
    std::vector<BYTE> stored;
    if (hasAny) {
        CQuery query(*m_source, Sql::Security);
        if (query.Bind(key.id).Row()) stored.assign(query.Bytes(0).begin(), query.Bytes(0).end());
        if (query.Error()) return query.Error();
    }
    list = m_security[key.id] = std::move(stored);
    return ERROR_SUCCESS;
}

DWORD CHiveView::LoadKeys(CKey& key) {
    if (!m_source) return kRowsWanted;
    std::vector<CKey*> keys;
    CQuery query(*m_source, Sql::Keys);
    query.Bind(key.id).Bind(BootId());
    while (query.Row()) {
        const std::span<const BYTE> name = query.Bytes(1);
        if (!IsText(name, kMaxKeyName)) return ERROR_REGISTRY_CORRUPT;
        CKey& child = Enter(query.Number(0));
        Name(child, name.data(), name.size() / sizeof(char16_t));
        child.isVolatile = query.Number(2) != 0;
        keys.push_back(&child);
    }
    if (query.Error()) return query.Error();
    key.keys.Adopt(std::move(keys));
    key.hasKeys = true;
    return ERROR_SUCCESS;
}

DWORD CHiveView::LoadValues(CKey& key) {
    if (!m_source) return kRowsWanted;
    std::vector<CValue*> values;
    CQuery query(*m_source, Sql::Values);
    query.Bind(key.id);
    while (query.Row()) {
        const std::span<const BYTE> name = query.Bytes(0);
        const std::int64_t type = query.Number(1);
        if (!IsText(name, kMaxValueName) || type < 0 || type > 0xFFFFFFFF) return ERROR_REGISTRY_CORRUPT;
        values.push_back(
            NewValue(name.data(), name.size() / sizeof(char16_t), static_cast<DWORD>(type), query.Bytes(2)));
    }
    if (query.Error()) return query.Error();
    key.values.Adopt(std::move(values));
    key.hasValues = true;
    return ERROR_SUCCESS;
}

void CHiveView::AddKey(std::int64_t parent, std::int64_t id, std::u16string_view name, bool isVolatile) {
    CKey* above = Known(parent);
    if (!above || !above->hasKeys) return;
    CKey& key = Enter(id);
    Name(key, name.data(), name.size());
    key.isVolatile = isVolatile;
    key.hasKeys = key.hasValues = true;
    above->keys.Insert(&key);
}

void CHiveView::RemoveKey(std::int64_t parent, std::int64_t id) {
    m_security.erase(id);
    CKey* key = Known(id);
    if (!key) return;
    CKey* above = Known(parent);
    if (above && above->hasKeys) above->keys.Erase(key);
    key->isGone = true;
    m_wasted += sizeof(CKey);
    for (const CValue* value : key->values) m_wasted += SizeOf(*value);
}

void CHiveView::PutValue(std::int64_t id, std::u16string_view name, DWORD type, std::span<const BYTE> data) {
    CKey* key = Known(id);
    if (!key || !key->hasValues) return;
    CValue* value = key->values.Find(CSoughtName(name));
    if (!value) return key->values.Insert(NewValue(name.data(), name.size(), type, data));
    if (data.size() > value->room) {
        m_wasted += value->room;
        value->data = static_cast<BYTE*>(m_arena.Take(data.size()));
        value->room = static_cast<DWORD>(data.size());
    }
    if (!data.empty()) std::memcpy(value->data, data.data(), data.size());
    value->type = type;
    value->size = static_cast<DWORD>(data.size());
}

void CHiveView::RemoveValue(std::int64_t id, std::u16string_view name) {
    CKey* key = Known(id);
    if (!key || !key->hasValues) return;
    CValue* value = key->values.Find(CSoughtName(name));
    if (!value) return;
    key->values.Erase(value);
    m_wasted += SizeOf(*value);
}

void CHiveView::PutSecurity(std::int64_t id, std::span<const BYTE> list) {
    m_security[id].assign(list.begin(), list.end());
}
