// svinfo reg: import, export, query, add, delete.
#include "cli_reg_fixture.h"

namespace {

using CliReg = CliRegTest;

TEST_F(CliReg, ImportSetsAndDeletes) {
    const CRunResult first =
        Import("[" + kLongKey + "\\A]\r\n\"a\"=dword:1\r\n\"b\"=\"x\"\r\n[" + kLongKey + "\\B\\C]\r\n@=\"y\"\r\n");
    EXPECT_EQ(first.exitCode, 0);
    EXPECT_EQ(first.output, "");
    EXPECT_TRUE(first.errors.ends_with("f.reg: 2 keys, 3 values set, 0 keys and 0 values deleted, 0 lines skipped\n"))
        << first.errors;
    EXPECT_EQ(Tree(kKey), "[" + kLongKey + "] | [" + kLongKey + "\\A] a=#1 b=\"x\" | [" + kLongKey + "\\B] | [" +
                              kLongKey + "\\B\\C] @=\"y\"");

    const CRunResult second = Import("[" + kLongKey + "\\A]\r\n\"a\"=-\r\n\"none\"=-\r\n[-" + kLongKey + "\\B]\r\n[-" +
                                     kLongKey + "\\None]\r\n");
    EXPECT_TRUE(second.errors.ends_with("1 key, 0 values set, 1 key and 1 value deleted, 0 lines skipped\n"))
        << "what is not there cannot be deleted, and that is no failure: " << second.errors;
    EXPECT_EQ(Tree(kKey), "[" + kLongKey + "] | [" + kLongKey + "\\A] b=\"x\"");
}

TEST_F(CliReg, ImportTellsWhatItSkips) {
    const std::string file = Write("f.reg", kHeader + "[" + kLongKey + "]\r\n\"a\"=x\r\n\"b\"=dword:1\r\njunk\r\n");
    const std::string skipped =
        file + ":4:5: found 'x', expected text in quotes, dword:, hex:, hex(N): or -; skipped\n" + file +
        ":6:1: found 'junk', expected a key in brackets, a value, or a comment; skipped\n";
    const CRunResult result = Run({"reg", "import", file});
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.errors, skipped + file + ": 1 key, 1 value set, 0 keys and 0 values deleted, 2 lines skipped\n");
    EXPECT_EQ(Tree(kKey), "[" + kLongKey + "] b=#1");
    EXPECT_EQ(Run({"reg", "import", file, "-q"}).errors, skipped) << "without the summary, but not without these";

    const auto answer = Json({"reg", "import", file});
    EXPECT_EQ(answer["keys"], 1);
    EXPECT_EQ(answer["valuesSet"], 1);
    EXPECT_EQ(answer["keysDeleted"], 0);
    EXPECT_EQ(answer["valuesDeleted"], 0);
    EXPECT_EQ(answer["skipped"].size(), 2u);
    EXPECT_EQ(answer["skipped"][1]["line"], 6);
}

TEST_F(CliReg, ABadFileChangesNothingAndGives4) {
    Done({"reg", "add", kKey, "v", "REG_SZ", "before"});
    const std::string before = Tree();
    const std::string body = "\n[" + kLongKey + "]\n\"v\"=\"after\"\n";
    const struct {
        const char* why;
        std::string bytes;
        const char* message;
    } rows[] = {
        {"no header", "junk" + body,
         ":1:1: found 'junk', expected 'Windows Registry Editor Version 5.00' or 'REGEDIT4'\n"},
        {"nothing", "", ":1:1: found the end of the line, expected "},
        {"no UTF-8 at its end", "Windows Registry Editor Version 5.00" + body + "; \xFF",
         ":4:3: found bytes that are no UTF-8, expected "},
        {"half a character at its end", regtext::Utf16File("REGEDIT4" + body) + "x",
         ":4:1: found half a character at the end of the file, expected "},
        {"the other byte order", std::string("\xFE\xFF\0R", 4),
         ":1:1: found UTF-16 in the big-endian order, expected "},
    };
    for (const auto& row : rows) {
        const std::string file = Write("bad.reg", row.bytes);
        const CRunResult result = Run({"reg", "import", file});
        EXPECT_EQ(result.exitCode, 4) << row.why;
        EXPECT_TRUE(result.errors.starts_with(file + row.message)) << row.why << ": " << result.errors;
        EXPECT_EQ(result.output, "") << row.why;
        EXPECT_EQ(Tree(), before) << row.why;
    }
    const std::string missing = (m_root.Path() / "missing.reg").string();
    EXPECT_EQ(Run({"reg", "import", missing}).exitCode, 4);
    EXPECT_TRUE(Run({"reg", "import", missing}).errors.starts_with(missing + ": cannot be read: "));
    EXPECT_EQ(Run({"reg", "import", m_root.Path().string()}).exitCode, 4) << "a folder";
}

TEST_F(CliReg, ExportComesBackTheSameThroughImport) {
    ImportSample();
    const std::string file = (m_root.Path() / "out.reg").string();
    EXPECT_EQ(Run({"reg", "export", "HKLM\\SOFTWARE", file}).exitCode, 0);
    const std::string exported = Read(file);
    EXPECT_TRUE(Done({"reg", "export", "HKEY_LOCAL_MACHINE\\SOFTWARE"}) == exported) << "without FILE, the same bytes";
    EXPECT_EQ(Done({"reg", "export", "HKLM\\SOFTWARE\\Orvantis\\"}).substr(0, 2), "\xFF\xFE");

    const std::string second = (m_root.Path() / "second").string();
    EXPECT_EQ(RunAt(second, {"reg", "import", file, "-q"}).errors, "");
    EXPECT_TRUE(RunAt(second, {"reg", "export", "HKLM\\SOFTWARE"}).output == exported);
}

TEST_F(CliReg, OddValuesSurviveExportAndImport) {
    std::string large = "5a";  // more than a reading has room for at first
    for (int i = 1; i < 70000; ++i) large += ",5a";
    const std::string body = "[" + kLongKey + "]\r\n\"large\"=hex:" + large +
                             "\r\n\"size0\"=hex(1):\r\n\"odd\"=hex(1):61,00,62\r\n\"noend\"=hex(1):61,00\r\n"
                             "\"inner\"=hex(1):61,00,00,00,62,00,00,00\r\n\"tab\"=hex(1):09,00,00,00\r\n"
                             "\"dw3\"=hex(4):01,02,03\r\n\"none\"=hex(0):\r\n\"type\"=hex(ffff1234):00,01\r\n"
                             "\"q\\\"b\\\\\"=\"q\\\"b\\\\\"\r\n[" +
                             kLongKey + "\\br]ack[et]\r\n[" + kLongKey + "\\sl/ash \"q\" ]\r\n";
    EXPECT_EQ(Import(body).exitCode, 0);
    const std::string tree = Tree(kKey);
    EXPECT_GT(tree.size(), 2 * 70000u);
    EXPECT_NE(tree.find("odd=1:610062"), std::string::npos) << tree;
    EXPECT_NE(tree.find("type=ffff1234:0001"), std::string::npos) << tree;
    const std::string exported = Done({"reg", "export", kKey});
    Done({"reg", "delete", kKey});
    ASSERT_EQ(Tree(kKey), "exit 1");
    EXPECT_EQ(Run({"reg", "import", Write("back.reg", exported)}).exitCode, 0);
    EXPECT_EQ(Tree(kKey), tree);
}

TEST_F(CliReg, AFailedExportLeavesTheOldFile) {
    const std::string file = Write("old.reg", "old");
    const CRunResult result = Run({"reg", "export", kKey, file});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(result.errors, "svinfo: export " + kLongKey + ": 0x80070002 it does not exist\n");
    EXPECT_EQ(Read(file), "old");
    Done({"reg", "add", kKey, "v", "REG_SZ", "x"});
    const CRunResult nowhere = Run({"reg", "export", kKey, (m_root.Path() / "no" / "such.reg").string()});
    EXPECT_EQ(nowhere.exitCode, 5);
    EXPECT_NE(nowhere.errors.find("such.reg: "), std::string::npos) << nowhere.errors;
}

TEST_F(CliReg, ExportInJsonNeedsAFile) {
    Done({"reg", "add", kKey + "\\A", "v", "REG_SZ", "x"});
    const std::string file = (m_root.Path() / "out.reg").string();
    const auto answer = Json({"reg", "export", kKey, file});
    EXPECT_EQ(answer["file"], file);
    EXPECT_EQ(answer["keys"], 2);
    EXPECT_EQ(answer["values"], 1);
    EXPECT_EQ(Run({"reg", "export", kKey, "--json"}).exitCode, 2);
}

TEST_F(CliReg, AddWritesEveryType) {
    const struct {
        const char* value;
        const char* type;
        const char* data;
    } rows[] = {
        {"sz", "REG_SZ", "x y"},       {"exp", "reg_expand_sz", "%PATH%"},
        {"dw", "REG_DWORD", "0x10"},   {"qw", "REG_QWORD", "18446744073709551615"},
        {"bin", "REG_BINARY", "00ff"}, {"multi", "REG_MULTI_SZ", "a\\0b"},
        {"", "REG_SZ", "default"},
    };
    for (const auto& row : rows) EXPECT_EQ(Done({"reg", "add", kKey + "\\A\\B", row.value, row.type, row.data}), "");
    EXPECT_EQ(Tree(kKey + "\\A\\B"), "[" + kLongKey +
                                         "\\A\\B] @=\"default\" bin=3:00ff dw=#16 exp=2:2500500041005400480025000000 "
                                         "multi=7:61000000620000000000 qw=b:ffffffffffffffff sz=\"x y\"");
    Done({"reg", "add", kKey + "\\A\\B", "@", "REG_SZ", "again"});
    EXPECT_EQ(Done({"reg", "query", kKey + "\\A\\B", "@"}), "@\tREG_SZ\tagain\n");
    EXPECT_EQ(Run({"reg", "add", kKey + "\\C", "v", "REG_DWORD", "many"}).exitCode, 2);
    EXPECT_EQ(Run({"reg", "query", kKey + "\\C"}).exitCode, 1) << "no key is made for a value that is refused";
}

TEST_F(CliReg, DeleteTakesAValueOrAKeyWithAllBelow) {
    Done({"reg", "add", kKey + "\\A\\B", "v", "REG_SZ", "x"});
    Done({"reg", "add", kKey + "\\A", "v", "REG_SZ", "x"});
    Done({"reg", "add", kKey + "\\A", "", "REG_SZ", "x"});
    Done({"reg", "delete", kKey + "\\A", "v"});
    Done({"reg", "delete", kKey + "\\A", "@"});
    EXPECT_EQ(Done({"reg", "query", kKey + "\\A"}), "B\tkey\t\n");
    Done({"reg", "delete", kKey + "\\A"});
    EXPECT_EQ(Done({"reg", "query", kKey}), "");
    const CRunResult again = Run({"reg", "delete", kKey + "\\A"});
    EXPECT_EQ(again.exitCode, 1);
    EXPECT_EQ(again.errors, "svinfo: delete " + kLongKey + "\\A: 0x80070002 it does not exist\n");
    EXPECT_EQ(Run({"reg", "delete", kKey, "none"}).errors,
              "svinfo: delete " + kLongKey + " value 'none': 0x80070002 it does not exist\n");
}

TEST_F(CliReg, QueryShowsValuesAndSubkeys) {
    Import("[" + kLongKey +
           "]\r\n@=\"d\"\r\n\"bad\"=hex(1):61\r\n\"dw\"=dword:ffffffff\r\n\"multi\"=hex(7):61,00,00,00,62,00,00,00,00,"
           "00\r\n"
           "\"qw\"=hex(b):01,00,00,00,00,00,00,00\r\n[" +
           kLongKey + "\\Sub]\r\n");
    EXPECT_EQ(Done({"reg", "query", kKey}),
              "@\tREG_SZ\td\nbad\tREG_SZ\t61\ndw\tREG_DWORD\t4294967295\nmulti\tREG_MULTI_SZ\ta\\0b\n"
              "qw\tREG_QWORD\t0x0000000000000001\nSub\tkey\t\n");
    EXPECT_EQ(Done({"reg", "query", kKey, "DW"}), "DW\tREG_DWORD\t4294967295\n");
    EXPECT_EQ(Json({"reg", "query", kKey}).dump(),
              R"({"schema":1,"key":"HKEY_LOCAL_MACHINE\\SOFTWARE\\T","values":[)"
              R"({"name":"","type":"REG_SZ","form":"text","data":"d"},)"
              R"({"name":"bad","type":"REG_SZ","form":"bytes","data":"61"},)"
              R"({"name":"dw","type":"REG_DWORD","form":"number","data":4294967295},)"
              R"({"name":"multi","type":"REG_MULTI_SZ","form":"list","data":["a","b"]},)"
              R"({"name":"qw","type":"REG_QWORD","form":"mask","data":"0000000000000001"}],"keys":["Sub"]})");
    EXPECT_EQ(Json({"reg", "query", kKey, "dw"}).dump(),
              R"({"schema":1,"key":"HKEY_LOCAL_MACHINE\\SOFTWARE\\T","values":[)"
              R"({"name":"dw","type":"REG_DWORD","form":"number","data":4294967295}]})");
    const CRunResult missing = Run({"reg", "query", kKey, "none"});
    EXPECT_EQ(missing.exitCode, 1);
    EXPECT_EQ(missing.errors, "svinfo: read " + kLongKey + " value 'none': 0x80070002 it does not exist\n");
    EXPECT_EQ(Run({"reg", "query", kKey + "\\None"}).exitCode, 1);
}

}  // namespace
