// A walk over the values of an open key, one after the other, whatever their sizes.
//
//   CValueWalk walk(key);
//   if (walk.Measure()) return;          // a Win32 error
//   while (walk.Next()) Use(walk.Name(), walk.Type(), walk.Data());
//
// What Name and Data point to is the walk's, and good until the next step. A value that grew behind the walk's back is
// read again with more room, so that nothing is ever taken from a stale buffer.
#pragma once

#include <span>
#include <vector>

#include "Platform.h"

class CValueWalk {
  public:
    explicit CValueWalk(HKEY key) noexcept : m_key(key) {}

    // How many values and subkeys there are, and how long the longest of each. Before the first Next.
    LONG Measure() noexcept;
    DWORD Count() const noexcept { return m_count; }
    DWORD LongestName() const noexcept { return m_longestName; }
    DWORD LongestData() const noexcept { return m_longestData; }
    DWORD LongestSubkey() const noexcept { return m_longestSubkey; }

    // False at the end, and when the key cannot be walked any further. Raises 0x8007000E.
    bool Next();

    LPCWSTR Name() const noexcept { return m_name.data(); }
    DWORD Type() const noexcept { return m_type; }
    std::span<const BYTE> Data() const noexcept { return {m_data.data(), m_size}; }
    // The number of a REG_DWORD or a REG_QWORD; false for another type or another size.
    bool AsDword(DWORD& number) const noexcept;
    bool AsQword(ULONGLONG& number) const noexcept;
    // The data as text, up to its first NUL and never beyond its end.
    wstr AsText() const;

  private:
    HKEY m_key;  // not owned
    DWORD m_count = 0;
    DWORD m_longestName = 0;
    DWORD m_longestData = 0;
    DWORD m_longestSubkey = 0;
    DWORD m_index = 0;
    DWORD m_type = REG_NONE;
    DWORD m_size = 0;
    std::vector<WCHAR> m_name;
    std::vector<BYTE> m_data;
};
