// Policy documents: what each walk makes of them.
#include <gtest/gtest.h>

#include "diagnostics/RecordingOutput.h"
#include "sources/XMLPolicyReader.h"
#include "support/DataRoot.h"
#include "support/ValueText.h"

namespace {

// The map as "name = value", in key order.
std::string Told(const CPolicyMap& map) {
    std::string text;
    for (std::size_t rank = 0; rank < map.Size(); ++rank) {
        const CPolicyItem& item = map.At(rank);
        text += (rank ? "; " : "") + Narrow(item.name) + " = " + ValueText(item.value.Raw());
    }
    return text;
}

struct Outcome {
    HRESULT hr;
    std::string items;
};
using Walk = HRESULT (CExtXMLPacker::*)() noexcept;
constexpr Walk kSettings = &CExtXMLPacker::ProcessOVSettings;
constexpr Walk kDomains = &CExtXMLPacker::ProcessOVDomains;
constexpr Walk kPolicies = &CExtXMLPacker::ProcessOVAuthPolicies;

Outcome Read(Walk walk, const std::string& document) {
    CPolicyMap map;
    const CComBSTR text(wstr(document.begin(), document.end()).c_str());
    CExtXMLPolicyReader reader(VariantOf(text), map);
    const HRESULT hr = (reader.*walk)();
    return {hr, Told(map)};
}

struct Case {
    const char* what;
    std::string document;
    HRESULT hr;
    const char* items;
};

void Expect(Walk walk, const std::vector<Case>& cases) {
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        const Outcome outcome = Read(walk, c.document);
        EXPECT_EQ(outcome.hr, c.hr) << std::hex << outcome.hr;
        EXPECT_EQ(outcome.items, c.items);
    }
}

std::string Items(const std::string& groups) {
    return "<r><Items>" + groups + "</Items></r>";
}

TEST(XmlSettings, AreReadAsTheirShapeSays) {
    const std::string one = ItemXml("A\\B", "REG_DWORD", "10");
    Expect(
        kSettings,
        {{"types, numbers in base 16",
          SettingsXml(one + ItemXml("q", "REG_QWORD", "0xffffffffffffffff") + ItemXml("s", "REG_SZ", "a  &amp; b") +
                      ItemXml("F", "REG_DWORD", "FF")),
          S_OK, "A\\B = dword 16; F = dword 255; q = qword FFFFFFFFFFFFFFFF; s = string 'a  & b'"},
         {"numbers end where their digits do",
          SettingsXml(ItemXml("a", "REG_DWORD", "255") + ItemXml("b", "REG_DWORD", "none") +
                      ItemXml("c", "REG_DWORD", "1FFFFFFFF") + ItemXml("d", "REG_DWORD", "1<!---->0") +
                      ItemXml("e", "REG_DWORD", "")),
          S_OK, "a = dword 597; b = dword 0; c = dword 4294967295; d = dword 16; e = dword 0"},
         {"the first of a name stays", SettingsXml(one + ItemXml("a\\b", "REG_SZ", "x")), S_OK, "A\\B = dword 16"},
         {"deep down", "<a><b><c><d>" + SettingsXml(one) + "</d></c></b></a>", S_OK, "A\\B = dword 16"},
         {"Items twice", "<a>" + SettingsXml(one) + "<x><Items/></x></a>", S_FALSE, ""},
         {"no Items", "<a/>", S_FALSE, ""},
         {"no document", "<a>", S_FALSE, ""},
         {"the case of the group's name counts", Items(GroupXml("policies", one)), S_FALSE, ""},
         {"the first group of the name only",
          Items(GroupXml("Other", one) + GroupXml("Policies", ItemXml("x", "REG_DWORD", "1")) +
                GroupXml("Policies", one)),
          S_OK, "x = dword 1"},
         {"a group without a name", Items("<Group>" + one + "</Group>" + GroupXml("Policies", "")), S_OK, ""},
         {"any children of Policies are items",
          Items(GroupXml("Policies", "<Policies><!--n--><Any><Name>x</Name><Type>REG_SZ</Type><Data>1</Data></Any>t" +
                                         one + "</Policies>" + ItemXml("not", "REG_SZ", "read"))),
          S_OK, "A\\B = dword 16; x = string '1'"},
         {"an incomplete item is passed over", SettingsXml("<Item><Name>n</Name><Type>REG_SZ</Type></Item>" + one),
          S_OK, "A\\B = dword 16"},
         {"a type that is none ends the walk",
          SettingsXml(one + ItemXml("x", "reg_dword", "1") + ItemXml("y", "REG_DWORD", "1")), E_INVALIDARG,
          "A\\B = dword 16"}});
}

TEST(XmlDomains, AreSwitchedByTheirData) {
    const auto domain = [](const char* name, const char* data) { return ItemXml(name, "boolean", data); };
    Expect(
        kDomains,
        {{"on and off",
          Items(GroupXml("Domains", domain("a", "True") + domain("b", "TRUE") + domain("c", "1") + domain("d", "") +
                                        domain("e\\f", "true"))),
          S_OK,
          "AuthenticationDomains\\a = dword 1; AuthenticationDomains\\b = dword 1; AuthenticationDomains\\c = dword 0; "
          "AuthenticationDomains\\d = dword 0; AuthenticationDomains\\e\\f = dword 1"},
         {"another type is passed over", Items(GroupXml("Domains", ItemXml("x", "REG_DWORD", "true"))), S_OK, ""},
         {"the first flag stays", Items(GroupXml("Domains", domain("a", "true") + domain("A", "false"))), S_OK,
          "AuthenticationDomains\\a = dword 1"},
         {"beside the settings", Items(GroupXml("Policies", ItemXml("x", "REG_SZ", "")) + GroupXml("Domains", "")),
          S_OK, ""},
         {"no such group", SettingsXml(""), S_FALSE, ""}});
}

TEST(XmlAuthPolicies, HaveAListOrASingleForm) {
    const std::string kLong = "Applications\\{5ED04F3F-AC3E-4BE0-A157-782B204E2B8C}\\";
    Expect(kPolicies,
           {{"lists", "<r><!--n-->" + ListXml("LogonPolicy", {"1", "10"}) + ListXml("Other", {"zz"}) + "</r>", S_FALSE,
             "LogonPolicy = array [0000000000000001 0000000000000010]; Other = array [0000000000000000]"},
            {"a single one gets the long name", "<r>" + ItemXml("LogonPolicy", "REG_DWORD", "3") + "</r>", S_FALSE,
             "Applications\\{5ED04F3F-AC3E-4BE0-A157-782B204E2B8C}\\LogonPolicy = dword 3"},
            {"an empty list is none", "<r>" + ListXml("LogonPolicy", {}) + ListXml("RuntimePolicy", {"2"}) + "</r>",
             S_FALSE, "RuntimePolicy = array [0000000000000002]"},
            {"two lists are no list",
             "<r><LogonPolicy><PolicyItems/><PolicyItems/></LogonPolicy>" + ListXml("RuntimePolicy", {"2"}) + "</r>",
             S_FALSE, "RuntimePolicy = array [0000000000000002]"},
            {"two lists and the children of a single one",
             "<r><X><PolicyItems/><PolicyItems/><Name>n</Name><Type>REG_SZ</Type><Data>t</Data></X></r>", S_FALSE,
             "Applications\\{5ED04F3F-AC3E-4BE0-A157-782B204E2B8C}\\n = string 't'"},
            {"a type that is none ends the walk",
             "<r>" + ItemXml("n", "REG_BINARY", "1") + ListXml("LogonPolicy", {"1"}) + "</r>", E_INVALIDARG, ""},
            {"no document", "", S_FALSE, ""}});
}

class XmlTrace : public TraceTest {
  protected:
    void SetUp() override {
        TraceTest::SetUp();
        TraceOn();
        ReadAgain();
    }
    // The messages of one walk, in order.
    std::string Messages(CExtXMLPacker& packer, Walk walk) {
        m_entries.clear();
        (packer.*walk)();
        std::string text;
        for (const TraceEntry& entry : m_entries) {
            // The line of a check moves with the code.
            if (entry.tag == 'U' && !entry.text.starts_with("( file XMLPacker, line ")) text += entry.text + "\n";
        }
        return text;
    }
    std::string MessagesOf(const std::string& document, Walk walk) {
        CPolicyMap map;
        const CComBSTR text(wstr(document.begin(), document.end()).c_str());
        CExtXMLPolicyReader reader(VariantOf(text), map);
        return Messages(reader, walk);
    }
};

TEST_F(XmlTrace, TellsItemsAndReportsChecks) {
    EXPECT_EQ(MessagesOf("<r/>", kSettings), "...no data received\n");
    EXPECT_EQ(MessagesOf(SettingsXml(ItemXml("A", "REG_DWORD", "1") + ItemXml("a", "REG_QWORD", "2") +
                                     ItemXml("s", "REG_SZ", "t") + ItemXml("x", "REG_NONE", "t")),
                         kSettings),
              "A = 1\na = 0x0000000000000002\ns = 't'\n"
              "_restorePolicy( bsItemName, bsItemType, bsData ), result: 0x80070057\n"
              "hr = _parsePolicies( xmlnGroup ), result: 0x80070057\n");
    EXPECT_EQ(MessagesOf(Items(GroupXml("Domains", ItemXml("d", "boolean", "true"))), kDomains),
              "From XML: 1 domain(s)\nAuthenticationDomains\\d = 1\n");
    EXPECT_EQ(
        MessagesOf("<r>" + ListXml("P", {"1"}) + ListXml("E", {}) + "<q/></r>", kPolicies),
        "From XML: 1 policy items(s)\nP = (array)\nFrom XML: 0 policy items(s)\nUnexpected type: 0\n...not a policy\n");
    EXPECT_EQ(MessagesOf("<r>" + ItemXml("x", "REG_NONE", "t") + "</r>", kPolicies),
              "_parseAuthPolicy( xmlnItem ), result: 0x80070057\n");
    EXPECT_EQ(MessagesOf("<r>", kPolicies),
              "( IS_OK( m_pDocument->get_documentElement( &pXMLElement ) ) && pXMLElement ), result: 0x00000001\n");

    VARIANT number = {};
    number.vt = VT_I4;
    CExtXMLPacker none(number);
    EXPECT_EQ(none.Result(), E_INVALIDARG);
    for (const Walk walk : {kSettings, kDomains, kPolicies}) {
        EXPECT_EQ(Messages(none, walk), "m_hr, result: 0x80070057\n");
    }
    const CComBSTR text(W("<r><Items><Group><Name>Domains</Name></Group></Items></r>"));
    CExtXMLPacker plain(VariantOf(text));
    EXPECT_EQ(Messages(plain, kDomains),
              "From XML: 0 domain(s)\nActivateDomains( smDomains ), result: 0x80004001\n"
              "hr = _restoreDomains( xmlnGroup ), result: 0x80004001\n");
}

TEST_F(XmlTrace, DumpsWritesADocumentWithoutItsSecrets) {
    const std::filesystem::path folder = m_root.Path();
    const CComBSTR xml(W("<r><a>secret</a><b c='1'>more secret text</b></r>"));
    OVXMLDoc document(VariantOf(xml));
    const auto dumped = [&](const std::vector<wstr>* secrets) -> std::string {
        std::filesystem::remove(folder / "dump.xml");
        document.Dump(W("dump"), secrets);
        if (!std::filesystem::exists(folder / "dump.xml")) return "none";
        CTestDocument read;
        read.LoadPath(WidePath(folder / "dump.xml"));
        return Text(read.Root().Get());
    };
    testreg::PutString(kKey, W("TracePath"), WidePath(folder));
    const std::vector<wstr> secrets = {W("secret"), W(""), W("text")};
    EXPECT_EQ(dumped(nullptr), "secretmore secret text") << "without TraceXMLs DoTrace decides";
    EXPECT_EQ(dumped(&secrets), "xxxxxxxxmore  xxxxxxxx  xxxxxxxx");
    Set(W("TraceXMLs"), 0);
    EXPECT_EQ(dumped(nullptr), "none");
    Set(W("TraceXMLs"), 1);
    Set(W("DoTrace"), 0);
    EXPECT_EQ(dumped(nullptr), "none");
}

}  // namespace
