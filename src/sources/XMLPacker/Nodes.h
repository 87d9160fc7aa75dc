// Small questions to nodes. A failure of the document model counts as no.
#pragma once

#include "module/ComPtr.h"

inline CComPtr<IXMLDOMNode> NodeAt(IXMLDOMNodeList* list, LONG index) noexcept {
    CComPtr<IXMLDOMNode> node;
    if (FAILED(list->get_item(index, &node))) node.Release();
    return node;
}

inline bool IsElement(IXMLDOMNode* node) noexcept {
    DOMNodeType type = {};
    return node->get_nodeType(&type) == S_OK && type == NODE_ELEMENT;
}

inline CComBSTR NodeName(IXMLDOMNode* node) noexcept {
    CComBSTR name;
    node->get_nodeName(&name);
    return name;
}
