// A cache file as the tool looks at it: read, judged, and left as it is.
#pragma once

#include <string>
#include <vector>

#include "cache/CacheFile.h"

// Where the root's own lies, as a path of this system. Makes nothing. Throws CCommandFailure when the registry cannot
// be read.
std::string OwnCachePath();

class CCacheView {
  public:
    // Of the file at `path`; of the root's own for an empty one. Throws CCommandFailure: 1 when there is none, 4 when
    // it cannot be read.
    explicit CCacheView(const std::string& path);  // waits a little for a writer

    const std::string& Path() const noexcept { return m_path; }  // UTF-8
    std::size_t Bytes() const noexcept { return m_bytes.size(); }

    // A file that is too short has no digest, and no items.
    bool IsLongEnough() const noexcept { return m_bytes.size() >= kSmallestCacheFile; }
    bool IsWhole() const noexcept { return IsLongEnough() && m_stored == m_computed; }
    const CCacheDigest& Stored() const noexcept { return m_stored; }
    const CCacheDigest& Computed() const noexcept { return m_computed; }
    // One line that names the file, when it is not whole.
    std::string Damage() const;
    void RequireWhole() const;  // throws CCommandFailure (4)

    // Of a file that is whole: in the order of the file, arrays among them, up to one that cannot be decoded.
    const std::vector<CPolicyItem>& Items() const noexcept { return m_items; }
    // What is odd about it: what the component would pass over, or would not have written.
    std::vector<std::string> Findings() const;

  private:
    CDerBytes Body() const noexcept;
    void Decode();

    std::string m_path;
    std::string m_bytes;
    CCacheDigest m_stored = {};
    CCacheDigest m_computed = {};
    std::vector<CPolicyItem> m_items;
    HRESULT m_decoded = S_OK;  // why the item behind the last one cannot be decoded
};

// Whether items of that type have a place in the file.
bool IsCachedType(const CPolicyItem& item) noexcept;
