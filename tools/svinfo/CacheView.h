// A cache file as the tool looks at it: read, judged, and left as it is.
#pragma once

#include <string>
#include <vector>

#include "cache/CacheFile.h"

// Where the root's own lies, as a path of this system. Makes nothing.
std::string OwnCachePath();

class CCacheView {
  public:
    // Of the file at `path`; of the root's own for an empty one. Throws CCommandFailure: 1 when there is none, 4 when it
    // cannot be read.
    explicit CCacheView(const std::string& path);

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

    // In the order of the file, arrays among them, whatever the digest says.
    const std::vector<CPolicyItem>& Items() const noexcept { return m_items; }
    // What is odd about a file that is whole: what the component would pass over, or would not have written.
    std::vector<std::string> Findings() const;

  private:
    CDerBytes Body() const noexcept;

    std::string m_path;
    std::string m_bytes;
    CCacheDigest m_stored = {};
    CCacheDigest m_computed = {};
    std::vector<CPolicyItem> m_items;
};
