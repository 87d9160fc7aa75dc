// Access lists inside the layer: looking at their entries without trusting them.
#pragma once

#include <optional>
#include <span>

#include "Sid.h"
#include "win/security.h"

// Does not reach beyond AclSize, and not beyond `room`. What an entry holds behind its header stays within it.
class CAclReader {
  public:
    // Of a caller's list, whose size it tells itself.
    explicit CAclReader(const void* acl) noexcept : CAclReader(acl, SIZE_MAX) {}
    CAclReader(const void* acl, std::size_t room) noexcept;

    // Whether head and entries make sense; nothing else may be asked of a list that is not.
    bool IsWhole() const noexcept { return m_isWhole; }
    const ACL& Head() const noexcept { return m_head; }
    // The bytes behind the last entry start here.
    std::size_t Used() const noexcept { return m_used; }
    // One behind the other; SizeOfAce tells where the next one starts.
    std::span<const BYTE> Entries() const noexcept { return {m_bytes + sizeof m_head, m_used - sizeof m_head}; }

  private:
    const BYTE* m_bytes;
    ACL m_head = {};
    std::size_t m_used = sizeof(ACL);
    bool m_isWhole = false;
};

// The size that the header of an entry tells, in bytes; 0 when it is not within the bytes, or no header is.
std::size_t SizeOfAce(std::span<const BYTE> bytes) noexcept;
