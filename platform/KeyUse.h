// The key that a registry call is about, held for the length of the call.
//
// Locks    the hive of the key from construction to Unlock, Enter or the end.
#pragma once

#include <mutex>

#include "HiveChanges.h"
#include "win/registry.h"

// All that a handle may be granted, and the part of it that a hive must be writable for.
inline constexpr REGSAM kAllAccess = KEY_ALL_ACCESS | SYNCHRONIZE;
inline constexpr REGSAM kWriteAccess =
    KEY_SET_VALUE | KEY_CREATE_SUB_KEY | KEY_CREATE_LINK | DELETE | WRITE_DAC | WRITE_OWNER;

class CKeyUse {
  public:
    // ERROR_INVALID_HANDLE (6) for what is no key, ERROR_KEY_DELETED (1018) for one that belonged to another root, to a
    // hive that was replaced, or to a transaction that was taken back.
    explicit CKeyUse(HKEY key);
    CKeyUse(CHive& hive, REGSAM access);

    DWORD Error() const noexcept { return m_error; }
    // Whether the handle was granted all of it; else the call fails with ERROR_ACCESS_DENIED (5).
    bool Allows(REGSAM access) const noexcept { return (m_access & access) == access; }
    bool IsUsers() const noexcept { return m_hive->GetKind() == CHive::Kind::Users; }
    CHive& Hive() const noexcept { return *m_hive; }

    // From a path below HKEY_USERS into the hive that its first component names; `path` becomes the rest. An empty path
    // stays where it is. ERROR_FILE_NOT_FOUND (2) for a user without a hive, who is entered all the same, and for a
    // name that is no SID.
    DWORD EnterUserHive(LPCWSTR& path);
    // ERROR_FILE_NOT_FOUND (2) when there is no such hive.
    DWORD HasHive() const;

    // Inside CHive::Read. ERROR_FILE_NOT_FOUND (2) when there is no such key.
    DWORD Find(CHiveView& view, CKeyPath& path, CKey*& key) const;
    DWORD Find(CHiveView& view, CKey*& key) const;

    // Of the hive, as the handle knows it.
    std::uint32_t Incarnation() const noexcept { return m_incarnation; }
    // What a path from here begins with, in the view that the flags of `access` ask for.
    CPathStart Start(REGSAM access) const noexcept;
    CChangeStart ChangeStart(REGSAM access) const noexcept { return {m_id, Start(access)}; }

    // Changes the hive, without the lock from here on.
    DWORD Write(CHiveChange& change);
    void Lock() { m_lock.lock(); }
    void Unlock() { m_lock.unlock(); }

    static DWORD Close(HKEY key);

  private:
    void UsePredefined(CHive& hive, const CPathStart& start = {});
    void UseSlot(HKEY key);
    DWORD FindStart(CHiveView& view, CKey*& key) const;

    CHive* m_hive = nullptr;
    CKeySlot* m_slot = nullptr;  // null for a predefined key
    std::int64_t m_id = kRootKey;
    REGSAM m_access = kAllAccess;
    CPathStart m_start;
    std::uint32_t m_incarnation = 0;
    DWORD m_error = ERROR_SUCCESS;
    std::unique_lock<std::mutex> m_lock;
};
