// svinfo get: the component's answers, in text and JSON.
#include "cli_fixture.h"

namespace {

class CliGet : public CliTest {
  protected:
    void SetUp() override { ImportSample(); }
};

TEST_F(CliGet, OneNamePrintsTheBareValue) {
    const struct {
        const char* why;
        const char* name;
        const char* output;
    } rows[] = {
        {"text", "ServerName", "auth01.example.org\n"},
        {"text to be expanded, unexpanded", "LogFolder", "%ProgramData%\\Orvantis\\Log\n"},
        {"text beyond ASCII", "WelcomeText",
         "Gr\xC3\xBC\xC3\x9F Gott \xE2\x80\x94 \xCE\x9A\xCE\xB1\xCE\xBB\xCE\xB7\xCE\xBC\xCE\xAD\xCF\x81\xCE\xB1, "
         "\xE4\xBB\x8A\xE6\x97\xA5\xE3\x81\xAF \xF0\x9F\x99\x82\n"},
        {"a DWORD in decimal", "LockTimeout", "900\n"},
        {"a QWORD with 16 digits", "LicenseSerial", "0x00A1B2C3D4E5F607\n"},
        {"8 bytes are one too", "InstallStamp", "0x01DA54C56151EFF2\n"},
        {"a subkey", "SpareKey\\SpareKeyAllowed", "1\n"},
        {"with slashes", "SpareKey/SpareKeyAllowed", "1\n"},
        {"with slashes, deep", "CommonSettings/{B3C9E1A4-52D7-4F0B-9C68-1D7E03A5F246}/OfflineLogonDays", "14\n"},
        {"in another case", "sparekey\\SPAREKEYALLOWED", "1\n"},
        {"beyond ASCII, in another case", "\xC3\xA4RZTLICHE FREIGABE", "n\xC3\xB6tig\n"},
        {"a Greek path",
         "\xCE\x95\xCE\xBB\xCE\xBB\xCE\xB7\xCE\xBD\xCE\xB9\xCE\xBA\xCE\xAC/"
         "\xCE\xA1\xCF\x8D\xCE\xB8\xCE\xBC\xCE\xB9\xCF\x83\xCE\xB7",
         "7\n"},
        {"a list, one mask a line", "LogonPolicy", "0x0000000000000003\n0x0000000000000014\n0x8000000000000001\n"},
        {"a list under its long spelling", "Applications\\{5ED04F3F-AC3E-4BE0-A157-782B204E2B8C}\\RuntimePolicy",
         "0x0000000000000001\n"},
        {"masks are read by their digits", "CustomizationPolicy", "0x0000000000000010\n0xFFFFFFFFFFFFFFFF\n"},
        {"bits, joined", "LogonPolicyAdmin", "5\n"},
        {"a policy as a plain number", "RuntimePolicyUser", "17\n"},
        {"the default where nothing else is", "PasswordMaxAge", "90\n"},
        {"a policy of the defaults", "DisableCredentials", "320\n"},
    };
    for (const auto& row : rows) EXPECT_EQ(Done({"get", row.name}), row.output) << row.why;
}

TEST_F(CliGet, DefaultAsksForTheDefaultAlone) {
    EXPECT_EQ(Done({"get", "LockTimeout", "--default"}), "600\n");
    EXPECT_EQ(Done({"get", "--default", "LogonPolicy"}), "0x0000000000000001\n");
    EXPECT_EQ(Run({"get", "--default", "LicenseSerial"}).exitCode, 1);
}

TEST_F(CliGet, SeveralNamesMakeATable) {
    EXPECT_EQ(Done({"get", "LockTimeout", "LogonPolicy", "ServerName"}),
              "LockTimeout\t900\tdword\tlocal\n"
              "LogonPolicy\t0x0000000000000003\tarray\tlocal\n"
              "LogonPolicy\t0x0000000000000014\tarray\tlocal\n"
              "LogonPolicy\t0x8000000000000001\tarray\tlocal\n"
              "ServerName\tauth01.example.org\tstring\tlocal\n");
    EXPECT_EQ(Done({"get", "-v", "LockTimeout"}), "LockTimeout\t900\tdword\tlocal\n");
}

TEST_F(CliGet, AnAbsentNameIsToldAndGives1) {
    const CRunResult one = Run({"get", "LockTimeuot"});
    EXPECT_EQ(one.exitCode, 1);
    EXPECT_EQ(one.output, "");
    EXPECT_EQ(one.errors, "svinfo: LockTimeuot: 0x80070002 it does not exist; did you mean 'LockTimeout'?\n");

    const CRunResult several = Run({"get", "LockTimeout", "Nothing\\Of\\The\\Kind"});
    EXPECT_EQ(several.exitCode, 1);
    EXPECT_EQ(several.output, "LockTimeout\t900\tdword\tlocal\nNothing\\Of\\The\\Kind\t\tnull\tabsent\n");
    EXPECT_EQ(several.errors, "svinfo: Nothing\\Of\\The\\Kind: 0x80070002 it does not exist\n");
}

TEST_F(CliGet, AValueOfAWrongType) {
    const CRunResult local = Run({"get", "ReportColumns"});
    EXPECT_EQ(local.exitCode, 1) << "passed over, and there is no default";
    EXPECT_EQ(local.output, "");
    EXPECT_EQ(local.errors,
              "svinfo: ReportColumns: 0x80070002 it does not exist; what the registry holds under this name "
              "is of a wrong type or damaged\n");

    Done({"reg", "add", kPolicies + "\\Default", "ReportColumns", "REG_BINARY", "00"});
    const CRunResult both = Run({"get", "ReportColumns"});
    EXPECT_EQ(both.exitCode, 5);
    EXPECT_EQ(both.errors, "svinfo: ReportColumns: 0x8007000D the data is of a wrong type or damaged\n");
    EXPECT_EQ(Json({"get", "ReportColumns"})["items"][0]["state"], "error");
    EXPECT_EQ(Run({"get", "Nothing", "ReportColumns", "LockTimeout"}).exitCode, 5) << "the worst one counts";
}

TEST_F(CliGet, ManagedOnlyTakesNoLocalValue) {
    const CRunResult result = Run({"get", "--managed-only", "LockTimeout"});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(result.output, "");
    EXPECT_EQ(result.errors, "svinfo: LockTimeout: only a local value\n");
}

TEST_F(CliGet, JsonHasAFixedForm) {
    const CRunResult result =
        Run({"get", "--json", "ServerName", "LockTimeout", "LicenseSerial", "RuntimePolicy", "No"});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(result.output, R"({
  "schema": 1,
  "items": [
    {
      "name": "ServerName",
      "type": "string",
      "value": "auth01.example.org",
      "state": "local",
      "hr": "0x00000001"
    },
    {
      "name": "LockTimeout",
      "type": "dword",
      "value": 900,
      "state": "local",
      "hr": "0x00000001"
    },
    {
      "name": "LicenseSerial",
      "type": "qword",
      "value": "00A1B2C3D4E5F607",
      "state": "local",
      "hr": "0x00000001"
    },
    {
      "name": "RuntimePolicy",
      "type": "array",
      "value": [
        "0000000000000001"
      ],
      "state": "local",
      "hr": "0x00000001"
    },
    {
      "name": "No",
      "type": "null",
      "value": null,
      "state": "absent",
      "hr": "0x80070002"
    }
  ]
}
)");
    EXPECT_EQ(Json({"get", "a/b"})["items"][0]["name"], "a\\b");
}

TEST_F(CliGet, OddNamesAreNames) {
    Done({"reg", "add", kPolicies, "[a,b]", "REG_SZ", "brackets"});
    Done({"reg", "add", kPolicies, "status", "REG_SZ", "a verb"});
    Done({"reg", "add", kPolicies + "\\A", "b/c", "REG_SZ", "a slash"});
    Done({"reg", "add", kPolicies, "@", "REG_SZ", "no name"});
    EXPECT_EQ(Done({"get", "[a,b]"}), "brackets\n");
    EXPECT_EQ(Done({"get", "[a,b]", "[a,b]"}), "[a,b]\tbrackets\tstring\tlocal\n[a,b]\tbrackets\tstring\tlocal\n");
    EXPECT_EQ(Done({"reg", "query", kPolicies, "[a,b]"}), "[a,b]\tREG_SZ\tbrackets\n");
    EXPECT_EQ(Done({"get", "status"}), "a verb\n");
    EXPECT_EQ(Done({"get", "A\\b/c"}), "a slash\n") << "with a backslash, a slash is a slash";
    EXPECT_EQ(Done({"get", ""}), "no name\n");
}

TEST_F(CliGet, ValuesReachAPipeAsTheyAre) {
    Done({"reg", "add", kPolicies, "ctl", "REG_SZ", "a\x1B[31m\tb"});
    EXPECT_EQ(Done({"get", "ctl"}), "a\x1B[31m\tb\n");
    EXPECT_EQ(Done({"get", "-v", "ctl"}), "ctl\ta\\x1B[31m\\tb\tstring\tlocal\n") << "but do not break a table";
    EXPECT_EQ(Run({"get", "-v", "--color", "always", "No"}).output, "No\t\tnull\t\x1B[33mabsent\x1B[0m\n");
}

TEST_F(CliGet, HalfASurrogatePairIsVisible) {
    const std::string file = Write(
        "half.reg", "\xFF\xFE" + [] {
            std::string utf16;
            for (const char c :
                 kHeader + "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Orvantis\\Policies]\r\n\"half\"=\"x?y\"\r\n") {
                if (c == '?') {
                    utf16 += std::string("\x00\xD8", 2);
                } else {
                    (utf16 += c) += '\0';
                }
            }
            return utf16;
        }());
    ASSERT_EQ(Run({"reg", "import", file}).exitCode, 0);
    EXPECT_EQ(Done({"get", "half"}), "x\xEF\xBF\xBDy\n");
    EXPECT_EQ(Json({"get", "half"})["items"][0]["value"], "x\xEF\xBF\xBDy");
}

TEST_F(CliGet, AModuleThatIsNotThereIsAFailure) {
    namespace fs = std::filesystem;
    const fs::path program = OV_SVINFO, elsewhere = m_root.Path() / "bin";
    fs::create_directory(elsewhere);
    for (const auto& file : fs::directory_iterator(program.parent_path())) {
        const std::string name = file.path().stem().string();
        if (name == "svinfo" || name == "libsvinfo" || name.starts_with("libovplatform"))
            fs::copy(file, elsewhere / file.path().filename());
    }
    const std::string copy = (elsewhere / program.filename()).string();
    const CRunResult result = RunProgram({copy, "--root", m_root.Path().string(), "get", "A"});
    EXPECT_EQ(result.exitCode, 5);
    EXPECT_EQ(result.errors, "svinfo: load the module OvSvInfo: 0x8007007E the module was not found\n");
    const CRunResult status = RunProgram({copy, "--root", m_root.Path().string(), "status", "--json"});
    EXPECT_EQ(status.exitCode, 5);
    EXPECT_EQ(nlohmann::json::parse(status.output)["module"], nullptr) << "the rest is told all the same";
}

}  // namespace
