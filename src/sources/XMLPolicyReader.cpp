#include "sources/XMLPolicyReader.h"

#include "diagnostics/TraceScope.h"

CExtXMLPolicyReader::CExtXMLPolicyReader(LPCWSTR path, CPolicyMap& map, CLoadObserver* observer) : m_map(map) {
    Observe(observer);
    if (m_hr == S_OK) {
        const CComBSTR file(path);
        VARIANT_BOOL loaded = VARIANT_FALSE;
        m_hr = m_pDocument->load(VariantOf(file), &loaded);
    }
    if (m_observer) m_observer->Document(m_pDocument.Get(), m_hr);
}

CExtXMLPolicyReader::CExtXMLPolicyReader(const VARIANT& text, CPolicyMap& map) : CExtXMLPacker(text), m_map(map) {}

void CExtXMLPolicyReader::Insert(CPolicyItem item, IXMLDOMNode* node) {
    if (!m_observer) {
        m_map.Insert(std::move(item));
        return;
    }
    const bool kept = m_map.Insert(item);
    m_observer->Delivered(item, kept, {node, nullptr});
}

HRESULT CExtXMLPolicyReader::SetPolicyValues(DWORD count, const OV_SERVER_INFO_EX* records) {
    OVTraceNS::CTraceScope scope("CServerInfo::CExtXMLPolicyReader::SetPolicyValues", 0);
    return AtBoundary(scope, [&]() -> HRESULT {
        for (DWORD i = 0; i < count; ++i) {
            const LPCWSTR name = records[i].name;
            const OV_SERVER_VALUE& value = records[i].value;
            switch (value.type) {
                case OV_TYPE_DWORD:
                    scope.Print("%ls = %ld", name, static_cast<DWORD>(value.data));
                    break;
                case OV_TYPE_QWORD:
                    scope.Print("%ls = 0x%016I64X", name, value.data);
                    break;
                case OV_TYPE_STRING:
                    scope.Print("%ls = '%ls'", name, OvServerValueText(value));
                    break;
                case OV_TYPE_ARRAY:
                    scope.Print("%ls = (array)", name);
                    break;
                default:
                    scope.Print("Unexpected type: %ld", value.type);
                    continue;
            }
            CPolicyItem item{name, {}};
            item.value.Assign(value);
            Insert(std::move(item), m_node);
        }
        return S_OK;
    });
}

HRESULT CExtXMLPolicyReader::ActivateDomains(const CDomains& smDomains) {
    OVTraceNS::CTraceScope scope("CServerInfo::CExtXMLPolicyReader::ActivateDomains", 0);
    return AtBoundary(scope, [&]() -> HRESULT {
        for (const CDomain& domain : smDomains) {
            CPolicyItem item{W("AuthenticationDomains\\") + domain.name, {}};
            const DWORD active = domain.active ? 1 : 0;
            scope.Print("%ls = %ld", item.name.c_str(), active);
            item.value.SetNumber(OV_TYPE_DWORD, active);
            Insert(std::move(item), domain.node.Get());
        }
        return S_OK;
    });
}

// What the walks come to is not looked at: a document that gives nothing leaves the map as it was.
void WalkPolicyDocument(CExtXMLPacker& document, PolicyForm form) noexcept {
    if (form == PolicyForm::kAuthPolicies) {
        document.ProcessOVAuthPolicies();
    } else {
        document.ProcessOVSettings();
        document.ProcessOVDomains();
    }
}
