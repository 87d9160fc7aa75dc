// Policy documents of any bytes, through the three walks into a map: as a file, and as a text of 16-bit units.
//
// What loads is written out as markup, loaded again and walked again, and must give the same items.
#include <sys/mman.h>
#include <unistd.h>

#include <cstdlib>
#include <string>
#include <string_view>

#include "sources/XMLPolicyReader.h"

namespace {

// Asks what the tools ask, and keeps nothing.
class CNoticing final : public CLoadObserver {
  public:
    void Source(const PolicySource&, LPCWSTR, bool) override {}
    void Document(IXMLDOMDocument* document, HRESULT) override {
        CComPtr<IXMLDOMParseError> error;
        if (document) document->get_parseError(&error);
    }
    void Delivered(const CPolicyItem&, bool, const CLoadPlace& place) override { Look(place); }
    void PassedOver(Oddity, LPCWSTR, const CLoadPlace& place) override { Look(place); }

  private:
    static void Look(const CLoadPlace& place) {
        DWORD line = 0, column = 0;
        if (place.node && OvNodePosition(place.node, &line, &column) && (line == 0 || column == 0)) std::abort();
    }
};

void WalkAll(CExtXMLPacker& document) {
    document.ProcessOVSettings();
    document.ProcessOVDomains();
    document.ProcessOVAuthPolicies();
}

void RequireSame(const CPolicyMap& a, const CPolicyMap& b) {
    if (!CPolicyMap::Differences(a, b).empty()) std::abort();
}

// A reader that gives its markup.
class CMarkupReader final : public CExtXMLPacker {
  public:
    CMarkupReader(const VARIANT& text, CPolicyMap&) : CExtXMLPacker(text) {}
    HRESULT Markup(CComBSTR& xml) const { return GetXml(&xml); }
};

void Reload(const CComBSTR& text, const CPolicyMap& expected) {
    CPolicyMap unused;
    const CMarkupReader document(VariantOf(text), unused);
    CComBSTR xml;
    if (document.Result() != S_OK || document.Markup(xml) != S_OK) std::abort();
    CPolicyMap map;
    CExtXMLPolicyReader reader(VariantOf(xml), map);
    if (reader.Result() != S_OK) std::abort();
    WalkAll(reader);
    RequireSame(expected, map);
}

void AsText(std::string_view bytes) {
    wstr units(bytes.size() / 2, 0);
    bytes.copy(reinterpret_cast<char*>(units.data()), units.size() * 2);
    const CComBSTR text{wstr_view(units)};
    CPolicyMap map;
    CExtXMLPolicyReader reader(VariantOf(text), map);
    WalkAll(reader);
    // What entities hold is seen by no query, but is plain content of the markup.
    if (reader.Result() == S_OK && units.find(W("<!ENTITY")) == wstr::npos) Reload(text, map);
}

void AsFile(std::string_view bytes) {
    static const int file = memfd_create("document", 0);
    if (ftruncate(file, 0) != 0 || pwrite(file, bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size())) {
        std::abort();
    }
    const std::string narrow = "/proc/self/fd/" + std::to_string(file);
    const wstr path(narrow.begin(), narrow.end());
    CNoticing observer;
    CPolicyMap observed, map;
    CExtXMLPolicyReader first(path.c_str(), observed, &observer);
    WalkAll(first);
    CExtXMLPolicyReader second(path.c_str(), map);
    WalkAll(second);
    RequireSame(map, observed);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    OvSetRoot("/nonexistent");  // no computer's tracing settings
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
    if (size == 0) return 0;
    const std::string_view bytes(reinterpret_cast<const char*>(data) + 1, size - 1);
    if (data[0] == 'T') {
        std::string wide;  // ASCII as units, so that one dictionary serves both
        for (const char c : bytes) wide.append({c, 0});
        AsText(wide);
    } else if (data[0] == 'U') {
        AsText(bytes);
    } else {
        AsFile(bytes);
    }
    return 0;
}
