#include "svinfo/SourceLedger.h"

#include <algorithm>

#include "module/ComPtr.h"
#include "sources/XMLPacker/Nodes.h"
#include "svinfo/Text.h"

namespace {

// The Name of the item that a node is, if it is one.
wstr ItemNameOf(IXMLDOMNode* node) {
    CComPtr<IXMLDOMNode> child;
    CComBSTR text;
    const CComBSTR tag(W("Name"));
    if (!node || node->selectSingleNode(tag.Get(), &child) != S_OK || child->get_text(&text) != S_OK) return {};
    return wstr(text.View());
}

std::string TextOf(Oddity oddity, LPCWSTR detail, const wstr& item) {
    const std::string what = item.empty() ? "an element" : Quoted(item);
    switch (oddity) {
        case Oddity::kItemsMissing:
            return "no Items element: a settings document without one gives nothing";
        case Oddity::kItemsRepeated:
            return "another Items element: with more than one the whole document gives nothing";
        case Oddity::kGroupMissing:
            return "no Group with the Name " + Quoted(detail);
        case Oddity::kGroupRepeated:
            return "another Group with the Name " + Quoted(detail) + ": only the first one is read";
        case Oddity::kIncomplete:
            return what + " passed over: it has no " + ToUtf8(detail);
        case Oddity::kUnknownType:
            return what + " ends the reading: found the Type " + Quoted(detail) +
                   ", expected REG_DWORD, REG_QWORD or REG_SZ, exactly so";
        case Oddity::kNotReached:
            return what + " is not read: it stands behind the end";
        case Oddity::kNotAPolicy:
            return Quoted(detail) + " passed over: neither PolicyItems, once, nor Name, Type and Data";
        case Oddity::kEmptyList:
            return Quoted(detail) + " passed over: its list is empty";
        case Oddity::kNotBoolean:
            return what + " passed over: found the Type " + Quoted(detail) + ", expected boolean";
        case Oddity::kNumberCut:
            return what + ": not all of " + Quoted(detail) + " is a number in base 16; what begins it counts";
        case Oddity::kRegistryType:
            return Quoted(detail) + " passed over: its registry type or size is none that an item can have";
    }
    return {};
}

// As this system writes it: a path that begins with a slash has no backslashes.
std::string FilePathText(LPCWSTR path) {
    std::string text = ToUtf8(path);
    if (text.starts_with('/')) std::replace(text.begin(), text.end(), '\\', '/');
    return text;
}

}  // namespace

std::string PlaceText(const CPlace& place) {
    std::string text = EscapeControls(place.path);
    if (place.line != 0) text += ":" + std::to_string(place.line) + ":" + std::to_string(place.column);
    return text;
}

const char* SourceStateName(SourceState state) noexcept {
    switch (state) {
        case SourceState::kFound:
            return "found";
        case SourceState::kEmpty:
            return "empty";
        case SourceState::kDamaged:
            return "damaged";
        case SourceState::kAbsent:
            return "absent";
        case SourceState::kNoEngine:
            break;
    }
    return "no policy engine";
}

std::size_t CSourceEntry::KeptCount() const noexcept {
    return static_cast<std::size_t>(
        std::count_if(deliveries.begin(), deliveries.end(), [](const CDelivery& delivery) { return delivery.kept; }));
}

void CSourceLedger::Source(const PolicySource& source, LPCWSTR place, bool present) {
    if (&source == &kPolicySources[0]) m_sources.clear();  // another load
    CSourceEntry entry;
    entry.source = &source;
    const bool registry = source.form == PolicyForm::kRegistry;
    entry.path = registry ? MachineKeyText(place) : FilePathText(place);
    if (present) {
        entry.state = SourceState::kEmpty;
    } else if (registry || (source.withEngine && PathFileExistsW(place))) {
        entry.state = SourceState::kNoEngine;
    }
    m_sources.push_back(std::move(entry));
}

void CSourceLedger::File(const std::string& path) {
    CSourceEntry entry;
    entry.path = path;
    entry.state = SourceState::kEmpty;
    m_sources.push_back(std::move(entry));
}

void CSourceLedger::Document(IXMLDOMDocument* document, HRESULT hr) {
    if (hr == S_OK) return;
    CSourceEntry& entry = Current();
    entry.state = SourceState::kDamaged;
    entry.damage.path = entry.path;
    entry.reason = "it could not be loaded";
    CComPtr<IXMLDOMParseError> error;
    if (!document || FAILED(document->get_parseError(&error)) || !error) return;
    LONG line = 0, column = 0;
    if (SUCCEEDED(error->get_line(&line)) && SUCCEEDED(error->get_linepos(&column)) && line > 0) {
        entry.damage.line = static_cast<DWORD>(line);
        entry.damage.column = static_cast<DWORD>(column);
    }
    CComBSTR reason;
    if (SUCCEEDED(error->get_reason(&reason)) && !reason.View().empty()) entry.reason = ToUtf8(reason.View());
    while (!entry.reason.empty() && static_cast<unsigned char>(entry.reason.back()) <= ' ') entry.reason.pop_back();
}

CPlace CSourceLedger::PlaceOf(const CLoadPlace& place) const {
    CPlace out;
    out.path = place.key ? MachineKeyText(place.key) : m_sources.back().path;
    DWORD line = 0, column = 0;
    if (place.node && OvNodePosition(place.node, &line, &column)) {
        out.line = line;
        out.column = column;
    }
    return out;
}

void CSourceLedger::Delivered(const CPolicyItem& item, bool kept, const CLoadPlace& place) {
    CSourceEntry& entry = Current();
    if (entry.state == SourceState::kEmpty) entry.state = SourceState::kFound;
    entry.deliveries.push_back({item, kept, PlaceOf(place)});
    NoteLongName(item, entry.deliveries.back().place);
}

// A policy under its long spelling is in the store, but every question asks for the short one.
void CSourceLedger::NoteLongName(const CPolicyItem& item, const CPlace& place) {
    const LPCWSTR reduced = ReduceName(item.name.c_str());
    if (reduced == item.name.c_str()) return;
    Current().findings.push_back(
        {Oddity::kNotAPolicy, reduced,
         Quoted(reduced) + " is found by no question: in this form it bears its long name. Write it as a list", place,
         place});
}

void CSourceLedger::PassedOver(Oddity oddity, LPCWSTR detail, const CLoadPlace& place) {
    wstr item;
    switch (oddity) {
        case Oddity::kRegistryType:
        case Oddity::kNotAPolicy:
        case Oddity::kEmptyList:
            item = detail;
            break;
        case Oddity::kGroupMissing:
        case Oddity::kGroupRepeated:
        case Oddity::kItemsRepeated:
            break;
        default:
            item = ItemNameOf(place.node);
            // A mask of a list is its policy's.
            if (item.empty() && place.item) item = wstr(NodeName(place.item).View());
            break;
    }
    std::vector<CFinding>& findings = Current().findings;
    // A document may have settings without domains, or the other way round; only with neither it is odd.
    if (oddity == Oddity::kGroupMissing && wstr_view(detail) == W("Domains")) {
        const auto missing = std::find_if(findings.begin(), findings.end(), [](const CFinding& finding) {
            return finding.oddity == Oddity::kGroupMissing;
        });
        if (missing != findings.end()) missing->text += " nor " + Quoted(detail);
        return;
    }
    const CPlace at = PlaceOf(place);
    findings.push_back(
        {oddity, item, TextOf(oddity, detail, item), at, place.item ? PlaceOf({place.item, nullptr, nullptr}) : at});
}
