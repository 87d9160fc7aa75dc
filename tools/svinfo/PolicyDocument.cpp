#include "svinfo/PolicyDocument.h"

#include <algorithm>

#include "sources/XMLPolicyReader.h"
#include "svinfo/Failure.h"
#include "svinfo/Items.h"
#include "svinfo/Text.h"

namespace {

// Hands everything on to the ledger, and keeps what only the document itself tells.
class CDocumentObserver final : public CLoadObserver {
  public:
    explicit CDocumentObserver(CPolicyDocument& document) : m_document(document) {}

    void Source(const PolicySource&, LPCWSTR, bool) override {}
    void Document(IXMLDOMDocument* document, HRESULT hr) override {
        m_document.ledger.Document(document, hr);
        if (hr != S_OK) return;
        CComPtr<IXMLDOMNodeList> items;
        LONG count = 0;
        const CComBSTR tag(W("Items"));
        if (document->getElementsByTagName(tag.Get(), &items) == S_OK) items->get_length(&count);
        m_document.form = count > 0 ? PolicyForm::kSettings : PolicyForm::kAuthPolicies;
    }
    void Delivered(const CPolicyItem& item, bool kept, const CLoadPlace& place) override {
        m_document.ledger.Delivered(item, kept, place);
    }
    void PassedOver(Oddity oddity, LPCWSTR detail, const CLoadPlace& place) override {
        m_document.ledger.PassedOver(oddity, detail, place);
    }

  private:
    CPolicyDocument& m_document;
};

void AppendText(wstr& xml, wstr_view text) {
    for (const WCHAR unit : text) {
        switch (unit) {
            case W('&'):
                xml += W("&amp;");
                break;
            case W('<'):
                xml += W("&lt;");
                break;
            case W('>'):
                xml += W("&gt;");
                break;
            case W('\r'):
                xml += W("&#13;");
                break;
            default:
                xml += unit;
                break;
        }
    }
}

// Blanks at the ends of a text would be lost, were they not in a section of their own.
void AppendData(wstr& xml, const CPolicyValue& value) {
    if (value.Type() != OV_TYPE_STRING) {
        const std::string digits = MaskDigits(value.Number());
        xml.append(digits.begin(), digits.end());
        return;
    }
    const wstr_view text(value.Text());
    constexpr LPCWSTR kBlanks = W(" \t\r\n");
    const std::size_t first = std::min(text.find_first_not_of(kBlanks), text.size());
    const std::size_t last = first == text.size() ? first : text.find_last_not_of(kBlanks) + 1;
    const auto blanks = [&](wstr_view part) {
        if (!part.empty()) xml.append(W("<![CDATA[")).append(part).append(W("]]>"));
    };
    blanks(text.substr(0, first));
    AppendText(xml, text.substr(first, last - first));
    blanks(text.substr(last));
}

void AppendItem(wstr& xml, const CPolicyItem& item) {
    const DWORD type = item.value.Type();
    xml += W("<Item><Name>");
    AppendText(xml, item.name);
    xml += W("</Name><Type>");
    xml += type == OV_TYPE_STRING ? W("REG_SZ") : type == OV_TYPE_QWORD ? W("REG_QWORD") : W("REG_DWORD");
    xml += W("</Type><Data>");
    AppendData(xml, item.value);
    xml += W("</Data></Item>");
}

}  // namespace

void CPolicyDocument::RequireSound() const {
    const CSourceEntry& entry = Entry();
    if (entry.state != SourceState::kDamaged) return;
    throw CCommandFailure(ExitCode::BadInput,
                          PlaceText(entry.damage) + ": found " + entry.reason + ", expected a well-formed document");
}

wstr CPolicyDocument::SettingsText() const {
    wstr xml = W("<Settings><Items><Group><Name>Policies</Name>");
    for (std::size_t rank = 0; rank < items.Size(); ++rank) AppendItem(xml, items.At(rank));
    return xml + W("</Group></Items></Settings>");
}

CPolicyDocument ReadPolicyDocument(const std::string& path, bool settingsOnly) {
    CPolicyDocument document;
    document.ledger.File(path);
    CDocumentObserver observer(document);
    CExtXMLPolicyReader reader(WideArgument(path, "FILE").c_str(), document.items, &observer);
    if (reader.Result() != S_OK) return document;
    if (settingsOnly) {
        reader.ProcessOVSettings();
    } else {
        WalkPolicyDocument(reader, document.form);
    }
    return document;
}
