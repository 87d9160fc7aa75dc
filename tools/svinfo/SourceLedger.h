// CSourceLedger: what a load took from which source, and what it passed over. It looks on at the component's own load
// and reads nothing itself.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "sources/LoadObserver.h"
#include "store/PolicyNames.h"
#include "store/PolicyValue.h"
#include "svinfo/LocalItems.h"

// A place to look at: a registry key, or a file with line and column, from 1; 0 where they are not known.
struct CPlace {
    std::string path;
    DWORD line = 0;
    DWORD column = 0;
    bool operator==(const CPlace&) const = default;
};
// "PATH:LINE:COLUMN", as far as it is known.
std::string PlaceText(const CPlace& place);

// An item that a source delivered.
struct CDelivery {
    CPolicyItem item;
    bool kept;  // in the store; else it was there already
    CPlace place;
};

// Something that was passed over, or that reads otherwise than it looks.
struct CFinding {
    Oddity oddity;
    wstr item;         // the name of the item that it is about; empty for none
    std::string text;  // the whole of it, in words
    CPlace place;
    CPlace belongsTo;  // where the item stands that is meant, as its delivery has it
};

enum class SourceState { kFound, kEmpty, kDamaged, kAbsent, kNoEngine };
const char* SourceStateName(SourceState state) noexcept;

struct CSourceEntry {
    const PolicySource* source = nullptr;
    std::string path;  // its key or file; empty for a file where there is no data root
    SourceState state = SourceState::kAbsent;
    CPlace damage;       // where it broke
    std::string reason;  // and how
    std::vector<CDelivery> deliveries;
    std::vector<CFinding> findings;

    std::size_t KeptCount() const noexcept;
};

class CSourceLedger final : public CLoadObserver {
  public:
    // The sources of the last load, the strongest first.
    const std::vector<CSourceEntry>& Sources() const noexcept { return m_sources; }

    void Source(const PolicySource& source, LPCWSTR place, bool present) override;
    void Document(IXMLDOMDocument* document, HRESULT hr) override;
    void Delivered(const CPolicyItem& item, bool kept, const CLoadPlace& place) override;
    void PassedOver(Oddity oddity, LPCWSTR detail, const CLoadPlace& place) override;

    // For a file that is no source: what is told from now on is about it.
    void File(const std::string& path);

  private:
    CPlace PlaceOf(const CLoadPlace& place) const;
    CSourceEntry& Current() { return m_sources.back(); }
    void NoteLongName(const CPolicyItem& item, const CPlace& place);

    std::vector<CSourceEntry> m_sources;
};
