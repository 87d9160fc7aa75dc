// CExtXMLPolicyReader: a policy document that is walked into a map. A name that the map has already stays as it is.
//
// A reader exists for one file or one text, and its document goes with it. What the walks hand over is inserted at
// once; failures of that end the walk and keep what was inserted before.
#pragma once

#include "sources/XMLPacker/ExtXMLPacker.h"
#include "store/PolicyMap.h"

class CExtXMLPolicyReader final : public CExtXMLPacker {
  public:
    // The map stays the caller's and outlives the reader.
    CExtXMLPolicyReader(LPCWSTR path, CPolicyMap& map, CLoadObserver* observer = nullptr);
    // With the text of a VT_BSTR.
    CExtXMLPolicyReader(const VARIANT& text, CPolicyMap& map);

    HRESULT SetPolicyValues(DWORD count, const OV_SERVER_INFO_EX* records) override;
    HRESULT ActivateDomains(const CDomains& smDomains) override;

  private:
    void Insert(CPolicyItem item, IXMLDOMNode* node);

    CPolicyMap& m_map;
};

// The walks that a file of that form is read by.
void WalkPolicyDocument(CExtXMLPacker& document, PolicyForm form) noexcept;
