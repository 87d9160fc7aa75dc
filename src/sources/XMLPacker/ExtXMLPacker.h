// CExtXMLPacker: the walks through policy documents. Each hands over what it finds as it finds it, to the two virtual
// operations, and undoes nothing when it ends early.
//
//   settings   anywhere: Items, once; in it a Group with the Name "Policies"; in that the items, or Policies with them
//              item: Name, Type ("REG_DWORD", "REG_QWORD", "REG_SZ"), Data (numbers in base 16)
//   domains    as above, with the Name "Domains"; item: Name, Type "boolean", Data "true" or anything else
//   policies   the children of the document element: an element of the policy's name with PolicyItems, in it one
//              PolicyItem a mask; or an item as above, of a name below AppsPolicyPrefix
//
// Results  0 or 1 for a walk that came to its end, else the code of the check that failed (see Checks.h).
#pragma once

#include <orvantis/ServerInfo.h>

#include <utility>
#include <vector>

#include "sources/LoadObserver.h"
#include "sources/XMLPacker/XMLDoc.h"

class CExtXMLPacker : public OVXMLDoc {
  public:
    // A name and whether it is on, in document order.
    struct CDomain {
        wstr name;
        BOOL active;
        CComPtr<IXMLDOMNode> node;  // where it was found, for an observer
    };
    using CDomains = std::vector<CDomain>;

    using OVXMLDoc::OVXMLDoc;

    virtual HRESULT SetPolicyValues(DWORD count, const OV_SERVER_INFO_EX* records);
    virtual HRESULT ActivateDomains(const CDomains& smDomains);

    // 0; 1 without data, or without a group of that name.
    HRESULT ProcessOVSettings() noexcept;
    HRESULT ProcessOVDomains() noexcept;
    // 1.
    HRESULT ProcessOVAuthPolicies() noexcept;

    // Null for none. Before a walk.
    void Observe(CLoadObserver* observer) noexcept { m_observer = observer; }

  protected:
    // Tells the observer, if there is one.
    void PassOver(Oddity oddity, LPCWSTR detail, IXMLDOMNode* node) const {
        if (m_observer) m_observer->PassedOver(oddity, detail, {node, nullptr, m_node});
    }

    CLoadObserver* m_observer = nullptr;
    IXMLDOMNode* m_node = nullptr;  // the one that is being handed over; not counted

  private:
    enum class Group { kPolicies, kDomains };

    HRESULT ProcessGroups(Group wanted, OVTraceNS::CTraceScope& scope);
    HRESULT _parsePolicies(IXMLDOMNode* pxmlnGroup) noexcept;
    HRESULT _restorePolicy(const CComBSTR& name, const CComBSTR& type, const CComBSTR& data);
    HRESULT _parseAuthPolicy(IXMLDOMNode* pxmlnItem) noexcept;
    HRESULT ParseList(IXMLDOMNode* pxmlnItem, IXMLDOMNodeList* pIDOMItemsList, OVTraceNS::CTraceScope& scope);
    HRESULT _restoreDomains(IXMLDOMNode* pxmlnGroup) noexcept;
    void ReadDomain(IXMLDOMNode* item, CDomains& smDomains);

    static bool GetChildText(BSTR childName, CComBSTR& text, IXMLDOMNode* node);
    static bool ChildTextEquals(BSTR childName, LPCWSTR expected, IXMLDOMNode* node);
    // Name, Type and Data of an item; false when one of them is missing.
    bool GetItem(IXMLDOMNode* node, CComBSTR& name, CComBSTR& type, CComBSTR& data) const;
    void NoteIncomplete(IXMLDOMNode* node) const;
    void NoteRest(Oddity oddity, LPCWSTR detail, IXMLDOMNodeList* list, LONG from) const;
    template <class Number>
    Number ReadNumber(const CComBSTR& text, IXMLDOMNode* node) const;

    // The tags that every item has.
    const CComBSTR m_name{W("Name")};
    const CComBSTR m_type{W("Type")};
    const CComBSTR m_data{W("Data")};
};
