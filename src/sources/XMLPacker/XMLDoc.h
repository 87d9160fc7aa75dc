// OVXMLDoc: an XML document, and how its loading went.
//
// Threads  a document belongs to one thread, for one walk.
#pragma once

#include <vector>

#include "Platform.h"
#include "module/ComPtr.h"

class OVXMLDoc {
  public:
    OVXMLDoc();
    // With the text of a VT_BSTR; every other VARIANT leaves 0x80070057 in m_hr.
    explicit OVXMLDoc(const VARIANT& text);
    virtual ~OVXMLDoc() = default;
    OVXMLDoc(const OVXMLDoc&) = delete;
    OVXMLDoc& operator=(const OVXMLDoc&) = delete;

    // Writes the document to the file `name`.xml in the folder of the trace files, if SOFTWARE\Orvantis\Tracing asks
    // for it. Each of `secrets` (may be null) is masked wherever it stands in the document. For diagnosis: it fails
    // nothing.
    virtual void Dump(LPCWSTR name, const std::vector<wstr>* secrets);

    HRESULT Result() const noexcept { return m_hr; }

  protected:
    HRESULT GetXml(BSTR* xml) const;
    HRESULT Save(LPCWSTR file) const;

    CComPtr<IXMLDOMDocument> m_pDocument;
    HRESULT m_hr;  // of creating and loading: 0, 1 for a document that did not load, or a failure

  private:
    HRESULT Create() noexcept;
};
