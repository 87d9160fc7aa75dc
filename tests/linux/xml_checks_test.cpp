// Documents whose model fails at a call: each walk reports the check that found it, and ends with its code.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <thread>

#include "diagnostics/RecordingOutput.h"
#include "sources/XMLPolicyReader.h"
#include "support/DataRoot.h"
#include "support/StoreDoor.h"

namespace {

// The call that fails next: of that name, after so many of it that succeed.
struct CFault {
    std::string call;
    int after = 0;
    HRESULT hr = S_OK;
};
CFault theFault;

HRESULT Trip(const char* call) {
    return theFault.call == call && theFault.after-- == 0 ? theFault.hr : S_OK;
}

// What stands for another object: it counts its references, and goes with the last one.
template <class Interface>
class CProxy : public Interface {
  public:
    template <class Inner>
    explicit CProxy(Inner* inner) noexcept : m_inner(inner) {}
    virtual ~CProxy() = default;
    STDMETHODIMP QueryInterface(REFIID, void**) override { return E_NOINTERFACE; }
    STDMETHODIMP_(ULONG) AddRef() override { return ++m_references; }
    STDMETHODIMP_(ULONG) Release() override {
        const ULONG left = --m_references;
        if (left == 0) delete this;
        return left;
    }

  protected:
    CComPtr<Interface> m_inner;

  private:
    ULONG m_references = 1;
};

class CFaultyList final : public CProxy<IXMLDOMNodeList> {
  public:
    using CProxy::CProxy;
    STDMETHODIMP get_item(LONG index, IXMLDOMNode** item) override;
    STDMETHODIMP get_length(LONG* length) override {
        const HRESULT hr = Trip("get_length");
        return hr ? hr : m_inner->get_length(length);
    }
};

// A result of the real call, put behind a proxy of its own.
template <class Proxy, class Interface, class Inner>
HRESULT Wrapped(HRESULT tripped, Interface** out, Inner call) {
    CComPtr<Interface> inner;
    *out = nullptr;
    const HRESULT hr = tripped ? tripped : call(&inner);
    if (inner) *out = new Proxy(inner.Get());
    return hr;
}

// Nodes, and with a document's calls added the document itself.
template <class Interface>
class CFaultyNodeOf : public CProxy<Interface> {
  public:
    using CProxy<Interface>::CProxy;
    STDMETHODIMP get_nodeName(BSTR* name) override {
        const HRESULT hr = Trip("get_nodeName");
        return hr ? hr : this->m_inner->get_nodeName(name);
    }
    STDMETHODIMP get_nodeType(DOMNodeType* type) override { return this->m_inner->get_nodeType(type); }
    STDMETHODIMP get_text(BSTR* text) override {
        const HRESULT hr = Trip("get_text");
        return hr ? hr : this->m_inner->get_text(text);
    }
    STDMETHODIMP get_xml(BSTR* xml) override { return this->m_inner->get_xml(xml); }
    STDMETHODIMP get_childNodes(IXMLDOMNodeList** list) override {
        return Wrapped<CFaultyList>(Trip("get_childNodes"), list,
                                    [&](IXMLDOMNodeList** inner) { return this->m_inner->get_childNodes(inner); });
    }
    STDMETHODIMP selectNodes(BSTR query, IXMLDOMNodeList** list) override {
        return Wrapped<CFaultyList>(Trip("selectNodes"), list,
                                    [&](IXMLDOMNodeList** inner) { return this->m_inner->selectNodes(query, inner); });
    }
    STDMETHODIMP selectSingleNode(BSTR query, IXMLDOMNode** node) override;
};
using CFaultyNode = CFaultyNodeOf<IXMLDOMNode>;
using CFaultyElement = CFaultyNodeOf<IXMLDOMElement>;

template <class Interface>
HRESULT CFaultyNodeOf<Interface>::selectSingleNode(BSTR query, IXMLDOMNode** node) {
    return Wrapped<CFaultyNode>(S_OK, node,
                                [&](IXMLDOMNode** inner) { return this->m_inner->selectSingleNode(query, inner); });
}

HRESULT CFaultyList::get_item(LONG index, IXMLDOMNode** item) {
    return Wrapped<CFaultyNode>(Trip("get_item"), item,
                                [&](IXMLDOMNode** inner) { return m_inner->get_item(index, inner); });
}

class CFaultyDocument final : public CFaultyNodeOf<IXMLDOMDocument> {
  public:
    using CFaultyNodeOf::CFaultyNodeOf;
    STDMETHODIMP get_documentElement(IXMLDOMElement** element) override {
        return Wrapped<CFaultyElement>(Trip("get_documentElement"), element,
                                       [&](IXMLDOMElement** inner) { return m_inner->get_documentElement(inner); });
    }
    STDMETHODIMP getElementsByTagName(BSTR name, IXMLDOMNodeList** found) override {
        return Wrapped<CFaultyList>(Trip("getElementsByTagName"), found, [&](IXMLDOMNodeList** inner) {
            return m_inner->getElementsByTagName(name, inner);
        });
    }
    STDMETHODIMP put_async(VARIANT_BOOL) override { return S_OK; }
    STDMETHODIMP load(VARIANT, VARIANT_BOOL*) override { return E_NOTIMPL; }
    STDMETHODIMP loadXML(BSTR, VARIANT_BOOL*) override { return E_NOTIMPL; }
    STDMETHODIMP save(VARIANT) override { return E_NOTIMPL; }
    STDMETHODIMP get_parseError(IXMLDOMParseError**) override { return E_NOTIMPL; }
};

class CFaultyReader final : public CExtXMLPacker {
  public:
    explicit CFaultyReader(const VARIANT& text) : CExtXMLPacker(text) {
        m_document = std::move(m_pDocument);
        CComPtr<IXMLDOMDocument> proxy;
        *&proxy = new CFaultyDocument(m_document.Get());
        m_pDocument = std::move(proxy);
    }
    HRESULT SetPolicyValues(DWORD, const OV_SERVER_INFO_EX*) override { return S_OK; }
    HRESULT ActivateDomains(const CDomains&) override { return S_OK; }

  private:
    CComPtr<IXMLDOMDocument> m_document;
};

class XmlChecks : public TraceTest {
  protected:
    void SetUp() override {
        TraceTest::SetUp();
        TraceOn();
        ReadAgain();
    }
    void TearDown() override {
        theFault = {};
        TraceTest::TearDown();
    }
    // The reports of a walk, the innermost first.
    std::vector<std::string> Reports(const std::string& document, HRESULT (CExtXMLPacker::*walk)() noexcept,
                                     HRESULT& hr) {
        const CComBSTR text(wstr(document.begin(), document.end()).c_str());
        CFaultyReader reader(VariantOf(text));
        m_entries.clear();
        hr = (reader.*walk)();
        std::vector<std::string> reports;
        for (const TraceEntry& entry : m_entries) {
            if (entry.tag == 'U' && entry.text.find(", result: 0x") != std::string::npos) reports.push_back(entry.text);
        }
        return reports;
    }
};

TEST_F(XmlChecks, EachFailedCallIsReportedAndEndsTheWalk) {
    const std::string items = ItemXml("a", "REG_DWORD", "1");
    const std::string settings = SettingsXml(items);
    const std::string inPolicies =
        "<r><Items>" + GroupXml("Policies", "<Policies>" + items + "</Policies>") + "</Items></r>";
    const std::string domains = "<r><Items>" + GroupXml("Domains", items) + "</Items></r>";
    const std::string lists = "<r>" + ListXml("LogonPolicy", {"1"}) + "</r>";
    const auto walkSettings = &CExtXMLPacker::ProcessOVSettings;
    const auto walkDomains = &CExtXMLPacker::ProcessOVDomains;
    const auto walkPolicies = &CExtXMLPacker::ProcessOVAuthPolicies;
    const std::string kParse = "hr = _parsePolicies( xmlnGroup )", kRestore = "hr = _restoreDomains( xmlnGroup )",
                      kAuth = "_parseAuthPolicy( xmlnItem )";
    struct {
        const std::string& document;
        HRESULT (CExtXMLPacker::*walk)() noexcept;
        const char* call;
        int after;
        std::vector<std::string> reports;
        bool presence = false;  // a check whose code is 1, and which a result of 1 fails like any other
    } const kCases[] = {
        {settings,
         walkSettings,
         "getElementsByTagName",
         0,
         {"( IS_OK( m_pDocument->getElementsByTagName( CComBSTR(XML_ITEMS), &pIDOMItemsList ) ) && pIDOMItemsList )"},
         true},
        {settings, walkSettings, "get_length", 0, {"pIDOMItemsList->get_length( &lItemsCount )"}},
        {settings, walkSettings, "get_item", 0, {"pIDOMItemsList->get_item( 0, &xmlnItems )"}},
        {settings, walkSettings, "selectNodes", 0, {"xmlnItems->selectNodes( CComBSTR(XML_GROUP), &pIDOMNodeList )"}},
        {settings, walkSettings, "get_length", 1, {"pIDOMNodeList->get_length( &lcount )"}},
        {inPolicies, walkSettings, "get_childNodes", 0, {"xmlnPolicies->get_childNodes(&pIDOMItemsList)", kParse}},
        {settings,
         walkSettings,
         "selectNodes",
         1,
         {"pxmlnGroup->selectNodes(CComBSTR(XML_ITEM), &pIDOMItemsList)", kParse}},
        {settings, walkSettings, "get_length", 2, {"pIDOMItemsList->get_length( &lCount )", kParse}},
        {domains,
         walkDomains,
         "selectNodes",
         1,
         {"pxmlnGroup->selectNodes( CComBSTR(XML_ITEM), &pIDOMItemsList )", kRestore}},
        {domains, walkDomains, "get_length", 2, {"pIDOMItemsList->get_length( &lCount )", kRestore}},
        {lists,
         walkPolicies,
         "get_documentElement",
         0,
         {"( IS_OK( m_pDocument->get_documentElement( &pXMLElement ) ) && pXMLElement )"},
         true},
        {lists,
         walkPolicies,
         "get_childNodes",
         0,
         {"( IS_OK( pXMLElement->get_childNodes( &pIDOMItemsList ) ) && pIDOMItemsList )"},
         true},
        {lists, walkPolicies, "get_length", 0, {"pIDOMItemsList->get_length( &lCount )"}},
        {lists,
         walkPolicies,
         "selectNodes",
         0,
         {"pxmlnItem->selectNodes( CComBSTR(XML_POLICYITEMS), &pIDOMItemsList )", kAuth}},
        {lists, walkPolicies, "get_length", 1, {"pIDOMItemsList->get_length( &lCount )", kAuth}},
        {lists, walkPolicies, "get_item", 1, {"pIDOMItemsList->get_item( 0, &xmlnItems )", kAuth}},
        {lists,
         walkPolicies,
         "selectNodes",
         1,
         {"xmlnItems->selectNodes( CComBSTR(XML_POLICYITEM), &pIDOMNodeList )", kAuth}},
        {lists, walkPolicies, "get_length", 2, {"pIDOMNodeList->get_length( &lcount )", kAuth}},
        {lists, walkPolicies, "get_text", 0, {"xmlnNode->get_text( &bsText )", kAuth}},
        {lists, walkPolicies, "get_nodeName", 0, {"pxmlnItem->get_nodeName( &bsName )", kAuth}},
    };
    for (const auto& c : kCases) {
        SCOPED_TRACE(std::string(c.call) + " after " + std::to_string(c.after));
        for (const HRESULT failure : {S_FALSE, E_OUTOFMEMORY}) {
            theFault = {c.call, c.after, failure};
            const HRESULT code = c.presence ? S_FALSE : failure == S_FALSE ? E_FAIL : failure;
            char text[40];
            std::snprintf(text, sizeof text, ", result: 0x%08X", static_cast<unsigned>(code));
            std::vector<std::string> expected;
            for (const std::string& report : c.reports) expected.push_back(report + text);
            HRESULT hr = S_OK;
            EXPECT_EQ(Reports(c.document, c.walk, hr), expected);
            EXPECT_EQ(hr, code);
        }
    }
}

// The last node that fits is an entity's: its refusal must reach the whole document.
TEST(XmlBounds, HoldInsideOfEntitiesToo) {
    const CTestRoot root;
    std::string text = "<!DOCTYPE r [<!ENTITY e 'x'>]><r>";
    for (int i = 0; i < 8'388'605; ++i) text += "<a/>";
    CTestDocument document;
    document.LoadBytes(root.Path(), text + "&e;</r>");
    EXPECT_EQ(document.Outcome(), "0x00000001 0");
    EXPECT_FALSE(document.Root());
}

// A load of the store with something else than a file in a file's place, or one that grows meanwhile.
TEST(PolicyFiles, OfEveryKindLeaveTheLoadStanding) {
    const CTestRoot root;
    const CDataRoot data(root.Path());
    const PolicySource& settings = kPolicySources[2];
    data.Write(kPolicySources[4], SettingsXml(ItemXml("last", "REG_DWORD", "1")));
    const auto load = [] {
        CTestInstance object;
        DWORD number = 0;
        EXPECT_EQ(object->GetItemLong(W("last"), &number), S_OK);
        return object.Items().Size();
    };
    const std::filesystem::path path = data.PathOf(settings);
    std::filesystem::create_directory(path);
    EXPECT_EQ(load(), 1u);
    std::filesystem::remove(path);
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    EXPECT_EQ(load(), 1u) << "nobody waits for a writer";
    std::filesystem::remove(path);
    std::filesystem::create_symlink("/dev/zero", path);
    EXPECT_EQ(load(), 1u);
    std::filesystem::remove(path);
    std::filesystem::create_symlink(path, path);
    EXPECT_EQ(load(), 1u);
    std::filesystem::remove(path);
    data.Write(settings, SettingsXml(ItemXml("\xC3\xA9" + std::string(40'000, 'n'), "REG_SZ", "v")));
    EXPECT_EQ(load(), 2u);
    data.Write(settings, SettingsXml(ItemXml("big", "REG_SZ", std::string(std::size_t{63} << 20, 'x'))));
    EXPECT_EQ(load(), 2u) << "63 MiB in one item";
    data.Write(settings, SettingsXml(ItemXml("big", "REG_SZ", std::string(std::size_t{64} << 20, 'x'))));
    EXPECT_EQ(load(), 1u) << "beyond the bound";

    std::atomic<bool> done{false};
    std::thread writer([&] {
        std::size_t round = 0;
        while (!done) data.Write(settings, SettingsXml(ItemXml("n", "REG_SZ", std::string(++round % 50'000, 'x'))));
    });
    for (int i = 0; i < 200; ++i) EXPECT_LE(load(), 2u);
    done = true;
    writer.join();
}

}  // namespace
