// svinfo explain, sources, check, reload and copy-workgroup: where values come from, and what is wrong with the files.
#include <random>

#include "cli_fixture.h"
#include "store/PolicyKey.h"
#include "support/DataRoot.h"
#include "support/ValueText.h"
#include "svinfo/Levels.h"
#include "svinfo/StoreView.h"

namespace {

using namespace testreg;

// Only the layer tells where a node stands.
const bool kPlaces = std::string(kOvHomeName) == "layer";

class CliSources : public CliTest {
  protected:
    void SetUp() override {
        ImportSample();
        for (const PolicySource& source : kPolicySources) {
            if (source.folder == 0) continue;
            const std::filesystem::path target = m_data.PathOf(source);
            const std::filesystem::path sample = std::filesystem::path(OV_SAMPLES) / target.parent_path().filename();
            if (exists(sample / target.filename())) copy_file(sample / target.filename(), target);
        }
    }
    // "kind state items/in force" of each source.
    std::vector<std::string> Ledger() {
        std::vector<std::string> lines;
        const json answer = Json({"sources"});
        for (const json& source : answer["sources"]) {
            lines.push_back(source["kind"].get<std::string>() + " " + source["state"].get<std::string>() + " " +
                            std::to_string(source["items"].get<int>()) + "/" +
                            std::to_string(source["inForce"].get<int>()));
        }
        return lines;
    }
    // "line item: text" of each finding of a file, and the exit code of the check.
    std::vector<std::string> Check(const std::string& document) {
        const std::string path = Write("candidate.xml", document);
        const CRunResult result = Run({"check", path, "--json"});
        std::vector<std::string> lines = {std::to_string(result.exitCode)};
        if (result.exitCode == 4) return {"4 " + result.errors.substr(std::min(path.size(), result.errors.size()))};
        const json file = json::parse(result.output)["files"][0];
        for (const json& finding : file["findings"]) {
            const int line = finding["line"];
            EXPECT_EQ(line != 0, kPlaces && finding["text"].get<std::string>().find("no Items") == std::string::npos);
            lines.push_back((kPlaces ? std::to_string(line) + " " : "") + finding["text"].get<std::string>());
        }
        return lines;
    }
    static std::vector<std::string> Lines(std::vector<std::pair<int, std::string>> lines, int exitCode) {
        std::vector<std::string> out = {std::to_string(exitCode)};
        for (const auto& [line, text] : lines) out.push_back((kPlaces ? std::to_string(line) + " " : "") + text);
        return out;
    }

    CDataRoot m_data{m_root.Path()};
};

TEST_F(CliSources, TheLedgerOfTheSamples) {
    EXPECT_EQ(Ledger(), (std::vector<std::string>{"group-policy empty 0/0", "gpo-auth found 1/1",
                                                  "plugin-settings found 6/6", "plugin-auth found 2/1",
                                                  "tessel-settings found 3/2", "tessel-auth found 2/1"}));
    EXPECT_EQ(Run({"sources"}).exitCode, 0);
    m_data.Write(kPolicySources[2], "<r><Items>\n<Group></Items></r>");
    m_data.Write(kPolicySources[3], "");
    std::filesystem::remove(m_data.PathOf(kPolicySources[4]));
    EXPECT_EQ(Ledger(), (std::vector<std::string>{"group-policy empty 0/0", "gpo-auth found 1/1",
                                                  "plugin-settings damaged 0/0", "plugin-auth damaged 0/0",
                                                  "tessel-settings absent 0/0", "tessel-auth found 2/2"}));
    const CRunResult text = Run({"sources"});
    EXPECT_EQ(text.exitCode, 1);
    if (kPlaces) {
        EXPECT_NE(text.errors.find("OV_WgClient_Data.xml:2:10: mismatched tag"), std::string::npos) << text.errors;
    }
    Done({"reg", "delete", "HKLM\\SOFTWARE\\Orvantis", "OrvantisPath"});
    EXPECT_EQ(Ledger()[5], "tessel-auth absent 0/0");
}

TEST_F(CliSources, ExplainTellsEveryLevelFromStrongestToWeakest) {
    const json answer = Json({"explain", "locktimeout"});
    std::vector<std::string> states;
    for (const json& level : answer["levels"]) {
        states.push_back(level["kind"].get<std::string>() + " " + level["state"].get<std::string>() + " " +
                         level["value"].dump());
    }
    EXPECT_EQ(states,
              (std::vector<std::string>{"group-policy absent null", "gpo-auth absent null", "plugin-settings won 300",
                                        "plugin-auth absent null", "tessel-settings hidden 900",
                                        "tessel-auth absent null", "local hidden 900", "default hidden 600"}));
    EXPECT_EQ(answer["item"]["value"], 300);
    EXPECT_EQ(answer["item"]["origin"]["kind"], "plugin-settings");
    EXPECT_EQ(answer["item"]["origin"]["line"], kPlaces ? 7 : 0);
    EXPECT_EQ(answer["item"]["hidden"].size(), 3u);
    EXPECT_EQ(Run({"explain", "LockTimeot"}).exitCode, 1);
    EXPECT_NE(Run({"explain", "LockTimeot"}).errors.find("did you mean 'LockTimeout'?"), std::string::npos);

    // An empty list in the local key is no answer, and keeps the default's list from being asked.
    PutList(W("SOFTWARE\\Orvantis\\Policies\\Applications\\{5ED04F3F-AC3E-4BE0-A157-782B204E2B8C}"),
            W("DisableCredentials"), {W("")});
    PutDword(kDefaultPolicyKey, W("DisableCredentials"), 5);
    std::string line;
    const json denied = Json({"explain", "DisableCredentials"});
    for (const json& level : denied["levels"]) {
        if (level["kind"] == "local" || level["kind"] == "default") line += level["state"].get<std::string>() + "; ";
    }
    EXPECT_EQ(line, "passed over; not asked; absent; won; ");
    EXPECT_EQ(Done({"get", "DisableCredentials"}), "5\n");
}

TEST_F(CliSources, ChecksNameEveryOddity) {
    EXPECT_EQ(Check(SettingsXml(ItemXml("a", "REG_DWORD", "1"))), Lines({}, 0));
    EXPECT_EQ(Check("<r>\n<Items/>\n</r>"), Lines({{2, "no Group with the Name 'Policies' nor 'Domains'"}}, 1));
    EXPECT_EQ(Check("<r>\n<Items/>\n<x><Items/>\n<Items/></x></r>"),
              Lines({{3, "another Items element: with more than one the whole document gives nothing"},
                     {4, "another Items element: with more than one the whole document gives nothing"}},
                    1));
    EXPECT_EQ(
        Check("<r><Items><Group><Name>Policies</Name>\n<Item><Name>x</Name></Item>\n" +
              ItemXml("cut", "REG_DWORD", "10 apples") + "\n" + ItemXml("b", "REG_BINARY", "1") + "\n" +
              ItemXml("behind", "REG_SZ", "1") + "</Group>\n" + GroupXml("Policies", "") +
              "<Group><Name>Domains</Name>\n" + ItemXml("d", "REG_SZ", "true") + "</Group></Items></r>"),
        Lines(
            {{2, "'x' passed over: it has no Type, Data"},
             {3, "'cut': not all of '10 apples' is a number in base 16; what begins it counts"},
             {4,
              "'b' ends the reading: found the Type 'REG_BINARY', expected REG_DWORD, REG_QWORD or REG_SZ, exactly so"},
             {5, "'behind' is not read: it stands behind the end"},
             {7, "'d' passed over: found the Type 'REG_SZ', expected boolean"}},
            1))
        << "a walk that ended early looks for no second group";
    EXPECT_EQ(
        Check("<r>\n<NoPolicy/>\n" + ListXml("LogonPolicy", {}) + "\n" + ItemXml("RuntimePolicy", "REG_DWORD", "1") +
              "</r>"),
        Lines({{2, "'NoPolicy' passed over: neither PolicyItems, once, nor Name, Type and Data"},
               {3, "'LogonPolicy' passed over: its list is empty"},
               {4, "'RuntimePolicy' is found by no question: in this form it bears its long name. Write it as a list"}},
              1));
    const std::vector<std::string> damaged = Check("<r>\n  <Items>&nosuch;</Items></r>");
    EXPECT_EQ(damaged[0].substr(0, 2), "4 ");
    if (kPlaces) {
        EXPECT_NE(damaged[0].find(":2:10: found undefined entity"), std::string::npos) << damaged[0];
    }
    EXPECT_EQ(Run({"check", OV_SAMPLES "/Registry.pol"}).exitCode, 0);
    EXPECT_EQ(Run({"check", "no such file"}).exitCode, 4);
    if (kPlaces) {
        EXPECT_EQ(Run({"check", "/dev/zero"}).exitCode, 4) << "what has no end is not read";
        const auto column = [&](const std::string& start, const std::string& before) -> int {
            const std::string path = Write("c.xml", start + "<r>" + before +
                                                        "<LogonPolicy>"
                                                        "<PolicyItems><PolicyItem>1</PolicyItem>"
                                                        "</PolicyItems></LogonPolicy></r>");
            return Json({"check", path})["files"][0]["items"][0]["column"];
        };
        EXPECT_EQ(column("", "<!--\xC3\xA4\xC3\xB6-->"), 13);
        EXPECT_EQ(column("\xEF\xBB\xBF", "<!--\xC3\xA4\xC3\xB6-->"), 13) << "a mark is no character";
        const std::string declared = "<?xml version='1.0' encoding='windows-1252'?>";
        EXPECT_EQ(column(declared, "<!--\x80\x81-->"), 13 + static_cast<int>(declared.size()));
    }
    const std::string before = Done({"reg", "export", "HKLM\\SOFTWARE"});
    const json policy = Json({"check", OV_SAMPLES "/Registry.pol"})["files"][0];
    EXPECT_EQ(policy["kind"], "registry policy");
    EXPECT_EQ(policy["items"].size(), 8u);
    EXPECT_EQ(Done({"reg", "export", "HKLM\\SOFTWARE"}), before) << "nothing is changed";
}

TEST_F(CliSources, SettingsAreCopiedAndTold) {
    const std::string path = Write(
        "s.xml", "\xEF\xBB\xBF" + SettingsXml(ItemXml("New\\One", "REG_DWORD", "1F") + ItemXml("Gr\xC3\xB6\xC3\x9F"
                                                                                               "e",
                                                                                               "REG_SZ", "a&amp;b")));
    EXPECT_EQ(Run({"copy-workgroup", path}).exitCode, 0);
    EXPECT_EQ(Done({"get", "New/One"}), "31\n");
    EXPECT_EQ(Done({"get",
                    "Gr\xC3\xB6\xC3\x9F"
                    "e"}),
              "a&b\n");
    const CRunResult hidden = Run({"copy-workgroup"});
    EXPECT_EQ(hidden.exitCode, 6) << "the file itself is a source, and stronger";
    EXPECT_NE(hidden.errors.find("LockTimeout: written, but a managed value hides it"), std::string::npos);
    // What an entity holds is no item, and what a text begins and ends with belongs to it.
    const std::string odd =
        Write("odd.xml", "<!DOCTYPE r [<!ENTITY e '" + ItemXml("Hidden", "REG_DWORD", "1") + "'>]>" +
                             SettingsXml("&e;" + ItemXml("Blanks", "REG_SZ", "<![CDATA[ a>b\n ]]>")));
    EXPECT_EQ(Run({"copy-workgroup", odd}).exitCode, 0);
    EXPECT_EQ(Run({"get", "Hidden"}).exitCode, 1);
    EXPECT_EQ(Done({"get", "Blanks"}), " a>b\n \n");

    const std::string before = Done({"reg", "export", kPolicies});
    EXPECT_EQ(Run({"copy-workgroup", Write("bad.xml", "<r")}).exitCode, 4);
    std::filesystem::remove(m_data.PathOf(kPolicySources[2]));
    EXPECT_EQ(Run({"copy-workgroup"}).exitCode, 1);
    EXPECT_EQ(Done({"reg", "export", kPolicies}), before);
    EXPECT_EQ(Run({"reload"}).exitCode, 0);
    EXPECT_EQ(Json({"reload"})["items"], 6);
}

// A machine made by dice: every source in every state, a few names that meet in all of them.
class CDiceMachine {
  public:
    explicit CDiceMachine(unsigned seed) : m_random(seed) {}

    static std::vector<wstr> Names() {
        return {W("LogonPolicy"), W("RuntimePolicy"), W("DisableCredentials"), W("Plain"), W("A\\B"),
                W("a\\b\\C"),     W("Other")};
    }
    void Make(const CDataRoot& data) {
        static constexpr LPCWSTR kRoots[] = {kGroupPolicyKey, kLocalPolicyKey, kDefaultPolicyKey};
        for (const LPCWSTR root : kRoots) {
            for (const wstr& name : Names()) {
                if (Chance(3)) Plain(root, name);
                if (IsAuthPolicyName(name.c_str()) && Chance(4)) List(root, name);
                if (IsAuthPolicyName(name.c_str()) && Chance(4)) Bits(root, name);
            }
        }
        for (const PolicySource& source : kPolicySources) {
            if (source.folder == 0 || Chance(5)) continue;
            std::string document = source.form == PolicyForm::kSettings ? Settings() : Policies();
            if (Chance(8)) document.resize(document.size() / 2);
            data.Write(source, document);
        }
    }

  private:
    bool Chance(unsigned oneOf) { return m_random() % oneOf == 0; }
    std::string Digits() { return std::to_string(m_random() % 4); }
    void Plain(const wstr& root, const wstr& name) {
        const std::size_t last = name.rfind(W('\\'));
        const wstr key = last == wstr::npos ? root : root + W('\\') + name.substr(0, last);
        const wstr leaf = last == wstr::npos ? name : name.substr(last + 1);
        if (Chance(4)) return PutList(key.c_str(), leaf.c_str(), {W("x")});  // a type that no plain item has
        if (Chance(4)) return PutString(key.c_str(), leaf.c_str(), W("text"));
        PutDword(key.c_str(), leaf.c_str(), m_random() % 4);
    }
    void List(const wstr& root, const wstr& name) {
        const wstr key = root + W('\\') + wstr(AppsPolicyPrefix);
        Chance(3) ? PutList(key.c_str(), name.c_str(), {W("")}) : PutList(key.c_str(), name.c_str(), {W("1"), W("2")});
    }
    void Bits(const wstr& root, const wstr& name) {
        PutDword((root + W("\\AuthenticationPolicies\\") + name).c_str(), W("bit"), m_random() % 4);
    }
    std::string Settings() {
        std::string items;
        for (const wstr& name : Names()) {
            if (Chance(3)) items += ItemXml(Narrow(name), Chance(12) ? "REG_NONE" : "REG_DWORD", Digits());
        }
        return Chance(10) ? "<r><Items/>" + SettingsXml(items) + "</r>" : SettingsXml(items);
    }
    std::string Policies() {
        std::string xml = "<r>";
        for (const wstr& name : Names()) {
            if (!IsAuthPolicyName(name.c_str()) || !Chance(3)) continue;
            xml += Chance(3)   ? ItemXml(Narrow(name), "REG_DWORD", Digits())
                   : Chance(4) ? ListXml(Narrow(name), {})
                               : ListXml(Narrow(name), {"1", "2"});
        }
        return xml + "</r>";
    }

    std::mt19937 m_random;
};

TEST(Explain, NamesAsWinnerWhatAQuestionAnswers) {
    int won = 0;
    for (unsigned seed = 1; seed <= 60; ++seed) {
        SCOPED_TRACE(seed);
        const CTestRoot root;
        const CDataRoot data(root.Path());
        CDiceMachine(seed).Make(data);
        CSourceLedger ledger;
        const CStoreView view(&ledger);
        for (const CItem& item : AskItems(view.Info(), CDiceMachine::Names(), OV_QUERY)) {
            SCOPED_TRACE(Narrow(item.Name()));
            const std::vector<CLevel> levels = LevelsOf(item.Name(), ledger, view);
            const CLevel* const winner = WinnerOf(levels);
            ASSERT_EQ(winner != nullptr, item.Result() == S_OK || item.Result() == S_FALSE ||
                                             item.Result() == HRESULT_FROM_WIN32(ERROR_NOT_SUPPORTED))
                << std::hex << item.Result();
            if (!winner) continue;
            ++won;
            EXPECT_EQ(winner->held.Result(), item.Result());
            EXPECT_EQ(winner->held.Json(), item.Json()) << winner->kind;
            const bool local = winner->kind == std::string("local") || winner->kind == std::string("default");
            const std::vector<CLevel> below = LocalLevelsOf(item.Name(), !local);
            const CLevel* const first = WinnerOf(below);
            EXPECT_EQ(first != nullptr, local) << "as list shows them";
        }
    }
    EXPECT_GT(won, 200);
}

}  // namespace
