// What this process has seen of a hive: keys and values in memory, taken from the database key by key as they are asked
// for.
//
// Reading  the operations that look something up return a Win32 error, or kRowsWanted when the answer needs rows that
//          are not here. Whoever gets that opens a transaction, calls SetSource, and asks again from the start.
// Changes  a commit of this process is carried over with the same operations on the view; whether the view still is the
//          hive's present state is known to CHive alone.
// Memory   one arena for names and data, given back as a whole by Reset. Records stay where they are until then.
// Fails    std::bad_alloc; the caller then calls Reset. ERROR_REGISTRY_CORRUPT (1015) for rows that make no sense.
// Threads  one at a time, as the owner's lock says.
#pragma once

#include <deque>
#include <span>
#include <unordered_map>
#include <vector>

#include "HiveDatabase.h"
#include "NameIndex.h"

// No error of Win32's.
inline constexpr DWORD kRowsWanted = 0xFFFFFFFF;

class CArena {
  public:
    void* Take(std::size_t size);
    void Reset() noexcept;
    std::size_t Used() const noexcept { return m_used; }

  private:
    std::vector<std::unique_ptr<std::byte[]>> m_blocks;
    std::byte* m_next = nullptr;
    std::size_t m_left = 0;
    std::size_t m_used = 0;
};

struct CValue : CNamed {
    DWORD type = 0;
    DWORD size = 0;
    DWORD room = 0;
    BYTE* data = nullptr;
};

struct CKey : CNamed {
    std::int64_t id = 0;
    bool isVolatile = false;
    bool isGone = false;   // deleted since the view was begun
    bool hasKeys = false;  // `keys` is what the hive holds; the same for values
    bool hasValues = false;
    CNameIndex<CKey> keys;
    CNameIndex<CValue> values;
};

class CHiveView {
  public:
    CHiveView() noexcept { Reset(); }

    // Of all views of this process there is one with this number, and Reset gives it a new one: a pointer to a record
    // is good as long as it comes from the same number.
    std::uint64_t Number() const noexcept { return m_number; }
    void Reset() noexcept;
    // The view of a hive that does not exist: a root with nothing below it.
    void BecomeEmpty();
    bool IsEmpty() const noexcept { return m_isEmpty; }
    void Swap(CHiveView& other) noexcept;

    // Null when no transaction is open.
    void SetSource(CHiveDatabase* source) noexcept { m_source = source; }

    // ERROR_KEY_DELETED (1018) when there is no such key.
    DWORD FindKey(std::int64_t id, CKey*& key);
    DWORD FindRoot(CKey*& key) { return (key = m_root) ? static_cast<DWORD>(ERROR_SUCCESS) : FindKey(kRootKey, key); }
    // ERROR_FILE_NOT_FOUND (2) when there is none.
    DWORD FindSubKey(CKey& parent, const CSoughtName& name, CKey*& key);
    DWORD FindValue(CKey& key, const CSoughtName& name, CValue*& value);
    // The key's access list, empty for a key without one; good until the view is changed.
    DWORD FindSecurity(const CKey& key, std::span<const BYTE>& list);
    // Make `keys` or `values` of the key what the hive holds.
    DWORD NeedKeys(CKey& key) { return key.hasKeys ? static_cast<DWORD>(ERROR_SUCCESS) : LoadKeys(key); }
    DWORD NeedValues(CKey& key) { return key.hasValues ? static_cast<DWORD>(ERROR_SUCCESS) : LoadValues(key); }

    void AddKey(std::int64_t parent, std::int64_t id, std::u16string_view name, bool isVolatile);
    void RemoveKey(std::int64_t parent, std::int64_t id);
    void PutValue(std::int64_t key, std::u16string_view name, DWORD type, std::span<const BYTE> data);
    void RemoveValue(std::int64_t key, std::u16string_view name);
    void PutSecurity(std::int64_t key, std::span<const BYTE> list);
    // Whether records that were replaced take so much room that it is better to begin anew.
    bool IsWasteful() const noexcept {
        return m_wasted > kMuchWaste && m_wasted > (m_arena.Used() + m_keys.size() * sizeof(CKey)) / 2;
    }

  private:
    static constexpr std::size_t kMuchWaste = std::size_t{1} << 20;

    DWORD LoadKeys(CKey& key);
    DWORD LoadValues(CKey& key);
    CKey* Known(std::int64_t id) noexcept;
    CKey& Enter(std::int64_t id);
    // `length` in units; rows are not aligned for them.
    void Name(CNamed& record, const void* name, std::size_t length);
    CValue* NewValue(const void* name, std::size_t length, DWORD type, std::span<const BYTE> data);

    std::uint64_t m_number = 0;
    CHiveDatabase* m_source = nullptr;
    CArena m_arena;
    std::size_t m_wasted = 0;
    bool m_isEmpty = false;
    CKey* m_root = nullptr;  // once it was found
    std::deque<CKey> m_keys;
    std::unordered_map<std::int64_t, CKey*> m_keyById;
    std::unordered_map<std::int64_t, std::vector<BYTE>> m_security;  // of the few keys that were asked for theirs
};
