// XML documents for tests, and short questions to their nodes.
#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "module/ComPtr.h"

inline std::string Narrow(wstr_view text) {
    std::string out;
    if (text.empty()) return out;
    out.resize(3 * text.size());
    out.resize(
        static_cast<std::size_t>(WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), out.data(),
                                                     static_cast<int>(out.size()), nullptr, nullptr)));
    return out;
}

inline wstr WidePath(const std::filesystem::path& path) {
    if constexpr (sizeof(std::filesystem::path::value_type) == sizeof(WCHAR)) {
        return {path.native().begin(), path.native().end()};
    } else {
        const std::u16string text = path.u16string();
        return {text.begin(), text.end()};
    }
}

inline std::string Name(IXMLDOMNode* node) {
    CComBSTR name;
    EXPECT_EQ(node->get_nodeName(&name), S_OK);
    return Narrow(name.View());
}

inline std::string Text(IXMLDOMNode* node) {
    CComBSTR text;
    EXPECT_EQ(node->get_text(&text), S_OK);
    return Narrow(text.View());
}

// "name|text" of each node, with its type in front when that is asked for.
inline std::vector<std::string> Lines(IXMLDOMNodeList* list, bool typed) {
    std::vector<std::string> lines;
    LONG count = 0;
    EXPECT_EQ(list->get_length(&count), S_OK);
    for (LONG i = 0; i < count; ++i) {
        CComPtr<IXMLDOMNode> node;
        EXPECT_EQ(list->get_item(i, &node), S_OK);
        if (!node) break;
        DOMNodeType type = {};
        node->get_nodeType(&type);
        lines.push_back((typed ? std::to_string(type) + "|" : "") + Name(node.Get()) + "|" + Text(node.Get()));
    }
    return lines;
}

// A document as the system makes it, and what its last load came to.
class CTestDocument {
  public:
    CTestDocument() {
        CLSID id;
        EXPECT_EQ(CLSIDFromProgID(W("Msxml2.DOMDocument"), &id), S_OK);
        EXPECT_EQ(CoCreateInstance(id, nullptr, CLSCTX_ALL, IID_IXMLDOMDocument, reinterpret_cast<void**>(&m_document)),
                  S_OK);
        m_document->put_async(VARIANT_FALSE);
    }
    IXMLDOMDocument* operator->() const noexcept { return m_document.Get(); }
    IXMLDOMDocument* Get() const noexcept { return m_document.Get(); }

    void LoadText(const wstr& text) {
        const CComBSTR xml{wstr_view(text)};
        m_hr = m_document->loadXML(xml.Get(), &m_loaded);
    }
    void LoadText(std::nullptr_t) { m_hr = m_document->loadXML(nullptr, &m_loaded); }
    void LoadPath(const wstr& path) {
        const CComBSTR file{wstr_view(path)};
        m_hr = m_document->load(VariantOf(file), &m_loaded);
    }
    void LoadBytes(const std::filesystem::path& folder, const std::string& bytes) {
        std::ofstream(folder / "document.xml", std::ios::binary) << bytes;
        LoadPath(WidePath(folder / "document.xml"));
    }
    // The result and the flag of success.
    std::string Outcome() const {
        char text[32];
        std::snprintf(text, sizeof text, "0x%08X %d", static_cast<unsigned>(m_hr), m_loaded);
        return text;
    }
    // Null in a document that did not load.
    CComPtr<IXMLDOMNode> Root() const {
        CComPtr<IXMLDOMElement> element;
        m_document->get_documentElement(&element);
        return CComPtr<IXMLDOMNode>(element.Get());
    }

  private:
    CComPtr<IXMLDOMDocument> m_document;
    HRESULT m_hr = S_OK;
    VARIANT_BOOL m_loaded = VARIANT_FALSE;
};
