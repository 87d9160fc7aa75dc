// The cache file, svinfo.cch: a store between two objects.
//
//   offset    size    content
//   0         N       SEQUENCE of one OCTET STRING for each item, in key order; its content is the encoded item
//   N         16      the MD5 digest (RFC 1321) of the N bytes before it: against damage, not against anybody
//
// There is no magic number, no version and no count.
#pragma once

#include <array>

#include "cache/AnySequence.h"
#include "cache/ValueEncoding.h"
#include "diagnostics/TraceScope.h"
#include "module/RegistryKey.h"
#include "store/PolicyMap.h"

using CCacheDigest = std::array<BYTE, 16>;
inline constexpr DWORD kSmallestCacheFile = sizeof(CCacheDigest) + 1;

// The file's path: in the folder that BinDir of the Core key names, else in the folder the process is in. Makes the key
// where there is none; raises when that cannot be done.
wstr CacheFileName();
// The same of a Core key that is open, or of none.
wstr CacheFileName(const CRegistryKey& core);

// Raises the failure of the step that failed; nothing for a digest of another size, which no file can have.
std::optional<CCacheDigest> CacheDigestOf(CDerBytes body);

// The file's parts: of at least kSmallestCacheFile bytes.
struct CCacheFileParts {
    CDerBytes body;
    CCacheDigest stored;
};
CCacheFileParts PartsOfCacheFile(CDerBytes file) noexcept;

// The items of a body, one after the other. A body that is none has no items.
class CCacheReader {
  public:
    explicit CCacheReader(CDerBytes body) noexcept : m_elements(body) {}
    DWORD Count() const noexcept { return m_elements.Count(); }
    // False behind the last item. Raises as DecodeItem does.
    bool Next(CPolicyItem& item);

  private:
    CAnySequence m_elements;
    CDecodeBudget m_budget;  // of the whole body
};

// Traces an item as it goes into the file or comes from it; false for a type that has no place there.
bool IsCachedItem(const CPolicyItem& item, OVTraceNS::CTraceScope& scope) noexcept;

// The body that holds the items of `items`. Raises 0x8007000E for want of memory.
CDerWriter EncodeCacheBody(const CPolicyMap& items, OVTraceNS::CTraceScope& scope);
