// svinfo gpupdate, list and watch: policy files on their way to the items.
#include <future>

#include "cli_reg_fixture.h"
#include "svinfo/PolFile.h"
#include "svinfo/Text.h"

namespace {

const std::string kPolicyKey = "HKLM\\SOFTWARE\\Policies";

std::vector<BYTE> Bytes(DWORD number) {
    return {static_cast<BYTE>(number), static_cast<BYTE>(number >> 8), static_cast<BYTE>(number >> 16),
            static_cast<BYTE>(number >> 24)};
}

std::vector<BYTE> Bytes(const wstr& text) {
    std::vector<BYTE> bytes;
    for (const WCHAR unit : text + WCHAR{0}) {
        bytes.push_back(static_cast<BYTE>(unit & 0xFF));
        bytes.push_back(static_cast<BYTE>(unit >> 8));
    }
    return bytes;
}

// Records of a file that a test builds, on keys below SOFTWARE\Policies\Orvantis.
class CPolicy {
  public:
    CPolicy& Number(const wstr& key, const wstr& name, DWORD number) {
        return Add(key, name, REG_DWORD, Bytes(number));
    }
    CPolicy& Text(const wstr& key, const wstr& name, const wstr& text) { return Add(key, name, REG_SZ, Bytes(text)); }
    CPolicy& Key(const wstr& key) { return Add(key, {}, REG_NONE, {}); }
    CPolicy& Anywhere(const wstr& key, const wstr& name, DWORD number) {
        m_records.push_back({key, name, REG_DWORD, Bytes(number), 0});
        return *this;
    }
    std::string File() const { return WritePolFile(m_records); }

  private:
    CPolicy& Add(const wstr& key, const wstr& name, DWORD type, std::vector<BYTE> data) {
        m_records.push_back(
            {W("Software\\Policies\\Orvantis") + (key.empty() ? key : W("\\") + key), name, type, std::move(data), 0});
        return *this;
    }
    std::vector<CPolRecord> m_records;
};

class CliPolicy : public CliRegTest {
  protected:
    // Applies the files in order. The home may be without a way to signal; that is told by the tests of the signal.
    CRunResult Apply(const std::vector<CPolicy>& policies, const std::vector<std::string>& options = {}) {
        std::vector<std::string> args = {"gpupdate"};
        for (std::size_t i = 0; i < policies.size(); ++i) {
            args.push_back(Write(std::to_string(i) + ".pol", policies[i].File()));
        }
        args.insert(args.end(), options.begin(), options.end());
        return Run(args);
    }
    std::string Policies() {
        std::string tree = Tree(kPolicyKey);
        const std::string longName = "HKEY_LOCAL_MACHINE\\SOFTWARE\\Policies";
        for (std::size_t at = 0; (at = tree.find(longName, at)) != std::string::npos;)
            tree.replace(at, longName.size(), "P");
        return tree;
    }
};

TEST_F(CliPolicy, AnApplicationReplacesWhatTheLastOneSet) {
    Done({"reg", "add", kPolicyKey + "\\Orvantis", "Mine", "REG_SZ", "stays"});
    Apply({CPolicy().Number(W(""), W("A"), 1).Text(W("K\\L"), W("T"), W("x")).Key(W("Empty"))});
    EXPECT_EQ(Policies(),
              "[P] | [P\\Orvantis] A=#1 Mine=\"stays\" | [P\\Orvantis\\Empty] | [P\\Orvantis\\K] | "
              "[P\\Orvantis\\K\\L] T=\"x\"");
    const CRunResult second = Apply({CPolicy().Number(W(""), W("A"), 2).Number(W("K"), W("N"), 3)});
    EXPECT_NE(second.errors.find("machine policy: 2 set, 0 deleted, 2 of the last application taken back"),
              std::string::npos)
        << second.errors;
    EXPECT_EQ(Policies(), "[P] | [P\\Orvantis] A=#2 Mine=\"stays\" | [P\\Orvantis\\K] N=#3")
        << "and the keys that it made, where they are empty";
    Apply({CPolicy()});
    EXPECT_EQ(Policies(), "[P] | [P\\Orvantis] Mine=\"stays\"");
}

TEST_F(CliPolicy, LaterFilesStandOverEarlierOnes) {
    Apply({CPolicy().Number(W(""), W("A"), 1).Number(W(""), W("B"), 1), CPolicy().Number(W(""), W("b"), 2)});
    EXPECT_EQ(Policies(), "[P] | [P\\Orvantis] A=#1 B=#2");
}

TEST_F(CliPolicy, Instructions) {
    const auto start = [] {
        return CPolicy()
            .Number(W(""), W("A"), 1)
            .Number(W(""), W("B"), 2)
            .Number(W("K\\L"), W("C"), 3)
            .Number(W("M"), W("D"), 4);
    };
    const std::string all =
        "[P] | [P\\Orvantis] A=#1 B=#2 | [P\\Orvantis\\K] | [P\\Orvantis\\K\\L] C=#3 | [P\\Orvantis\\M] D=#4";
    const struct {
        const char* why;
        CPolicy then;
        std::string left;
        bool told;
    } rows[] = {
        {"one value", CPolicy().Text(W(""), W("**del.a"), W(" ")),
         "[P] | [P\\Orvantis] B=#2 | [P\\Orvantis\\K] | [P\\Orvantis\\K\\L] C=#3 | [P\\Orvantis\\M] D=#4", false},
        {"one value, but other data", CPolicy().Text(W(""), W("**Del.A"), W("x")), all, true},
        {"several values", CPolicy().Text(W(""), W("**DeleteValues"), W("A;none;B")),
         "[P] | [P\\Orvantis] | [P\\Orvantis\\K] | [P\\Orvantis\\K\\L] C=#3 | [P\\Orvantis\\M] D=#4", false},
        {"all values, not the keys below", CPolicy().Text(W(""), W("**DelVals."), W(" ")),
         "[P] | [P\\Orvantis] | [P\\Orvantis\\K] | [P\\Orvantis\\K\\L] C=#3 | [P\\Orvantis\\M] D=#4", false},
        {"keys with all below", CPolicy().Text(W(""), W("**DeleteKeys"), W("K;none;M")),
         "[P] | [P\\Orvantis] A=#1 B=#2", false},
        {"a key that is not immediately below", CPolicy().Text(W(""), W("**DeleteKeys"), W("K\\L")), all, true},
        {"a value that is there", CPolicy().Number(W(""), W("**soft.A"), 9), all, false},
        {"a value that is not there", CPolicy().Number(W("M"), W("**soft.E"), 9), all + " E=#9", false},
        {"an unknown one", CPolicy().Number(W(""), W("**Dance"), 1), all, true},
        {"a key outside", CPolicy().Anywhere(W("Software\\Orvantis\\Policies"), W("A"), 1), all, true},
        {"a key with a root's name", CPolicy().Anywhere(W("HKLM:\\Software\\Policies\\X"), W("A"), 1), all, true},
        {"a neighbour's name", CPolicy().Anywhere(W("Software\\PoliciesToo"), W("A"), 1), all, true},
    };
    for (const auto& row : rows) {
        const CRunResult result = Apply({start(), row.then});
        EXPECT_EQ(Policies(), row.left) << row.why;
        EXPECT_EQ(result.errors.find("1.pol: byte 8: ") != std::string::npos, row.told) << row.why << result.errors;
    }
}

TEST_F(CliPolicy, ADamagedFileChangesNothing) {
    Apply({CPolicy().Number(W(""), W("A"), 1)});
    const std::string before = Tree();
    const std::string good = CPolicy().Number(W(""), W("A"), 2).File();
    const std::string bad = Write("bad.pol", good.substr(0, good.size() - 1));
    const CRunResult result = Run({"gpupdate", Write("good.pol", good), bad});
    EXPECT_EQ(result.exitCode, 4);
    EXPECT_TRUE(result.errors.starts_with(bad + ": byte " + std::to_string(good.size() - 2) + ": found "))
        << result.errors;
    EXPECT_EQ(Tree(), before);
}

TEST_F(CliPolicy, ItemsAreServedAsManagedAndHideLocalOnes) {
    Done({"reg", "add", kPolicies, "A", "REG_DWORD", "7"});
    Done({"reg", "add", kPolicies + "\\Default", "A", "REG_DWORD", "8"});
    Done({"reg", "add", kPolicies, "Local", "REG_SZ", "here"});
    Apply({CPolicy().Number(W(""), W("A"), 1).Text(W("B\\C"), W("T"), W("text"))});
    EXPECT_EQ(Done({"get", "A"}), "1\n");
    EXPECT_EQ(Done({"get", "--managed-only", "B/C/T"}), "text\n");
    EXPECT_EQ(Done({"list"}), "A\t1\tdword\tmanaged\nB\\C\\T\ttext\tstring\tmanaged\n");
    EXPECT_EQ(Done({"list", "b/"}), "B\\C\\T\ttext\tstring\tmanaged\n");
    EXPECT_EQ(Run({"list", "none"}).exitCode, 1);
    EXPECT_EQ(Done({"list", "--all"}),
              "A\t1\tdword\tmanaged\tgroup-policy\nA\t7\tdword\thidden\tlocal\n"
              "A\t8\tdword\thidden\tdefault\nB\\C\\T\ttext\tstring\tmanaged\tgroup-policy\n"
              "Local\there\tstring\tlocal\tlocal\n");
    const auto answer = Json({"list", "--all"});
    ASSERT_EQ(answer["items"].size(), 3u);
    EXPECT_EQ(answer["items"][0]["origin"]["kind"], "group-policy");
    EXPECT_EQ(answer["items"][0]["hidden"].size(), 2u);
    EXPECT_EQ(answer["items"][0]["hidden"][1]["value"], 8);
    const auto status = Json({"status"});
    EXPECT_EQ(status["lastLoad"]["number"], 1);
    EXPECT_EQ(status["lastLoad"]["cause"], "first-query");
    EXPECT_EQ(status["lastLoad"]["items"], 2);
}

// Another program wrote it: Samba's Python packages.
TEST_F(CliPolicy, TheSampleOfAnotherWriter) {
    ImportSample();
    Run({"gpupdate", OV_SAMPLES "/Registry.pol"});
    EXPECT_EQ(Done({"list"}),
              "CommonSettings\\{B3C9E1A4-52D7-4F0B-9C68-1D7E03A5F246}\\OfflineLogonDays\t7\tdword\tmanaged\n"
              "Gr\xC3\xB6\xC3\x9F"
              "e\\H\xC3\xB6"
              "chstzahl\t12\tdword\tmanaged\n"
              "LogFolder\t%ProgramData%\\Orvantis\\Logs\tstring\tmanaged\n"
              "LogonPolicy\t0x0000000000000004\tarray\tmanaged\n"
              "LogonPolicy\t0x8000000000000001\tarray\tmanaged\n"
              "PasswordMinLength\t14\tdword\tmanaged\n"
              "RuntimePolicy\t4\tdword\tmanaged\n"
              "ServerName\tauth.policy.example.org\tstring\tmanaged\n"
              "SpareKey\\SpareKeyAllowed\t0\tdword\tmanaged\n");
}

TEST_F(CliPolicy, AUserNobodyKnows) {
    EXPECT_EQ(Apply({CPolicy()}, {"--user", "nobody-of-that-name"}).exitCode, 2);
}

}  // namespace
