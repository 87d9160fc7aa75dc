#include "XmlTree.h"

CXmlTree::CXmlTree() {
    Add(kXmlDocument, NODE_DOCUMENT, 0);
}

CXmlTree::~CXmlTree() = default;

ULONG CXmlTree::Release() noexcept {
    const ULONG left = --m_references;
    if (left == 0) delete this;
    return left;
}

CXmlNode* CXmlTree::Root() const noexcept {
    for (XmlIndex index = Document().first; index != kNoXmlNode; index = Node(index).next) {
        if (Node(index).kind == NODE_ELEMENT) return &Node(index);
    }
    return nullptr;
}

XmlIndex CXmlTree::Add(XmlIndex parent, int kind, std::uint32_t offset) {
    if (m_size == kMostNodes) return kNoXmlNode;
    if (m_size % kBlock == 0) m_blocks.push_back(std::make_unique<Slot[]>(kBlock));
    const auto index = static_cast<XmlIndex>(m_size++);
    new (&Node(index)) CXmlNode(*this, kind, parent, offset);
    if (index == kXmlDocument || kind == kXmlEntityContent) return index;
    CXmlNode& above = Node(parent);
    Node(index).inEntity = above.inEntity || above.kind == kXmlEntityContent;
    if (above.last == kNoXmlNode) {
        above.first = index;
    } else {
        Node(above.last).next = index;
    }
    above.last = index;
    return index;
}

XmlName CXmlTree::FindName(const CXmlTag& tag) const noexcept {
    for (const Recent& recent : m_recent) {
        if (recent.tag == tag && recent.id != kNoXmlName) return recent.id;
    }
    const auto found = m_nameIds.find(tag.text);
    return found == m_nameIds.end() ? kNoXmlName : found->second;
}

XmlName CXmlTree::NameOf(const CXmlTag& tag) {
    for (const Recent& recent : m_recent) {
        if (recent.tag == tag && recent.id != kNoXmlName) return recent.id;
    }
    XmlName id = FindName(tag);
    if (id == kNoXmlName) {
        if (m_names.size() == kNoXmlName) throw std::bad_alloc();
        id = static_cast<XmlName>(m_names.size());
        m_names.push_back({std::string(tag.text)});
        m_nameIds.emplace(m_names.back().text, id);
    }
    m_recent[m_oldest++ % kRecent] = {CXmlTag(Name(id)), id};
    return id;
}

std::string_view CXmlTree::LocalName(XmlName name) const noexcept {
    const std::string_view qualified = Name(name);
    const std::size_t colon = qualified.find(':');
    return colon == std::string_view::npos ? qualified : qualified.substr(colon + 1);
}

unsigned CXmlTree::UnitAt(std::uint32_t offset) const noexcept {
    const auto byte = [&](std::size_t at) -> unsigned {
        return at < source.size() ? static_cast<unsigned char>(source[at]) : 0;
    };
    if (sourceUnit == 1) return byte(offset);
    const unsigned one = byte(offset), two = byte(std::size_t{offset} + 1);
    return bigEndian ? one << 8 | two : two << 8 | one;
}

// Moves a place behind the unit at the offset.
void CXmlTree::Pass(Place& place, std::uint32_t offset) const noexcept {
    const unsigned unit = UnitAt(offset);
    const auto next = offset + static_cast<std::uint32_t>(sourceUnit);
    if (unit == '\n' || (unit == '\r' && UnitAt(next) != '\n')) {
        place = {place.line + 1, 1};
        return;
    }
    // A mark at the start is no character, nor is the second half of one.
    const bool mark = offset < 3 && (sourceUnit == 2 ? unit == 0xFEFF : utf8 && source.starts_with("\xEF\xBB\xBF"));
    const bool rest = sourceUnit == 2 ? (unit & 0xFC00) == 0xDC00 : utf8 && (unit & 0xC0) == 0x80;
    if (!mark && !rest) ++place.column;
}

std::pair<DWORD, DWORD> CXmlTree::PlaceOf(std::uint32_t offset) {
    const auto step = static_cast<std::uint32_t>(sourceUnit);
    const auto size = static_cast<std::uint32_t>(source.size());
    if (m_places.empty()) {
        Place place;
        for (std::uint32_t at = 0; at < size; at += step) {
            if (at % kStride == 0) m_places.push_back(place);
            Pass(place, at);
        }
    }
    offset = std::min(offset, size);
    const std::size_t nearest = std::min<std::size_t>(offset / kStride, m_places.empty() ? 0 : m_places.size() - 1);
    Place place = m_places.empty() ? Place() : m_places[nearest];
    for (auto at = static_cast<std::uint32_t>(nearest) * kStride; at < offset; at += step) Pass(place, at);
    return {place.line, place.column};
}
