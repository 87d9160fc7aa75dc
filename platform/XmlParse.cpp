#include "XmlParse.h"

#include <expat.h>
#include <iconv.h>

#include <cstdint>
#include <cstring>
#include <map>
#include <memory>
#include <optional>

namespace {

// Between the parts of a name: namespace, local name, prefix. No character of any document.
constexpr char kNamePart = '\x01';
constexpr std::string_view kSpaceAttribute = "http://www.w3.org/XML/1998/namespace\x01space\x01xml";

constexpr int kDeepest = 512;
constexpr int kDeepestEntity = 16;
constexpr std::size_t kMostEntities = 256;
constexpr std::uint64_t kGrowth = 8;  // what entities and attributes make, in sizes of the document
constexpr std::uint64_t kFreeGrowth = 65'536;
constexpr std::uint64_t kNodeCost = 16;  // bytes that a node counts for
constexpr std::size_t kLongestNamespace = 4'096;
constexpr int kMostDefaults = 256;  // attributes that a document type adds

struct FreeParser {
    void operator()(XML_Parser parser) const noexcept { XML_ParserFree(parser); }
};
using CExpat = std::unique_ptr<XML_ParserStruct, FreeParser>;

// Ends the parsing, from within a handler: a rule of ours is broken.
struct CRefusal {
    const char* reason;
};

bool SameAscii(std::string_view a, std::string_view b) noexcept {
    return a.size() == b.size() && strncasecmp(a.data(), b.data(), a.size()) == 0;
}

// Single-byte encodings that expat lets us add.
bool IsCodePage(std::string_view name) noexcept {
    for (const char* family : {"windows-125", "iso-8859-"}) {
        const std::size_t length = std::strlen(family);
        if (name.size() > length && SameAscii(name.substr(0, length), family)) {
            return name.find_first_not_of("0123456789", length) == std::string_view::npos && name.size() < 14;
        }
    }
    return false;
}

bool IsKnownEncoding(std::string_view name) noexcept {
    for (const char* known : {"UTF-8", "UTF-16", "UTF-16LE", "UTF-16BE", "US-ASCII"}) {
        if (SameAscii(name, known)) return true;
    }
    return IsCodePage(name);
}

// What each byte stands for, by the C library's own tables; false for an encoding that it does not have.
bool FillCodePage(const char* name, int (&map)[256]) noexcept {
    const iconv_t converter = iconv_open("UCS-4LE", name);
    if (converter == reinterpret_cast<iconv_t>(-1)) return false;
    const bool windows = SameAscii(std::string_view(name).substr(0, 7), "windows");
    for (int byte = 0; byte < 256; ++byte) {
        char in = static_cast<char>(byte);
        std::uint32_t point = 0;
        char* from = &in;
        char* to = reinterpret_cast<char*>(&point);
        std::size_t left = 1, room = sizeof point;
        const bool done = iconv(converter, &from, &left, &to, &room) != static_cast<std::size_t>(-1) && room == 0;
        // The platform's code pages leave no byte without a meaning, where others do.
        map[byte] = done ? static_cast<int>(point) : windows ? byte : -1;
        if (!done) iconv(converter, nullptr, nullptr, nullptr, nullptr);
    }
    iconv_close(converter);
    return true;
}

class CXmlBuilder {
  public:
    CXmlBuilder(CXmlTree& tree, bool isText, std::size_t size) noexcept
        : m_tree(tree), m_isText(isText), m_mostGrowth(kGrowth * size + kFreeGrowth) {}

    XmlOutcome Parse(std::string_view bytes);

  private:
    struct Entity {
        std::string text;
        XmlIndex content = kNoXmlNode;  // its nodes hang below this one
        std::uint64_t cost = 0;         // what a reference adds to the document
        bool open = false;
    };

    // A handler of expat's: what it raises ends the parsing and is told when the parser has returned.
    template <auto Method, class... Arguments>
    static void XMLCALL Call(void* self, Arguments... arguments) noexcept {
        auto* builder = static_cast<CXmlBuilder*>(self);
        if (builder->m_refusal || builder->m_outOfMemory) return;
        try {
            (builder->*Method)(arguments...);
            return;
        } catch (const CRefusal& refusal) {
            builder->m_refusal = refusal.reason;
        } catch (...) {
            builder->m_outOfMemory = true;
        }
        XML_StopParser(builder->m_parser, XML_FALSE);
    }

    void OnDeclaration(const char* version, const char* encoding, int standalone);
    void OnNamespace(const char* prefix, const char* uri);
    void OnStart(const char* name, const char** attributes);
    void OnEnd(const char* name);
    void OnText(const char* text, int length);
    void OnCDataStart();
    void OnCDataEnd();
    void OnComment(const char* text);
    void OnInstruction(const char* target, const char* text);
    void OnEntity(const char* name, int isParameter, const char* value, int length, const char* base,
                  const char* systemId, const char* publicId, const char* notation);
    void OnReference(const char* name, int isParameter);
    void OnOther(const char*, int) {}
    void OnDefault(const char*, const char*, const char*, const char* value, int) {
        if (value && ++m_defaults > kMostDefaults) throw CRefusal{"more than 256 attributes have a default"};
    }

    void SetHandlers();
    std::uint32_t OffsetOf(int kind) const noexcept;
    CXmlNode& Add(int kind);
    CXmlNode& Above() const noexcept { return m_tree.Node(m_above); }
    void CloseText();
    void PutAttribute(std::string_view name, std::string_view value);
    void Grow(std::uint64_t bytes);
    void Cost(std::uint64_t bytes);
    void ParseEntity(Entity& entity, const char* name);
    XmlOutcome Outcome(XML_Parser parser) const;
    bool LacksEncoding(std::string_view bytes) const noexcept;

    CXmlTree& m_tree;
    const bool m_isText;
    const std::uint64_t m_mostGrowth;
    XML_Parser m_parser = nullptr;  // the one that is calling
    XmlIndex m_above = kXmlDocument;
    int m_depth = 0;
    std::uint32_t m_entityOffset = 0;  // where the reference stands that is being replaced
    int m_entityDepth = 0;
    std::uint64_t m_grown = 0;
    std::uint64_t m_cost = 0;  // of the entity that is being parsed
    int m_defaults = 0;
    bool m_hasText = false;  // a run of text is open, from m_textStart in the pool on
    bool m_isCData = false;
    bool m_blank = false;  // blanks stood where the next node begins
    bool m_namedEncoding = false;
    std::uint32_t m_textStart = 0;
    std::string m_attributes;  // of the element to come
    std::string m_qualified;
    std::map<std::string, Entity, std::less<>> m_entities;
    const char* m_refusal = nullptr;
    bool m_outOfMemory = false;
};

int XMLCALL OnUnknownEncoding(void*, const char* name, XML_Encoding* encoding) noexcept {
    if (!IsCodePage(name) || !FillCodePage(name, encoding->map)) return XML_STATUS_ERROR;
    encoding->data = nullptr;
    encoding->convert = nullptr;
    encoding->release = nullptr;
    return XML_STATUS_OK;
}

void CXmlBuilder::SetHandlers() {
    XML_SetUserData(m_parser, this);
    XML_SetReturnNSTriplet(m_parser, 1);
    XML_SetXmlDeclHandler(m_parser, Call<&CXmlBuilder::OnDeclaration, const char*, const char*, int>);
    XML_SetStartNamespaceDeclHandler(m_parser, Call<&CXmlBuilder::OnNamespace, const char*, const char*>);
    XML_SetElementHandler(m_parser, Call<&CXmlBuilder::OnStart, const char*, const char**>,
                          Call<&CXmlBuilder::OnEnd, const char*>);
    XML_SetCharacterDataHandler(m_parser, Call<&CXmlBuilder::OnText, const char*, int>);
    XML_SetCdataSectionHandler(m_parser, Call<&CXmlBuilder::OnCDataStart>, Call<&CXmlBuilder::OnCDataEnd>);
    XML_SetCommentHandler(m_parser, Call<&CXmlBuilder::OnComment, const char*>);
    XML_SetProcessingInstructionHandler(m_parser, Call<&CXmlBuilder::OnInstruction, const char*, const char*>);
    XML_SetEntityDeclHandler(m_parser, Call<&CXmlBuilder::OnEntity, const char*, int, const char*, int, const char*,
                                            const char*, const char*, const char*>);
    XML_SetAttlistDeclHandler(m_parser,
                              Call<&CXmlBuilder::OnDefault, const char*, const char*, const char*, const char*, int>);
    // With a default handler expat leaves references to entities to the one for skipped ones.
    XML_SetDefaultHandler(m_parser, Call<&CXmlBuilder::OnOther, const char*, int>);
    XML_SetSkippedEntityHandler(m_parser, Call<&CXmlBuilder::OnReference, const char*, int>);
    XML_SetUnknownEncodingHandler(m_parser, OnUnknownEncoding, nullptr);
}

// Where the event is that is being told; nobody asks it of text.
std::uint32_t CXmlBuilder::OffsetOf(int kind) const noexcept {
    if (m_entityDepth > 0) return m_entityOffset;
    if (kind == NODE_TEXT || kind == NODE_CDATA_SECTION) return Above().offset;
    return static_cast<std::uint32_t>(XML_GetCurrentByteIndex(m_parser));
}

CXmlNode& CXmlBuilder::Add(int kind) {
    const std::uint32_t offset = OffsetOf(kind);
    const XmlIndex index = m_tree.Add(m_above, kind, offset);
    if (index == kNoXmlNode) throw CRefusal{"more than 8,388,608 nodes"};
    CXmlNode& node = m_tree.Node(index);
    node.blankBefore = m_blank;
    node.preserve = Above().preserve;
    Cost(kNodeCost + (m_blank ? 1 : 0));
    m_blank = false;
    return node;
}

// The run of text that has come to its end becomes a node, unless it is nothing but blanks.
void CXmlBuilder::CloseText() {
    if (!m_hasText) return;
    m_hasText = false;
    const std::string_view run = std::string_view(m_tree.pool).substr(m_textStart);
    if (!m_isCData && !Above().preserve && XmlTrimmed(run).empty()) {
        m_tree.pool.resize(m_textStart);
        m_blank = true;
        return;
    }
    CXmlNode& node = Add(m_isCData ? NODE_CDATA_SECTION : NODE_TEXT);
    node.start = m_textStart;
    node.length = static_cast<std::uint32_t>(run.size());
    Cost(run.size());
}

void CXmlBuilder::Grow(std::uint64_t bytes) {
    m_grown += bytes;
    if (m_grown > m_mostGrowth) throw CRefusal{"entities make the document too large"};
}

// Of what an entity holds, each time that it is referred to.
void CXmlBuilder::Cost(std::uint64_t bytes) {
    m_cost += bytes;
    if (m_entityDepth > 0 && m_cost > m_mostGrowth) throw CRefusal{"entities make the document too large"};
}

void CXmlBuilder::OnDeclaration(const char* version, const char* encoding, int standalone) {
    if (!version) throw CRefusal{"an entity has a text declaration"};
    if (std::strcmp(version, "1.0") != 0) throw CRefusal{"the version is not 1.0"};
    if (encoding && m_isText && !IsKnownEncoding(encoding)) throw CRefusal{"the encoding is not known"};
    m_namedEncoding = encoding != nullptr;
    if (encoding && m_tree.sourceUnit == 1) m_tree.utf8 = SameAscii(encoding, "UTF-8");
    CXmlNode& node = Add(NODE_PROCESSING_INSTRUCTION);
    node.name = m_tree.NameOf("xml") & kNoXmlName;
    node.start = static_cast<std::uint32_t>(m_tree.pool.size());
    m_tree.pool.append("version=\"1.0\"");
    if (encoding) m_tree.pool.append(" encoding=\"").append(encoding).append("\"");
    if (standalone >= 0) m_tree.pool.append(standalone ? " standalone=\"yes\"" : " standalone=\"no\"");
    node.length = static_cast<std::uint32_t>(m_tree.pool.size()) - node.start;
}

void CXmlBuilder::PutAttribute(std::string_view name, std::string_view value) {
    Grow(name.size() + value.size());
    m_attributes.append(" ").append(name).append("=\"");
    for (const char c : value) {
        switch (c) {
            case '&':
                m_attributes += "&amp;";
                break;
            case '<':
                m_attributes += "&lt;";
                break;
            case '"':
                m_attributes += "&quot;";
                break;
            case '\t':
            case '\n':
            case '\r':
                m_attributes += "&#" + std::to_string(static_cast<int>(c)) + ";";
                break;
            default:
                m_attributes += c;
                break;
        }
    }
    m_attributes += '"';
}

void CXmlBuilder::OnNamespace(const char* prefix, const char* uri) {
    // Each element of the namespace bears its name.
    if (uri && strnlen(uri, kLongestNamespace + 1) > kLongestNamespace) {
        throw CRefusal{"the name of a namespace is longer than 4,096 characters"};
    }
    PutAttribute(prefix ? std::string("xmlns:") + prefix : "xmlns", uri ? uri : "");
}

// The name as it was written, of one in parts.
std::string_view Qualified(const char* parts, std::string& room) {
    const char* local = parts;
    while (*local && *local != kNamePart) ++local;
    if (!*local) return {parts, local};
    const char* const prefix = std::strchr(local + 1, kNamePart);
    if (!prefix) return local + 1;
    room.assign(prefix + 1).append(":").append(local + 1, prefix);
    return room;
}

void CXmlBuilder::OnStart(const char* name, const char** attributes) {
    CloseText();
    if (++m_depth > kDeepest) throw CRefusal{"deeper than 512 levels"};
    CXmlNode& node = Add(NODE_ELEMENT);
    const XmlName tag = m_tree.NameOf(CXmlTag(Qualified(name, m_qualified)));
    node.name = tag & kNoXmlName;
    if (!node.inEntity) ++m_tree.Bearers(tag);
    m_above = static_cast<XmlIndex>(m_tree.Size() - 1);
    const int given = XML_GetSpecifiedAttributeCount(m_parser);  // without those of the DTD's defaults
    for (int i = 0; i < given; i += 2) {
        PutAttribute(Qualified(attributes[i], m_qualified), attributes[i + 1]);
        if (attributes[i] == kSpaceAttribute) node.preserve = std::strcmp(attributes[i + 1], "preserve") == 0;
    }
    if (m_attributes.empty()) return;
    Cost(m_attributes.size());
    node.start = static_cast<std::uint32_t>(m_tree.pool.size());
    node.length = static_cast<std::uint32_t>(m_attributes.size());
    m_tree.pool += m_attributes;
    m_attributes.clear();
}

void CXmlBuilder::OnEnd(const char*) {
    CloseText();
    --m_depth;
    Above().blankAtEnd = m_blank;
    m_blank = false;
    m_above = Above().parent;
}

void CXmlBuilder::OnText(const char* text, int length) {
    if (!m_hasText) {
        m_hasText = true;
        m_textStart = static_cast<std::uint32_t>(m_tree.pool.size());
    }
    m_tree.pool.append(text, static_cast<std::size_t>(length));
}

void CXmlBuilder::OnCDataStart() {
    CloseText();
    OnText("", 0);  // a section may be empty
    m_isCData = true;
}

void CXmlBuilder::OnCDataEnd() {
    CloseText();
    m_isCData = false;
}

void CXmlBuilder::OnComment(const char* text) {
    CloseText();
    CXmlNode& node = Add(NODE_COMMENT);
    node.start = static_cast<std::uint32_t>(m_tree.pool.size());
    m_tree.pool += text;
    node.length = static_cast<std::uint32_t>(m_tree.pool.size()) - node.start;
    Cost(node.length);
}

void CXmlBuilder::OnInstruction(const char* target, const char* text) {
    OnComment(text);
    CXmlNode& node = m_tree.Node(static_cast<XmlIndex>(m_tree.Size() - 1));
    node.kind = NODE_PROCESSING_INSTRUCTION;
    node.name = m_tree.NameOf(target) & kNoXmlName;
}

void CXmlBuilder::OnEntity(const char* name, int isParameter, const char* value, int length, const char*, const char*,
                           const char*, const char*) {
    if (isParameter || !value) return;
    if (m_entities.size() == kMostEntities) throw CRefusal{"more than 256 entities"};
    Entity entity;
    entity.text.assign(value, static_cast<std::size_t>(length));
    m_entities.emplace(name, std::move(entity));  // the first declaration counts
}

void CXmlBuilder::OnReference(const char* name, int isParameter) {
    if (isParameter) return;
    CloseText();
    CXmlNode& node = Add(NODE_ENTITY_REFERENCE);
    node.name = m_tree.NameOf(name) & kNoXmlName;
    const auto found = m_entities.find(std::string_view(name));
    if (found == m_entities.end()) return;
    Entity& entity = found->second;
    if (entity.open) throw CRefusal{"an entity contains itself"};
    if (entity.content == kNoXmlNode) ParseEntity(entity, name);
    node.start = entity.content;
    Cost(entity.cost);
    if (m_entityDepth == 0) Grow(entity.cost);
}

// Into nodes of its own, by a parser that knows the same declarations.
void CXmlBuilder::ParseEntity(Entity& entity, const char* name) {
    if (m_entityDepth == kDeepestEntity) throw CRefusal{"entities nest in more than 16 levels"};
    const CExpat inner(XML_ExternalEntityParserCreate(m_parser, name, "UTF-8"));
    if (!inner) throw std::bad_alloc();
    if (m_entityDepth == 0) m_entityOffset = static_cast<std::uint32_t>(XML_GetCurrentByteIndex(m_parser));
    const XmlIndex content = m_tree.Add(m_above, kXmlEntityContent, m_entityOffset);
    if (content == kNoXmlNode) throw CRefusal{"more than 8,388,608 nodes"};
    m_tree.Node(content).preserve = Above().preserve;
    entity.content = content;
    entity.open = true;
    const XmlIndex above = std::exchange(m_above, content);
    const std::uint64_t cost = std::exchange(m_cost, 0);
    ++m_entityDepth;
    // Nothing is raised while the inner parser is the one that calls.
    const XML_Parser outer = std::exchange(m_parser, inner.get());
    const XML_Status status = XML_Parse(m_parser, entity.text.data(), static_cast<int>(entity.text.size()), XML_TRUE);
    m_parser = outer;
    // A refusal is the outcome already, and stops the outer parser too.
    if (m_outOfMemory) throw std::bad_alloc();
    if (m_refusal) throw CRefusal{m_refusal};
    if (status != XML_STATUS_OK) throw CRefusal{"an entity is not well-formed"};
    CloseText();
    m_blank = false;
    entity.cost = std::exchange(m_cost, cost);
    entity.open = false;
    m_above = above;
    --m_entityDepth;
}

// Two bytes a character, and neither a mark nor a declaration that says so.
bool CXmlBuilder::LacksEncoding(std::string_view bytes) const noexcept {
    return !m_isText && m_tree.sourceUnit == 2 && !m_namedEncoding && (bytes[0] == '<' || bytes[0] == 0);
}

XmlOutcome CXmlBuilder::Outcome(XML_Parser parser) const {
    // The parser says so also of what is beyond bounds of its own, and that is the document's fault.
    if (m_outOfMemory) return {E_OUTOFMEMORY, "out of memory", 0, 0};
    return {S_FALSE, m_refusal ? m_refusal : XML_ErrorString(XML_GetErrorCode(parser)),
            static_cast<LONG>(XML_GetCurrentLineNumber(parser)),
            static_cast<LONG>(XML_GetCurrentColumnNumber(parser)) + 1};
}

XmlOutcome CXmlBuilder::Parse(std::string_view bytes) {
    const CExpat parser(XML_ParserCreateNS(m_isText ? "UTF-16LE" : nullptr, kNamePart));
    if (!parser) throw std::bad_alloc();
    m_parser = parser.get();
    SetHandlers();
    const XML_Status status = XML_Parse(m_parser, bytes.data(), static_cast<int>(bytes.size()), XML_TRUE);
    if (status != XML_STATUS_OK || m_refusal || m_outOfMemory) {
        return Outcome(m_parser);
    }
    if (LacksEncoding(bytes)) return {S_FALSE, "UTF-16 with neither a byte order mark nor a declaration", 1, 1};
    return {};
}

XmlOutcome ParseXml(CXmlTree& tree, bool isText, std::string_view bytes) noexcept {
    try {
        const std::size_t units = isText ? bytes.size() / sizeof(char16_t) : bytes.size();
        if (units > kLargestXmlDocument) return {S_FALSE, "larger than 64 MiB", 0, 0};
        return CXmlBuilder(tree, isText, bytes.size()).Parse(bytes);
    } catch (...) {
        return {E_OUTOFMEMORY, {}, 0, 0};
    }
}

}  // namespace

XmlOutcome ParseXmlFile(CXmlTree& tree) noexcept {
    const std::string_view bytes = tree.source;
    const auto begins = [&](std::string_view mark) { return bytes.substr(0, mark.size()) == mark; };
    tree.bigEndian = begins("\xFE\xFF") || begins(std::string_view("\0<", 2));
    tree.sourceUnit = tree.bigEndian || begins("\xFF\xFE") || begins(std::string_view("<\0", 2)) ? 2 : 1;
    return ParseXml(tree, false, bytes);
}

XmlOutcome ParseXmlText(CXmlTree& tree, std::u16string_view text) noexcept {
    return ParseXml(tree, true, {reinterpret_cast<const char*>(text.data()), text.size() * sizeof(char16_t)});
}
