// "Msxml2.DOMDocument": a tree, and how its last load went.
#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <new>

#include "ComClasses.h"
#include "File.h"
#include "HiveError.h"
#include "Paths.h"
#include "XmlParse.h"
#include "XmlTree.h"

namespace {

class CXmlParseError final : public CXmlObject<IXMLDOMParseError> {
  public:
    explicit CXmlParseError(const XmlOutcome& outcome) : m_outcome(outcome) {}

    STDMETHODIMP get_errorCode(LONG* code) override {
        if (!code) return E_INVALIDARG;
        *code = m_outcome.hr == S_OK ? 0 : E_FAIL;
        return *code == 0 ? S_FALSE : S_OK;
    }
    STDMETHODIMP get_reason(BSTR* reason) override {
        if (!reason) return E_INVALIDARG;
        const HRESULT hr = GiveBstr(m_outcome.reason, reason);
        return hr == S_OK && m_outcome.hr == S_OK ? S_FALSE : hr;
    }
    STDMETHODIMP get_line(LONG* line) override { return Place(m_outcome.line, line); }
    STDMETHODIMP get_linepos(LONG* column) override { return Place(m_outcome.column, column); }

  private:
    HRESULT Place(LONG number, LONG* out) const noexcept {
        if (!out) return E_INVALIDARG;
        *out = number;
        return m_outcome.hr == S_OK ? S_FALSE : S_OK;
    }
    bool Serves(REFIID iid) const noexcept override { return iid == IID_IXMLDOMParseError; }

    XmlOutcome m_outcome;
};

// Reads a file to its end. What is no ordinary file is refused before anything could wait for it.
XmlOutcome ReadSource(const std::string& path, std::string& bytes) {
    const CFile file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    if (!file) return {S_FALSE, "the file cannot be opened", 0, 0};
    struct stat info;
    if (fstat(file.Get(), &info) != 0 || !S_ISREG(info.st_mode)) return {S_FALSE, "it is no file", 0, 0};
    std::size_t size = 0;
    bytes.resize(std::min(static_cast<std::size_t>(info.st_size), kLargestXmlDocument) + 1);
    for (;;) {
        if (size > kLargestXmlDocument) return {S_FALSE, "larger than 64 MiB", 0, 0};
        if (size == bytes.size()) bytes.resize(size + size / 2);
        const ssize_t got = read(file.Get(), bytes.data() + size, bytes.size() - size);
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) return {S_FALSE, "the file cannot be read", 0, 0};
        if (got == 0) break;
        size += static_cast<std::size_t>(got);
    }
    bytes.resize(size);
    return {};
}

class CXmlDocument final : public CXmlObject<IXMLDOMDocument> {
  public:
    CXmlDocument() : m_tree(new CXmlTree) {}
    ~CXmlDocument() override { m_tree->Release(); }

    STDMETHODIMP get_nodeName(BSTR* name) override { return Top().get_nodeName(name); }
    STDMETHODIMP get_nodeType(DOMNodeType* type) override { return Top().get_nodeType(type); }
    STDMETHODIMP get_childNodes(IXMLDOMNodeList** children) override { return Top().get_childNodes(children); }
    STDMETHODIMP get_text(BSTR* text) override { return Top().get_text(text); }
    STDMETHODIMP get_xml(BSTR* xml) override { return Top().get_xml(xml); }
    STDMETHODIMP selectNodes(BSTR query, IXMLDOMNodeList** found) override { return Top().selectNodes(query, found); }
    STDMETHODIMP selectSingleNode(BSTR query, IXMLDOMNode** found) override {
        return Top().selectSingleNode(query, found);
    }

    STDMETHODIMP get_documentElement(IXMLDOMElement** element) override {
        if (!element) return E_INVALIDARG;
        *element = m_tree->Root();
        if (!*element) return S_FALSE;
        (*element)->AddRef();
        return S_OK;
    }
    STDMETHODIMP getElementsByTagName(BSTR name, IXMLDOMNodeList** found) override {
        return FindElements(*m_tree, name, found);
    }
    STDMETHODIMP put_async(VARIANT_BOOL) override { return S_OK; }

    STDMETHODIMP load(VARIANT source, VARIANT_BOOL* loaded) override {
        if (!loaded || source.vt != VT_BSTR) return E_INVALIDARG;
        return Load(loaded, [&](CXmlTree& tree) {
            const std::string path = PosixPath({source.bstrVal, SysStringLen(source.bstrVal)});
            XmlOutcome outcome = ReadSource(path, tree.source);
            return outcome.hr == S_OK ? ParseXmlFile(tree) : outcome;
        });
    }
    STDMETHODIMP loadXML(BSTR xml, VARIANT_BOOL* loaded) override {
        if (!loaded) return E_INVALIDARG;
        return Load(loaded, [&](CXmlTree& tree) { return ParseXmlText(tree, {xml, SysStringLen(xml)}); });
    }

    STDMETHODIMP save(VARIANT destination) override {
        if (destination.vt != VT_BSTR) return E_INVALIDARG;
        return XmlGuarded([&] {
            const std::string path = PosixPath({destination.bstrVal, SysStringLen(destination.bstrVal)});
            return Save(path, XmlMarkupOf(Top()));
        });
    }

    STDMETHODIMP get_parseError(IXMLDOMParseError** error) override {
        if (!error) return E_INVALIDARG;
        *error = nullptr;
        return XmlGuarded([&]() -> HRESULT {
            *error = new CXmlParseError(m_outcome);
            return S_OK;
        });
    }

  private:
    bool Serves(REFIID iid) const noexcept override { return iid == IID_IXMLDOMNode || iid == IID_IXMLDOMDocument; }
    CXmlNode& Top() const noexcept { return m_tree->Document(); }

    // Into a new tree. Nodes of the old one that a client holds live on with it.
    template <class Read>
    HRESULT Load(VARIANT_BOOL* loaded, Read read) noexcept {
        *loaded = VARIANT_FALSE;
        return XmlGuarded([&]() -> HRESULT {
            Replace(new CXmlTree);
            m_outcome = read(*m_tree);
            if (m_outcome.hr != S_OK) Replace(new CXmlTree);
            if (m_outcome.hr == S_OK) *loaded = VARIANT_TRUE;
            return m_outcome.hr;
        });
    }
    void Replace(CXmlTree* tree) noexcept {
        m_tree->Release();
        m_tree = tree;
    }

    static HRESULT Save(const std::string& path, const std::string& bytes) noexcept {
        const CFile file(open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
        std::size_t written = 0;
        while (file && written < bytes.size()) {
            const ssize_t put = write(file.Get(), bytes.data() + written, bytes.size() - written);
            if (put < 0 && errno == EINTR) continue;
            if (put < 0) break;
            written += static_cast<std::size_t>(put);
        }
        return file && written == bytes.size() ? S_OK : HRESULT_FROM_WIN32(HiveErrorFromErrno(errno));
    }

    CXmlTree* m_tree;
    XmlOutcome m_outcome;
};

}  // namespace

HRESULT CreateXmlDocument(REFIID iid, void** object) noexcept {
    return XmlGuarded([&] {
        IUnknown* document = new CXmlDocument;
        const HRESULT hr = document->QueryInterface(iid, object);
        document->Release();
        return hr;
    });
}
