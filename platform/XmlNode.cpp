// Nodes and lists of them, as clients see them.
#include "XmlTree.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <tuple>

#include "Home.h"
#include "Utf8.h"

namespace {

class CXmlNodeList final : public CXmlObject<IXMLDOMNodeList> {
  public:
    explicit CXmlNodeList(CXmlTree& tree) noexcept : m_tree(tree) { m_tree.AddRef(); }
    ~CXmlNodeList() override { m_tree.Release(); }

    STDMETHODIMP get_item(LONG index, IXMLDOMNode** item) override {
        if (!item) return E_INVALIDARG;
        *item = nullptr;
        if (index < 0 || static_cast<std::size_t>(index) >= nodes.size()) return S_FALSE;
        *item = &m_tree.Node(nodes[static_cast<std::size_t>(index)]);
        m_tree.AddRef();
        return S_OK;
    }
    STDMETHODIMP get_length(LONG* length) override {
        if (!length) return E_INVALIDARG;
        *length = static_cast<LONG>(nodes.size());
        return S_OK;
    }

    std::vector<XmlIndex> nodes;

  private:
    bool Serves(REFIID iid) const noexcept override { return iid == IID_IXMLDOMNodeList; }

    CXmlTree& m_tree;
};

// A list that `fill` fills.
template <class Fill>
HRESULT GiveList(CXmlTree& tree, IXMLDOMNodeList** out, Fill fill) noexcept {
    return XmlGuarded([&]() -> HRESULT {
        auto* list = new CXmlNodeList(tree);
        try {
            fill(list->nodes);
        } catch (...) {
            list->Release();
            throw;
        }
        *out = list;
        return S_OK;
    });
}

// A tag of a query, in UTF-8 without an allocation for what is usual.
class CQueryName {
  public:
    explicit CQueryName(BSTR query) : m_tag(Narrow(query)) {}
    const CXmlTag& Tag() const noexcept { return m_tag; }
    bool IsAll() const noexcept { return m_tag.text == "*"; }
    // A tag, with or without a prefix. Not by the letter of the standard, but no other query is one.
    bool IsName() const noexcept {
        const std::string_view text = m_tag.text;
        if (text.empty() || text[0] == '-' || text[0] == '.' || (text[0] >= '0' && text[0] <= '9')) return false;
        return std::all_of(text.begin(), text.end(), [](char c) {
            return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' || c == ':' ||
                   c == '-' || c == '.' || static_cast<unsigned char>(c) >= 0x80;
        });
    }

  private:
    std::string_view Narrow(BSTR query) {
        const std::u16string_view units(query, SysStringLen(query));
        if (units.size() > sizeof m_short) return m_long = ToUtf8(units);
        for (std::size_t i = 0; i < units.size(); ++i) {
            if (units[i] >= 0x80) return m_long = ToUtf8(units);
            m_short[i] = static_cast<char>(units[i]);
        }
        return {m_short, units.size()};
    }
    char m_short[64];
    std::string m_long;
    CXmlTag m_tag;
};

const char* KindName(unsigned kind) noexcept {
    switch (kind) {
        case NODE_TEXT:
            return "#text";
        case NODE_CDATA_SECTION:
            return "#cdata-section";
        case NODE_COMMENT:
            return "#comment";
        default:
            return "#document";
    }
}

}  // namespace

BSTR BstrOf(std::string_view utf8) noexcept {
    if (utf8.size() > UINT32_MAX / sizeof(WCHAR)) return nullptr;
    // No more units than bytes.
    BSTR out = SysAllocStringLen(nullptr, static_cast<UINT>(utf8.size()));
    if (!out) return nullptr;
    const char* at = utf8.data();
    const char* const end = at + utf8.size();
    WCHAR* to = out;
    while (at != end) {
        constexpr std::size_t kStep = 8;
        std::uint64_t block;
        while (end - at >= static_cast<std::ptrdiff_t>(kStep)) {
            std::memcpy(&block, at, sizeof block);
            if (block & 0x8080808080808080u) break;
            for (std::size_t i = 0; i < kStep; ++i) to[i] = static_cast<unsigned char>(at[i]);
            at += kStep;
            to += kStep;
        }
        while (at != end && static_cast<unsigned char>(*at) < 0x80) *to++ = static_cast<unsigned char>(*at++);
        if (at != end) to += PutUtf16(NextUtf8(at, end), to);
    }
    const auto units = static_cast<UINT>(to - out);
    if (units == utf8.size()) return out;
    BSTR shorter = SysAllocStringLen(out, units);
    SysFreeString(out);
    return shorter;
}

HRESULT GiveBstr(std::string_view utf8, BSTR* out) noexcept {
    *out = BstrOf(utf8);
    return *out ? S_OK : E_OUTOFMEMORY;
}

HRESULT FindElements(CXmlTree& tree, BSTR name, IXMLDOMNodeList** found) noexcept {
    if (!found) return E_INVALIDARG;
    *found = nullptr;
    return XmlGuarded([&]() -> HRESULT {
        const CQueryName query(name);
        if (query.Tag().text == "/") return E_FAIL;
        std::vector<bool> wanted(tree.NameCount());
        std::size_t left = 0;
        for (XmlName id = 0; id < tree.NameCount(); ++id) {
            wanted[id] = query.IsAll() || tree.LocalName(id) == query.Tag().text;
            if (wanted[id]) left += tree.Bearers(id);
        }
        return GiveList(tree, found, [&](std::vector<XmlIndex>& nodes) {
            // Nodes are numbered in document order.
            for (XmlIndex at = 0; left != 0; ++at) {
                const CXmlNode& node = tree.Node(at);
                if (node.kind != NODE_ELEMENT || node.inEntity || !wanted[node.name]) continue;
                nodes.push_back(at);
                --left;
            }
        });
    });
}

STDMETHODIMP CXmlNode::QueryInterface(REFIID iid, void** object) {
    if (!object) return E_POINTER;
    const bool served = iid == IID_IUnknown || iid == IID_IXMLDOMNode || iid == kXmlNodeId ||
                        (iid == IID_IXMLDOMElement && kind == NODE_ELEMENT);
    *object = served ? this : nullptr;
    if (!served) return E_NOINTERFACE;
    AddRef();
    return S_OK;
}

STDMETHODIMP_(ULONG) CXmlNode::AddRef() {
    return m_tree->AddRef();
}

STDMETHODIMP_(ULONG) CXmlNode::Release() {
    return m_tree->Release();
}

STDMETHODIMP CXmlNode::get_nodeName(BSTR* text) {
    if (!text) return E_INVALIDARG;
    return GiveBstr(name == kNoXmlName ? KindName(kind) : m_tree->Name(name), text);
}

STDMETHODIMP CXmlNode::get_nodeType(DOMNodeType* type) {
    if (!type) return E_INVALIDARG;
    *type = static_cast<DOMNodeType>(kind);
    return S_OK;
}

STDMETHODIMP CXmlNode::get_childNodes(IXMLDOMNodeList** children) {
    if (!children) return E_INVALIDARG;
    *children = nullptr;
    return GiveList(*m_tree, children, [&](std::vector<XmlIndex>& nodes) {
        for (XmlIndex at = first; at != kNoXmlNode; at = m_tree->Node(at).next) nodes.push_back(at);
    });
}

STDMETHODIMP CXmlNode::get_text(BSTR* text) {
    if (!text) return E_INVALIDARG;
    *text = nullptr;
    // By far the most elements hold one run of text.
    const CXmlNode* only = kind == NODE_ELEMENT && first == last ? &m_tree->Node(first) : nullptr;
    if (only && first != kNoXmlNode && only->kind == NODE_TEXT && !only->preserve) {
        return GiveBstr(XmlTrimmed(m_tree->PoolText(*only)), text);
    }
    return XmlGuarded([&] { return GiveBstr(XmlTextOf(*this), text); });
}

STDMETHODIMP CXmlNode::get_xml(BSTR* xml) {
    if (!xml) return E_INVALIDARG;
    *xml = nullptr;
    return XmlGuarded([&] { return GiveBstr(XmlMarkupOf(*this), xml); });
}

STDMETHODIMP CXmlNode::selectNodes(BSTR query, IXMLDOMNodeList** found) {
    if (!found) return E_INVALIDARG;
    *found = nullptr;
    return XmlGuarded([&]() -> HRESULT {
        const CQueryName tag(query);
        if (!tag.IsAll() && !tag.IsName()) return E_FAIL;
        const XmlName wanted = m_tree->FindName(tag.Tag());
        return GiveList(*m_tree, found, [&](std::vector<XmlIndex>& nodes) {
            for (XmlIndex at = first; at != kNoXmlNode; at = m_tree->Node(at).next) {
                const CXmlNode& child = m_tree->Node(at);
                if (child.kind == NODE_ELEMENT && (tag.IsAll() || child.name == wanted)) nodes.push_back(at);
            }
        });
    });
}

STDMETHODIMP CXmlNode::selectSingleNode(BSTR query, IXMLDOMNode** found) {
    if (!found) return E_INVALIDARG;
    *found = nullptr;
    return XmlGuarded([&]() -> HRESULT {
        const CQueryName tag(query);
        if (!tag.IsAll() && !tag.IsName()) return E_FAIL;
        const XmlName wanted = m_tree->FindName(tag.Tag());
        for (XmlIndex at = first; at != kNoXmlNode; at = m_tree->Node(at).next) {
            CXmlNode& child = m_tree->Node(at);
            if (child.kind != NODE_ELEMENT || (!tag.IsAll() && child.name != wanted)) continue;
            *found = &child;
            AddRef();
            return S_OK;
        }
        return S_FALSE;
    });
}

BOOL WINAPI OvNodePosition(IXMLDOMNode* node, DWORD* line, DWORD* column) {
    void* found = nullptr;
    if (!node || !line || !column || FAILED(node->QueryInterface(kXmlNodeId, &found))) return FALSE;
    auto* own = static_cast<CXmlNode*>(found);
    const bool known = SUCCEEDED(XmlGuarded([&]() -> HRESULT {
        if (own->Tree().source.empty()) return E_FAIL;
        std::tie(*line, *column) = own->Tree().PlaceOf(own->offset);
        return S_OK;
    }));
    own->Release();
    return known;
}
