// The XML document object model: the operations that this tree calls, behind the names of the platform's.
//
// Served   what the declarations below say. A query is the name of an element, or "*"; everything else gives E_FAIL.
// Bounds   a document of 64 MiB (a text of as many units), 512 levels and 8,388,608 nodes, 256 entities nested in 16
//          levels, 256 defaults of attributes, names of namespaces of 4,096 bytes; and what entities and attributes
//          come to, 8 times the document and 64 KiB, a node counting 16 bytes. A document over one of them did not
//          load. Nothing outside of the document is ever read.
// Memory   strings that come out are the caller's to free with SysFreeString. A node keeps the whole tree that it
//          belongs to.
// Threads  a document and its nodes belong to one thread at a time.
#pragma once

#include "oleauto.h"
#include "unknwn.h"

inline constexpr IID IID_IXMLDOMNode = {0x2933BF80, 0x7B36, 0x11D2, {0xB2, 0x0E, 0x00, 0xC0, 0x4F, 0x98, 0x3E, 0x60}};
inline constexpr IID IID_IXMLDOMDocument = {
    0x2933BF81, 0x7B36, 0x11D2, {0xB2, 0x0E, 0x00, 0xC0, 0x4F, 0x98, 0x3E, 0x60}};
inline constexpr IID IID_IXMLDOMNodeList = {
    0x2933BF82, 0x7B36, 0x11D2, {0xB2, 0x0E, 0x00, 0xC0, 0x4F, 0x98, 0x3E, 0x60}};
inline constexpr IID IID_IXMLDOMElement = {
    0x2933BF86, 0x7B36, 0x11D2, {0xB2, 0x0E, 0x00, 0xC0, 0x4F, 0x98, 0x3E, 0x60}};
inline constexpr IID IID_IXMLDOMParseError = {
    0x3EFAA426, 0x272F, 0x11D2, {0x83, 0x6F, 0x00, 0x00, 0xF8, 0x7A, 0x77, 0x82}};

enum DOMNodeType {
    NODE_ELEMENT = 1,
    NODE_TEXT = 3,
    NODE_CDATA_SECTION = 4,
    NODE_ENTITY_REFERENCE = 5,
    NODE_PROCESSING_INSTRUCTION = 7,
    NODE_COMMENT = 8,
    NODE_DOCUMENT = 9,
};

struct IXMLDOMNode;

struct IXMLDOMNodeList : public IUnknown {
    // 1 and null past the end.
    STDMETHOD(get_item)(LONG index, IXMLDOMNode** item) = 0;
    STDMETHOD(get_length)(LONG* length) = 0;
};

struct IXMLDOMNode : public IUnknown {
    // The tag with its prefix; "#text" and the like for what has none.
    STDMETHOD(get_nodeName)(BSTR* name) = 0;
    STDMETHOD(get_nodeType)(DOMNodeType* type) = 0;
    // In order; text that is nothing but blanks is no node.
    STDMETHOD(get_childNodes)(IXMLDOMNodeList** children) = 0;
    // The text of the node and all below it, without the blanks at its ends.
    STDMETHOD(get_text)(BSTR* text) = 0;
    // As markup, from which the same tree can be loaded.
    STDMETHOD(get_xml)(BSTR* xml) = 0;
    // Child elements by their tag, as it is written.
    STDMETHOD(selectNodes)(BSTR query, IXMLDOMNodeList** found) = 0;
    // The first of them; 1 and null when there is none.
    STDMETHOD(selectSingleNode)(BSTR query, IXMLDOMNode** found) = 0;
};

struct IXMLDOMElement : public IXMLDOMNode {};

struct IXMLDOMParseError : public IUnknown {
    STDMETHOD(get_errorCode)(LONG* code) = 0;
    STDMETHOD(get_reason)(BSTR* reason) = 0;
    // From 1, in characters; 0 where no place is to blame.
    STDMETHOD(get_line)(LONG* line) = 0;
    STDMETHOD(get_linepos)(LONG* column) = 0;
};

struct IXMLDOMDocument : public IXMLDOMNode {
    // 1 and null in a document that did not load.
    STDMETHOD(get_documentElement)(IXMLDOMElement** element) = 0;
    // All elements of that local name, in document order.
    STDMETHOD(getElementsByTagName)(BSTR name, IXMLDOMNodeList** found) = 0;
    // A load is always finished when it returns.
    STDMETHOD(put_async)(VARIANT_BOOL async) = 0;
    // From a file (a path in a VT_BSTR) or from a text: 0, or 1 for what is not well-formed or cannot be read, with an
    // empty document. What was in the document before is gone at once.
    STDMETHOD(load)(VARIANT source, VARIANT_BOOL* loaded) = 0;
    STDMETHOD(loadXML)(BSTR xml, VARIANT_BOOL* loaded) = 0;
    // Writes a file in UTF-8 (a path in a VT_BSTR).
    STDMETHOD(save)(VARIANT destination) = 0;
    // Of the last load.
    STDMETHOD(get_parseError)(IXMLDOMParseError** error) = 0;
};
