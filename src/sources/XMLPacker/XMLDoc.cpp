#include "sources/XMLPacker/XMLDoc.h"

#include "diagnostics/TraceScope.h"
#include "module/RegistryKey.h"

namespace {

constexpr DWORD kAnyContext = 23;
constexpr DWORD kPathRoom = 520 / sizeof(WCHAR);  // of TracePath
constexpr LPCWSTR kMask = W(" xxxxxxxx");

// Whether dumps are asked for; `folder` is where they go.
bool DumpSettings(wstr& folder) {
    CRegistryKey key;
    if (key.Open(HKEY_LOCAL_MACHINE, W("SOFTWARE\\Orvantis\\Tracing"), KEY_READ)) return false;
    // One word for both, so that a setting that is missing leaves what the first one said.
    DWORD wanted = 0;
    key.QueryDword(W("DoTrace"), wanted);
    if (wanted == 0) return false;
    key.QueryDword(W("TraceXMLs"), wanted);
    if (wanted == 0) return false;
    WCHAR path[kPathRoom] = {};
    DWORD length = kPathRoom;
    const bool named = key.QueryString(W("TracePath"), path, length) == ERROR_SUCCESS && path[0] != 0;
    folder = named ? path : W(".");
    return true;
}

void Mask(wstr& text, const wstr& secret) {
    if (secret.empty()) return;
    for (std::size_t at = text.find(secret); at != wstr::npos; at = text.find(secret, at + wcslen(kMask))) {
        text.replace(at, secret.size(), kMask);
    }
}

}  // namespace

OVXMLDoc::OVXMLDoc() : m_hr(Create()) {}

OVXMLDoc::OVXMLDoc(const VARIANT& text) : m_hr(Create()) {
    if (m_hr != S_OK) return;
    VARIANT_BOOL loaded = VARIANT_FALSE;
    m_hr = text.vt == VT_BSTR ? m_pDocument->loadXML(text.bstrVal, &loaded) : E_INVALIDARG;
}

HRESULT OVXMLDoc::Create() noexcept {
    CLSID id;
    HRESULT hr = CLSIDFromProgID(W("Msxml2.DOMDocument"), &id);
    if (FAILED(hr)) return hr;
    hr = CoCreateInstance(id, nullptr, kAnyContext, IID_IXMLDOMDocument, reinterpret_cast<void**>(&m_pDocument));
    // Whoever loads a document looks at it next.
    if (hr == S_OK) m_pDocument->put_async(VARIANT_FALSE);
    return hr;
}

HRESULT OVXMLDoc::GetXml(BSTR* xml) const {
    return m_hr != S_OK ? m_hr : m_pDocument->get_xml(xml);
}

HRESULT OVXMLDoc::Save(LPCWSTR file) const {
    if (m_hr != S_OK) return m_hr == S_FALSE ? HRESULT_FROM_WIN32(ERROR_INVALID_DATA) : m_hr;
    const CComBSTR path(file);
    return m_pDocument->save(VariantOf(path));
}

void OVXMLDoc::Dump(LPCWSTR name, const std::vector<wstr>* secrets) {
    OVTraceNS::CTraceScope scope("XML Dump", 0);
    const HRESULT hr = Guarded([&]() -> HRESULT {
        wstr file;
        if (!DumpSettings(file)) {
            scope.Print("--- disabled ---");
            return S_OK;
        }
        file.append(W("\\")).append(name).append(W(".xml"));
        scope.Print("See XML file: %ls", file.c_str());
        if (!secrets || secrets->empty()) return Save(file.c_str());
        CComBSTR xml;
        if (GetXml(&xml) != S_OK) {
            scope.Print("--- dump error ---");
            return S_OK;
        }
        wstr text(xml.View());
        for (const wstr& secret : *secrets) Mask(text, secret);
        const CComBSTR masked{wstr_view(text)};
        return OVXMLDoc(VariantOf(masked)).Save(file.c_str());
    });
    scope.Result("", hr);
}
