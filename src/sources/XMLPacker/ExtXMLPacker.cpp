#include "sources/XMLPacker/ExtXMLPacker.h"

#include <cerrno>

#include "diagnostics/TraceScope.h"
#include "sources/XMLPacker/Checks.h"
#include "sources/XMLPacker/Nodes.h"
#include "store/PolicyNames.h"

namespace {

constexpr LPCWSTR XML_ITEMS = W("Items");
constexpr LPCWSTR XML_GROUP = W("Group");
constexpr LPCWSTR XML_ITEM = W("Item");
constexpr LPCWSTR XML_POLICIES = W("Policies");

// Names and types compare with regard to case.
bool TextEquals(BSTR text, LPCWSTR expected) {
    const CComBSTR other(expected);
    return VarBstrCmp(text, other.Get(), LOCALE_USER_DEFAULT, 0) == static_cast<HRESULT>(VARCMP_EQ);
}

}  // namespace

HRESULT CExtXMLPacker::SetPolicyValues(DWORD, const OV_SERVER_INFO_EX*) {
    return E_NOTIMPL;
}

HRESULT CExtXMLPacker::ActivateDomains(const CDomains&) {
    return E_NOTIMPL;
}

bool CExtXMLPacker::GetChildText(BSTR childName, CComBSTR& text, IXMLDOMNode* node) {
    CComPtr<IXMLDOMNode> child;
    return node->selectSingleNode(childName, &child) == S_OK && child && child->get_text(&text) == S_OK;
}

bool CExtXMLPacker::ChildTextEquals(BSTR childName, LPCWSTR expected, IXMLDOMNode* node) {
    CComBSTR text;
    return GetChildText(childName, text, node) && TextEquals(text.Get(), expected);
}

bool CExtXMLPacker::GetItem(IXMLDOMNode* node, CComBSTR& name, CComBSTR& type, CComBSTR& data) const {
    return GetChildText(m_name.Get(), name, node) && GetChildText(m_type.Get(), type, node) &&
           GetChildText(m_data.Get(), data, node);
}

HRESULT CExtXMLPacker::ProcessOVSettings() noexcept {
    OVTraceNS::CTraceScope scope("CExtXMLPacker::ProcessOVSettings()", 0);
    return OVXMLCheck::Caught([&] { return ProcessGroups(Group::kPolicies, scope); });
}

HRESULT CExtXMLPacker::ProcessOVDomains() noexcept {
    OVTraceNS::CTraceScope scope("CExtXMLPacker::ProcessOVDomains()", 0);
    return OVXMLCheck::Caught([&] { return ProcessGroups(Group::kDomains, scope); });
}

// The one frame of both: the first group of that name in the one element Items.
HRESULT CExtXMLPacker::ProcessGroups(Group wanted, OVTraceNS::CTraceScope& scope) {
    const bool policies = wanted == Group::kPolicies;
    const LPCWSTR groupName = policies ? XML_POLICIES : W("Domains");
    OVXMLCheck::Result(m_hr, "m_hr");
    CComPtr<IXMLDOMNodeList> pIDOMItemsList;
    const HRESULT found = m_pDocument->getElementsByTagName(CComBSTR(XML_ITEMS).Get(), &pIDOMItemsList);
    OVXMLCheck::Present(found, pIDOMItemsList.Get(),
                        "( IS_OK( m_pDocument->getElementsByTagName( CComBSTR(XML_ITEMS), &pIDOMItemsList ) ) && "
                        "pIDOMItemsList )");
    LONG lItemsCount = 0;
    OVXMLCheck::Call(pIDOMItemsList->get_length(&lItemsCount), "pIDOMItemsList->get_length( &lItemsCount )");
    if (lItemsCount != 1) {
        scope.Print("...no data received");
        if (m_hr == S_OK && policies && lItemsCount == 0) PassOver(Oddity::kItemsMissing, W(""), nullptr);
        if (policies) NoteRest(Oddity::kItemsRepeated, W(""), pIDOMItemsList.Get(), 1);
        return S_FALSE;
    }
    CComPtr<IXMLDOMNode> xmlnItems;
    OVXMLCheck::Call(pIDOMItemsList->get_item(0, &xmlnItems), "pIDOMItemsList->get_item( 0, &xmlnItems )");
    CComPtr<IXMLDOMNodeList> pIDOMNodeList;
    OVXMLCheck::Call(xmlnItems->selectNodes(CComBSTR(XML_GROUP).Get(), &pIDOMNodeList),
                     "xmlnItems->selectNodes( CComBSTR(XML_GROUP), &pIDOMNodeList )");
    LONG lcount = 0;
    OVXMLCheck::Call(pIDOMNodeList->get_length(&lcount), "pIDOMNodeList->get_length( &lcount )");
    HRESULT hr = S_FALSE;
    LONG index = 0;
    for (bool matched = false; index < lcount && !matched; ++index) {
        const CComPtr<IXMLDOMNode> xmlnGroup = NodeAt(pIDOMNodeList.Get(), index);
        matched = xmlnGroup && ChildTextEquals(m_name.Get(), groupName, xmlnGroup.Get());
        if (!matched) continue;
        hr = policies ? _parsePolicies(xmlnGroup.Get()) : _restoreDomains(xmlnGroup.Get());
        OVXMLCheck::Result(hr, policies ? "hr = _parsePolicies( xmlnGroup )" : "hr = _restoreDomains( xmlnGroup )");
    }
    if (hr == S_FALSE) PassOver(Oddity::kGroupMissing, groupName, xmlnItems.Get());
    for (; m_observer && index < lcount; ++index) {
        const CComPtr<IXMLDOMNode> another = NodeAt(pIDOMNodeList.Get(), index);
        if (!another || !ChildTextEquals(m_name.Get(), groupName, another.Get())) continue;
        PassOver(Oddity::kGroupRepeated, groupName, another.Get());
    }
    return hr;
}

HRESULT CExtXMLPacker::_parsePolicies(IXMLDOMNode* pxmlnGroup) noexcept {
    OVTraceNS::CTraceScope scope("CExtXMLPacker::_parsePolicies()", 0);
    return OVXMLCheck::Caught([&]() -> HRESULT {
        CComPtr<IXMLDOMNodeList> pIDOMItemsList;
        CComPtr<IXMLDOMNode> xmlnPolicies;
        if (pxmlnGroup->selectSingleNode(CComBSTR(XML_POLICIES).Get(), &xmlnPolicies) == S_OK && xmlnPolicies) {
            OVXMLCheck::Call(xmlnPolicies->get_childNodes(&pIDOMItemsList),
                             "xmlnPolicies->get_childNodes(&pIDOMItemsList)");
        } else {
            OVXMLCheck::Call(pxmlnGroup->selectNodes(CComBSTR(XML_ITEM).Get(), &pIDOMItemsList),
                             "pxmlnGroup->selectNodes(CComBSTR(XML_ITEM), &pIDOMItemsList)");
        }
        LONG lCount = 0;
        OVXMLCheck::Call(pIDOMItemsList->get_length(&lCount), "pIDOMItemsList->get_length( &lCount )");
        for (LONG index = 0; index < lCount; ++index) {
            const CComPtr<IXMLDOMNode> item = NodeAt(pIDOMItemsList.Get(), index);
            if (!item) continue;
            CComBSTR bsItemName, bsItemType, bsData;
            if (!GetItem(item.Get(), bsItemName, bsItemType, bsData)) {
                NoteIncomplete(item.Get());
                continue;
            }
            m_node = item.Get();
            const HRESULT hr = _restorePolicy(bsItemName, bsItemType, bsData);
            m_node = nullptr;
            if (FAILED(hr)) NoteRest(Oddity::kNotReached, W(""), pIDOMItemsList.Get(), index + 1);
            OVXMLCheck::Result(hr, "_restorePolicy( bsItemName, bsItemType, bsData )");
        }
        return S_OK;
    });
}

// A number in base 16. What stands behind it does not count, and no digits are 0.
template <class Number>
Number CExtXMLPacker::ReadNumber(const CComBSTR& text, IXMLDOMNode* node) const {
    WCHAR* end = nullptr;
    errno = 0;
    Number number;
    if constexpr (sizeof(Number) == sizeof(ULONG)) {
        number = wcstoul(text.Text(), &end, 16);
    } else {
        number = wcstoull(text.Text(), &end, 16);
    }
    if (m_observer && (end == text.Text() || *end != 0 || errno == ERANGE)) {
        PassOver(Oddity::kNumberCut, text.Text(), node);
    }
    return number;
}

HRESULT CExtXMLPacker::_restorePolicy(const CComBSTR& name, const CComBSTR& type, const CComBSTR& data) {
    OVTraceNS::CTraceScope scope("CExtXMLPacker::_restorePolicy()", 0);
    const wstr_view typeName = type.View();
    OV_SERVER_INFO_EX record = {name.Text(), S_OK, {}};
    if (typeName == W("REG_DWORD")) {
        record.value = {OV_TYPE_DWORD, ReadNumber<ULONG>(data, m_node), nullptr};
    } else if (typeName == W("REG_QWORD")) {
        record.value = {OV_TYPE_QWORD, ReadNumber<ULONGLONG>(data, m_node), nullptr};
    } else if (typeName == W("REG_SZ")) {
        record.value = {OV_TYPE_STRING, reinterpret_cast<ULONG_PTR>(data.Text()), nullptr};
    } else {
        PassOver(Oddity::kUnknownType, type.Text(), m_node);
        return E_INVALIDARG;
    }
    return SetPolicyValues(1, &record);
}

HRESULT CExtXMLPacker::_restoreDomains(IXMLDOMNode* pxmlnGroup) noexcept {
    OVTraceNS::CTraceScope scope("CExtXMLPacker::_restoreDomains()", 0);
    return OVXMLCheck::Caught([&]() -> HRESULT {
        CComPtr<IXMLDOMNodeList> pIDOMItemsList;
        OVXMLCheck::Call(pxmlnGroup->selectNodes(CComBSTR(XML_ITEM).Get(), &pIDOMItemsList),
                         "pxmlnGroup->selectNodes( CComBSTR(XML_ITEM), &pIDOMItemsList )");
        LONG lCount = 0;
        OVXMLCheck::Call(pIDOMItemsList->get_length(&lCount), "pIDOMItemsList->get_length( &lCount )");
        scope.Print("From XML: %d domain(s)", lCount);
        CDomains smDomains;
        for (LONG index = 0; index < lCount; ++index) {
            const CComPtr<IXMLDOMNode> item = NodeAt(pIDOMItemsList.Get(), index);
            if (item) ReadDomain(item.Get(), smDomains);
        }
        OVXMLCheck::Result(ActivateDomains(smDomains), "ActivateDomains( smDomains )");
        return S_OK;
    });
}

void CExtXMLPacker::ReadDomain(IXMLDOMNode* item, CDomains& smDomains) {
    CComBSTR name, data;
    if (!GetChildText(m_name.Get(), name, item) || !GetChildText(m_data.Get(), data, item)) {
        NoteIncomplete(item);
    } else if (!ChildTextEquals(m_type.Get(), W("boolean"), item)) {
        CComBSTR type;
        GetChildText(m_type.Get(), type, item);
        PassOver(Oddity::kNotBoolean, type.Text(), item);
    } else {
        if (data.Get()) CharLowerBuffW(data.Get(), SysStringLen(data.Get()));
        smDomains.push_back({wstr(name.View()), TextEquals(data.Get(), W("true")),
                             m_observer ? CComPtr<IXMLDOMNode>(item) : CComPtr<IXMLDOMNode>()});
    }
}

// Tells which children an element lacks that was passed over; comments and the like are none.
void CExtXMLPacker::NoteIncomplete(IXMLDOMNode* node) const {
    if (!m_observer || !IsElement(node)) return;
    wstr missing;
    for (const CComBSTR* tag : {&m_name, &m_type, &m_data}) {
        CComBSTR text;
        if (!GetChildText(tag->Get(), text, node))
            missing.append(missing.empty() ? W("") : W(", ")).append(tag->View());
    }
    PassOver(Oddity::kIncomplete, missing.c_str(), node);
}

void CExtXMLPacker::NoteRest(Oddity oddity, LPCWSTR detail, IXMLDOMNodeList* list, LONG from) const {
    if (!m_observer) return;
    while (const CComPtr<IXMLDOMNode> node = NodeAt(list, from++)) {
        if (IsElement(node.Get())) PassOver(oddity, detail, node.Get());
    }
}

HRESULT CExtXMLPacker::ProcessOVAuthPolicies() noexcept {
    OVTraceNS::CTraceScope scope("CExtXMLPacker::ProcessOVAuthPolicies()", 0);
    return OVXMLCheck::Caught([&]() -> HRESULT {
        OVXMLCheck::Result(m_hr, "m_hr");
        CComPtr<IXMLDOMElement> pXMLElement;
        const HRESULT element = m_pDocument->get_documentElement(&pXMLElement);
        OVXMLCheck::Present(element, pXMLElement.Get(),
                            "( IS_OK( m_pDocument->get_documentElement( &pXMLElement ) ) && pXMLElement )");
        CComPtr<IXMLDOMNodeList> pIDOMItemsList;
        const HRESULT children = pXMLElement->get_childNodes(&pIDOMItemsList);
        OVXMLCheck::Present(children, pIDOMItemsList.Get(),
                            "( IS_OK( pXMLElement->get_childNodes( &pIDOMItemsList ) ) && pIDOMItemsList )");
        LONG lCount = 0;
        OVXMLCheck::Call(pIDOMItemsList->get_length(&lCount), "pIDOMItemsList->get_length( &lCount )");
        for (LONG index = 0; index < lCount; ++index) {
            const CComPtr<IXMLDOMNode> xmlnItem = NodeAt(pIDOMItemsList.Get(), index);
            if (!xmlnItem) continue;
            m_node = xmlnItem.Get();
            const HRESULT hr = _parseAuthPolicy(xmlnItem.Get());
            m_node = nullptr;
            if (FAILED(hr)) NoteRest(Oddity::kNotReached, W(""), pIDOMItemsList.Get(), index + 1);
            OVXMLCheck::Result(hr, "_parseAuthPolicy( xmlnItem )");
        }
        return S_FALSE;
    });
}

HRESULT CExtXMLPacker::_parseAuthPolicy(IXMLDOMNode* pxmlnItem) noexcept {
    OVTraceNS::CTraceScope scope("CExtXMLPacker::_parseAuthPolicy()", 0);
    return OVXMLCheck::Caught([&]() -> HRESULT {
        CComPtr<IXMLDOMNodeList> pIDOMItemsList;
        OVXMLCheck::Call(pxmlnItem->selectNodes(CComBSTR(W("PolicyItems")).Get(), &pIDOMItemsList),
                         "pxmlnItem->selectNodes( CComBSTR(XML_POLICYITEMS), &pIDOMItemsList )");
        LONG lCount = 0;
        OVXMLCheck::Call(pIDOMItemsList->get_length(&lCount), "pIDOMItemsList->get_length( &lCount )");
        if (lCount == 1) return ParseList(pxmlnItem, pIDOMItemsList.Get(), scope);
        CComBSTR name, type, data;
        if (GetItem(pxmlnItem, name, type, data)) {
            const wstr longName = wstr(AppsPolicyPrefix).append(1, W('\\')).append(name.View());
            return _restorePolicy(CComBSTR(wstr_view(longName)), type, data);
        }
        scope.Print("...not a policy");
        if (m_observer && IsElement(pxmlnItem)) PassOver(Oddity::kNotAPolicy, NodeName(pxmlnItem).Text(), pxmlnItem);
        return S_FALSE;
    });
}

HRESULT CExtXMLPacker::ParseList(IXMLDOMNode* pxmlnItem, IXMLDOMNodeList* pIDOMItemsList,
                                 OVTraceNS::CTraceScope& scope) {
    CComPtr<IXMLDOMNode> xmlnItems;
    OVXMLCheck::Call(pIDOMItemsList->get_item(0, &xmlnItems), "pIDOMItemsList->get_item( 0, &xmlnItems )");
    CComPtr<IXMLDOMNodeList> pIDOMNodeList;
    OVXMLCheck::Call(xmlnItems->selectNodes(CComBSTR(W("PolicyItem")).Get(), &pIDOMNodeList),
                     "xmlnItems->selectNodes( CComBSTR(XML_POLICYITEM), &pIDOMNodeList )");
    LONG lcount = 0;
    OVXMLCheck::Call(pIDOMNodeList->get_length(&lcount), "pIDOMNodeList->get_length( &lcount )");
    scope.Print("From XML: %d policy items(s)", lcount);
    CPolicyValue masks;
    for (LONG index = 0; index < lcount; ++index) {
        const CComPtr<IXMLDOMNode> xmlnNode = NodeAt(pIDOMNodeList.Get(), index);
        if (!xmlnNode) continue;
        CComBSTR bsText;
        OVXMLCheck::Call(xmlnNode->get_text(&bsText), "xmlnNode->get_text( &bsText )");
        CPolicyValue mask;
        mask.SetNumber(OV_TYPE_QWORD, ReadNumber<ULONGLONG>(bsText, xmlnNode.Get()));
        masks.Append(mask);
    }
    CComBSTR bsName;
    OVXMLCheck::Call(pxmlnItem->get_nodeName(&bsName), "pxmlnItem->get_nodeName( &bsName )");
    if (masks.Type() == OV_TYPE_NONE) PassOver(Oddity::kEmptyList, bsName.Text(), pxmlnItem);
    const OV_SERVER_INFO_EX record = {bsName.Text(), S_OK, masks.Raw()};
    return SetPolicyValues(1, &record);
}
