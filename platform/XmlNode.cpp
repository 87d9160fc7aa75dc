// Nodes and lists of them, as clients see them.
#include "XmlTree.h"

#include <cstring>
#include <new>
#include <tuple>

#include "Home.h"
#include "Utf8.h"

namespace {

class CXmlNodeList final : public IXMLDOMNodeList {
  public:
    explicit CXmlNodeList(CXmlTree& tree) noexcept : m_tree(tree) { m_tree.AddRef(); }

    STDMETHODIMP QueryInterface(REFIID iid, void** object) override {
        if (!object) return E_POINTER;
        *object = iid == IID_IUnknown || iid == IID_IXMLDOMNodeList ? this : nullptr;
        if (!*object) return E_NOINTERFACE;
        AddRef();
        return S_OK;
    }
    STDMETHODIMP_(ULONG) AddRef() override { return ++m_references; }
    STDMETHODIMP_(ULONG) Release() override {
        const ULONG left = --m_references;
        if (left == 0) {
            m_tree.Release();
            delete this;
        }
        return left;
    }
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
    CXmlTree& m_tree;
    ULONG m_references = 1;
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
    explicit CQueryName(BSTR query) {
        const char16_t* at = query;
        const char16_t* const end = query + SysStringLen(query);
        char bytes[4];
        while (at != end) {
            const char32_t point = NextUtf16(at, end);
            Append({bytes, PutUtf8(point == kBadText ? kReplacement : point, bytes)});
        }
    }
    std::string_view Text() const noexcept { return m_long.empty() ? std::string_view(m_short, m_length) : m_long; }
    bool IsAll() const noexcept { return Text() == "*"; }
    // A tag, with or without a prefix. Not by the letter of the standard, but no other query is one.
    bool IsName() const noexcept {
        const std::string_view text = Text();
        if (text.empty() || text[0] == '-' || text[0] == '.' || (text[0] >= '0' && text[0] <= '9')) return false;
        return text.find_first_of(" \t\r\n/|*@()[]<>='\",!&$#;+?{}^`~\\%") == std::string_view::npos;
    }

  private:
    void Append(std::string_view piece) {
        if (m_long.empty() && m_length + piece.size() <= sizeof m_short) {
            std::memcpy(m_short + m_length, piece.data(), piece.size());
            m_length += piece.size();
            return;
        }
        if (m_long.empty()) m_long.assign(m_short, m_length);
        m_long += piece;
    }
    char m_short[64];
    std::size_t m_length = 0;
    std::string m_long;
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
        if (query.Text() == "/") return E_FAIL;
        return GiveList(tree, found, [&](std::vector<XmlIndex>& nodes) {
            // In document order, from node to node.
            for (XmlIndex at = tree.Document().first; at != kNoXmlNode;) {
                const CXmlNode& node = tree.Node(at);
                if (node.kind == NODE_ELEMENT && (query.IsAll() || tree.LocalName(node.name) == query.Text())) {
                    nodes.push_back(at);
                }
                XmlIndex next = node.kind == NODE_ELEMENT ? node.first : kNoXmlNode;
                for (XmlIndex up = at; next == kNoXmlNode && up != kXmlDocument; up = tree.Node(up).parent) {
                    next = tree.Node(up).next;
                }
                at = next;
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
        std::string_view content = m_tree->PoolText(*only);
        constexpr const char* kBlanks = " \t\r\n";
        const std::size_t begin = content.find_first_not_of(kBlanks);
        if (begin == std::string_view::npos) return GiveBstr({}, text);
        content = content.substr(begin, content.find_last_not_of(kBlanks) + 1 - begin);
        return GiveBstr(content, text);
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
        const XmlName wanted = m_tree->FindName(tag.Text());
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
        const XmlName wanted = m_tree->FindName(tag.Text());
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
    const bool known = !own->Tree().source.empty();
    if (known) std::tie(*line, *column) = own->Tree().PlaceOf(own->offset);
    own->Release();
    return known;
}
