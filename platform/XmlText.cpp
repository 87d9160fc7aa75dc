// What a tree says: the text below a node, and its markup.
#include <algorithm>

#include "XmlTree.h"

namespace {

constexpr std::string_view kBlanks = " \t\r\n";

// Walks from a node through all below it, entities included. Only entities nest calls, and they nest in few levels.
template <class Visitor>
void Walk(const CXmlTree& tree, const CXmlNode& top, Visitor& visitor) {
    const CXmlNode* at = &top;
    for (;;) {
        visitor.Enter(*at);
        if (at->kind == NODE_ENTITY_REFERENCE && at->start != kNoXmlNode) {
            for (XmlIndex part = tree.Node(at->start).first; part != kNoXmlNode; part = tree.Node(part).next) {
                Walk(tree, tree.Node(part), visitor);
            }
        }
        if (at->first != kNoXmlNode) {
            at = &tree.Node(at->first);
            continue;
        }
        visitor.Leave(*at);
        while (at != &top && at->next == kNoXmlNode) {
            at = &tree.Node(at->parent);
            visitor.Leave(*at);
        }
        if (at == &top) return;
        at = &tree.Node(at->next);
    }
}

// Collects text. Blanks at its ends do not count, but for those that CDATA or xml:space keeps.
class CTextVisitor {
  public:
    CTextVisitor(const CXmlTree& tree, const CXmlNode& top) noexcept : m_tree(tree), m_top(top) {}

    void Enter(const CXmlNode& node) {
        if (node.blankBefore && &node != &m_top) m_text += ' ';
        if (node.kind != NODE_TEXT && node.kind != NODE_CDATA_SECTION) return;
        const bool kept = node.kind == NODE_CDATA_SECTION || (node.preserve && &node != &m_top);
        if (kept) m_keptFrom = std::min(m_keptFrom, m_text.size());
        m_text += m_tree.PoolText(node);
        if (kept) m_keptTo = m_text.size();
    }
    void Leave(const CXmlNode& node) {
        if (node.blankAtEnd) m_text += ' ';
    }
    std::string Take() {
        const std::size_t end = std::max(m_text.find_last_not_of(kBlanks) + 1, m_keptTo);
        m_text.resize(end);
        m_text.erase(0, std::min({m_text.find_first_not_of(kBlanks), m_keptFrom, end}));
        return std::move(m_text);
    }

  private:
    const CXmlTree& m_tree;
    const CXmlNode& m_top;
    std::string m_text;
    std::size_t m_keptFrom = std::string::npos;
    std::size_t m_keptTo = 0;
};

class CMarkupVisitor {
  public:
    explicit CMarkupVisitor(const CXmlTree& tree) noexcept : m_tree(tree) {}

    void Enter(const CXmlNode& node) {
        if (node.blankBefore) m_xml += ' ';
        if (node.kind == NODE_ENTITY_REFERENCE) return;
        const std::string_view text = m_tree.PoolText(node);
        switch (node.kind) {
            case NODE_ELEMENT:
                m_xml.append("<").append(m_tree.Name(node.name)).append(text).append(IsEmpty(node) ? "/>" : ">");
                break;
            case NODE_TEXT:
                AppendEscaped(text);
                break;
            case NODE_CDATA_SECTION:
                m_xml.append("<![CDATA[").append(text).append("]]>");
                break;
            case NODE_COMMENT:
                m_xml.append("<!--").append(text).append("-->");
                break;
            case NODE_PROCESSING_INSTRUCTION:
                // The declaration tells of an encoding that is no longer that of the text.
                if (m_tree.Name(node.name) == "xml") break;
                m_xml.append("<?").append(m_tree.Name(node.name)).append(" ").append(text).append("?>");
                break;
            default:
                break;
        }
    }
    void Leave(const CXmlNode& node) {
        if (node.blankAtEnd) m_xml += ' ';
        if (node.kind == NODE_ELEMENT && !IsEmpty(node)) m_xml.append("</").append(m_tree.Name(node.name)).append(">");
    }
    std::string Take() { return std::move(m_xml); }

  private:
    static bool IsEmpty(const CXmlNode& node) noexcept { return node.first == kNoXmlNode && !node.blankAtEnd; }
    void AppendEscaped(std::string_view text) {
        for (const char c : text) {
            switch (c) {
                case '&':
                    m_xml += "&amp;";
                    break;
                case '<':
                    m_xml += "&lt;";
                    break;
                case '>':
                    m_xml += "&gt;";
                    break;
                case '\r':
                    m_xml += "&#13;";
                    break;
                default:
                    m_xml += c;
                    break;
            }
        }
    }
    const CXmlTree& m_tree;
    std::string m_xml;
};

}  // namespace

std::string XmlTextOf(const CXmlNode& node) {
    if (node.kind == NODE_COMMENT || node.kind == NODE_PROCESSING_INSTRUCTION) {
        return std::string(node.Tree().PoolText(node));
    }
    if (node.kind == NODE_ENTITY_REFERENCE) return {};
    CTextVisitor visitor(node.Tree(), node);
    Walk(node.Tree(), node, visitor);
    return visitor.Take();
}

std::string XmlMarkupOf(const CXmlNode& node) {
    CMarkupVisitor visitor(node.Tree());
    Walk(node.Tree(), node, visitor);
    return visitor.Take();
}
