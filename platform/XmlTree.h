// The tree of an XML document.
//
// Shape    nodes lie in blocks and are known to each other by number; text and attributes lie in one pool, in UTF-8;
//          tags are kept once. A reference on a node is a reference on its tree, so that handing nodes out costs no
//          memory. Blanks between elements are a mark on the node behind them, not a node.
// Entities each is parsed once, into nodes that all of its references share.
// Fails    for want of memory, by std::bad_alloc.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <deque>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "msxml.h"

class CXmlTree;

using XmlIndex = std::uint32_t;
inline constexpr XmlIndex kXmlDocument = 0;  // the node of the document itself
inline constexpr XmlIndex kNoXmlNode = 0;    // and nobody's child
using XmlName = std::uint32_t;
inline constexpr XmlName kNoXmlName = 0xFFFFFF;

// Blanks, as XML has them.
constexpr bool IsXmlBlank(char c) noexcept {
    return c == ' ' || c == '\n' || c == '\r' || c == '\t';
}
// The text without the blanks at its ends.
constexpr std::string_view XmlTrimmed(std::string_view text) noexcept {
    while (!text.empty() && IsXmlBlank(text.front())) text.remove_prefix(1);
    while (!text.empty() && IsXmlBlank(text.back())) text.remove_suffix(1);
    return text;
}

// A tag with its first bytes as a number, which tells most tags apart at once.
struct CXmlTag {
    explicit CXmlTag(std::string_view tag) noexcept : text(tag) {
        if (!tag.empty()) std::memcpy(&start, tag.data(), std::min(tag.size(), sizeof start));
    }
    bool operator==(const CXmlTag& other) const noexcept {
        if (start != other.start || text.size() != other.text.size()) return false;
        return text.size() <= sizeof start || text == other.text;
    }
    std::string_view text;
    std::uint64_t start = 0;
};

// What expat has no name for: the content of an entity, above its nodes.
inline constexpr int kXmlEntityContent = 15;

class CXmlNode final : public IXMLDOMElement {
  public:
    CXmlNode(CXmlTree& tree, int nodeKind, XmlIndex parentIndex, std::uint32_t sourceOffset) noexcept
        : parent(parentIndex),
          offset(sourceOffset),
          name(kNoXmlName),
          kind(static_cast<unsigned>(nodeKind) & 15),
          blankBefore(false),
          blankAtEnd(false),
          preserve(false),
          inEntity(false),
          m_tree(&tree) {}

    STDMETHODIMP QueryInterface(REFIID iid, void** object) override;
    STDMETHODIMP_(ULONG) AddRef() override;
    STDMETHODIMP_(ULONG) Release() override;
    STDMETHODIMP get_nodeName(BSTR* text) override;
    STDMETHODIMP get_nodeType(DOMNodeType* type) override;
    STDMETHODIMP get_childNodes(IXMLDOMNodeList** children) override;
    STDMETHODIMP get_text(BSTR* text) override;
    STDMETHODIMP get_xml(BSTR* xml) override;
    STDMETHODIMP selectNodes(BSTR query, IXMLDOMNodeList** found) override;
    STDMETHODIMP selectSingleNode(BSTR query, IXMLDOMNode** found) override;

    CXmlTree& Tree() const noexcept { return *m_tree; }

    XmlIndex parent;
    XmlIndex first = kNoXmlNode;
    XmlIndex last = kNoXmlNode;
    XmlIndex next = kNoXmlNode;
    // In the pool: the text; of an element its attributes as they are written. Of an entity reference `start` is the
    // node of its content.
    std::uint32_t start = 0;
    std::uint32_t length = 0;
    std::uint32_t offset;  // in the source
    std::uint32_t name : 24;
    std::uint32_t kind : 4;
    std::uint32_t blankBefore : 1;
    std::uint32_t blankAtEnd : 1;  // before the end tag
    std::uint32_t preserve : 1;    // blanks count, by xml:space
    std::uint32_t inEntity : 1;    // below the content of an entity

  private:
    CXmlTree* m_tree;
};

class CXmlTree {
  public:
    static constexpr std::size_t kMostNodes = 8'388'608;

    CXmlTree();
    ~CXmlTree();
    CXmlTree(const CXmlTree&) = delete;
    CXmlTree& operator=(const CXmlTree&) = delete;

    // Made with one reference.
    ULONG AddRef() noexcept { return ++m_references; }
    ULONG Release() noexcept;

    CXmlNode& Node(XmlIndex index) const noexcept { return m_blocks[index / kBlock].get()[index % kBlock].node; }
    CXmlNode& Document() const noexcept { return Node(kXmlDocument); }
    // The root element; null when there is none.
    CXmlNode* Root() const noexcept;
    std::size_t Size() const noexcept { return m_size; }
    // A new last child; of no node for the content of an entity. Null when the tree is full.
    XmlIndex Add(XmlIndex parent, int kind, std::uint32_t offset);

    XmlName NameOf(std::string_view qualified) { return NameOf(CXmlTag(qualified)); }  // kept from now on
    XmlName NameOf(const CXmlTag& tag);
    XmlName FindName(const CXmlTag& tag) const noexcept;  // kNoXmlName when no node bears it
    std::string_view Name(XmlName name) const noexcept { return m_names[name].text; }
    std::size_t NameCount() const noexcept { return m_names.size(); }
    std::string_view LocalName(XmlName name) const noexcept;
    // How many elements bear it, outside of entities.
    std::size_t& Bearers(XmlName name) noexcept { return m_names[name].bearers; }

    std::string_view PoolText(const CXmlNode& node) const noexcept {
        return std::string_view(pool).substr(node.start, node.length);
    }

    // Line and column of an offset in the source.
    std::pair<DWORD, DWORD> PlaceOf(std::uint32_t offset);

    std::string pool;
    std::string source;  // the bytes of the file; empty for a text
    int sourceUnit = 1;  // bytes of a character in it: 1, or 2 for UTF-16
    bool bigEndian = false;
    bool utf8 = true;  // else each byte of a source of one byte a character is one

  private:
    static constexpr std::size_t kBlock = 1024;
    union Slot {  // nodes are made in place, and need no end
        Slot() noexcept {}
        CXmlNode node;
    };
    static constexpr std::size_t kRecent = 8;

    unsigned UnitAt(std::uint32_t offset) const noexcept;

    ULONG m_references = 1;
    std::size_t m_size = 0;
    std::vector<std::unique_ptr<Slot[]>> m_blocks;
    struct CName {
        std::string text;
        std::size_t bearers = 0;
    };
    std::deque<CName> m_names;
    std::unordered_map<std::string_view, XmlName> m_nameIds;
    // Documents use few names, over and over.
    struct Recent {
        CXmlTag tag{{}};
        XmlName id = kNoXmlName;
    };
    Recent m_recent[kRecent];
    std::size_t m_oldest = 0;
    struct Place {
        DWORD line = 1;
        DWORD column = 1;
    };
    void Pass(Place& place, std::uint32_t offset) const noexcept;
    static constexpr std::uint32_t kStride = 4096;
    std::vector<Place> m_places;  // of every so many bytes; made when the first one is asked for
};

// The text of the node and all below it.
std::string XmlTextOf(const CXmlNode& node);
// The node as markup, entities replaced by what they stand for. Without an XML declaration.
std::string XmlMarkupOf(const CXmlNode& node);

// An object of its own that clients count; it goes with its last reference.
template <class Interface>
class CXmlObject : public Interface {
  public:
    STDMETHODIMP QueryInterface(REFIID iid, void** object) override {
        if (!object) return E_POINTER;
        *object = iid == IID_IUnknown || Serves(iid) ? this : nullptr;
        if (!*object) return E_NOINTERFACE;
        AddRef();
        return S_OK;
    }
    STDMETHODIMP_(ULONG) AddRef() override { return ++m_references; }
    STDMETHODIMP_(ULONG) Release() override {
        const ULONG left = --m_references;
        if (left == 0) delete this;
        return left;
    }

  protected:
    virtual ~CXmlObject() = default;
    virtual bool Serves(REFIID iid) const noexcept = 0;

  private:
    ULONG m_references = 1;
};

// What a handler of results needs: `make` returns the result, and std::bad_alloc becomes E_OUTOFMEMORY.
template <class Make>
HRESULT XmlGuarded(Make make) noexcept {
    try {
        return make();
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
}

// A new string of UTF-8 text; null when there is no memory.
BSTR BstrOf(std::string_view utf8) noexcept;
HRESULT GiveBstr(std::string_view utf8, BSTR* out) noexcept;

// All elements of that local name, or of any for "*", below a node; entities are not looked into.
HRESULT FindElements(CXmlTree& tree, BSTR name, IXMLDOMNodeList** found) noexcept;

// Identifies the layer's own nodes to OvNodePosition.
inline constexpr IID kXmlNodeId = {0x3C4A1D52, 0x6E0B, 0x4F0E, {0x9A, 0x11, 0x5D, 0x7E, 0x20, 0x64, 0xB1, 0x8C}};
