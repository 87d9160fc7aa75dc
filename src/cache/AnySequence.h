// CAnySequence: the elements of a SEQUENCE, read one after the other.
//
// The tolerance of the file lies here: where there is no next element, or one that cannot be decoded, a Read leaves
// `out` as it was, and the next Read takes the element behind. Only ReadTime raises, for an element that is no time.
#pragma once

#include "cache/Der.h"

class CAnySequence {
  public:
    CAnySequence() noexcept = default;  // empty
    // The elements stay where they are. Empty for what is no SEQUENCE, or when one of its elements is cut off; what is
    // inside of the elements is not looked at.
    explicit CAnySequence(CDerBytes encoded) noexcept;

    DWORD Count() const noexcept { return m_count; }
    DWORD Left() const noexcept { return m_count - m_cursor; }

    // The next element; empty past the end.
    CDerBytes Next() noexcept;

    void ReadULong(DWORD& out) noexcept;
    void ReadULong64(ULONGLONG& out) noexcept;
    void ReadInt(LONG& out) noexcept;
    void ReadString(wstr& out);
    void ReadGuid(GUID& out) noexcept;
    void ReadDouble(double& out);
    void ReadTime(FILETIME& out);
    void ReadBlob(CDerBytes& out) noexcept;  // into the element

  private:
    CDerBytes m_rest;
    DWORD m_count = 0;
    DWORD m_cursor = 0;
};
