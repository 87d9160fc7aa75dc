#include "svinfo/PolicyDocument.h"

#include "sources/XMLPolicyReader.h"
#include "svinfo/Failure.h"
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
        document->get_xml(&m_document.xml);
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

}  // namespace

void CPolicyDocument::RequireSound() const {
    const CSourceEntry& entry = Entry();
    if (entry.state != SourceState::kDamaged) return;
    throw CCommandFailure(ExitCode::BadInput,
                          PlaceText(entry.damage) + ": found " + entry.reason + ", expected a well-formed document");
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
