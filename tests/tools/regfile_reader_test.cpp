// The reader of registration files: what the field's tools take, and what they skip.
#include <gtest/gtest.h>

#include "regfile_text.h"

using regtext::ReadText;
using regtext::Utf16File;

namespace {

const std::string kFive = "Windows Registry Editor Version 5.00\n\n";
const std::string kFour = "REGEDIT4\n\n";
const std::string kKey = "[HKEY_USERS\\K]\n";

struct Row {
    const char* why;
    std::string input;
    std::string expected;
};

// Each row's lines below a key of a version 5 file; the first of them is line 4.
template <std::size_t N>
void ExpectBelowKey(const Row (&rows)[N]) {
    for (const Row& row : rows) {
        std::string expected = row.expected;
        if (!expected.empty() && expected[0] != '!')
            expected = " " + expected;
        else if (!expected.empty())
            expected = " | " + expected;
        EXPECT_EQ(ReadText(kFive + kKey + row.input), "[HKEY_USERS\\K]" + expected) << row.why;
    }
}

TEST(RegFileReader, Headers) {
    const Row rows[] = {
        {"version 5", "Windows Registry Editor Version 5.00\n[HKEY_USERS\\A]", "[HKEY_USERS\\A]"},
        {"version 4", "REGEDIT4\n[HKEY_USERS\\A]", "[HKEY_USERS\\A]"},
        {"alone, without a line end", "Windows Registry Editor Version 5.00", ""},
        {"blanks and tabs before it", " \tREGEDIT4\n[HKEY_USERS\\A]", "[HKEY_USERS\\A]"},
        {"an empty line before it", "\nREGEDIT4\n", "refused 1:1"},
        {"no file at all", "", "refused 1:1"},
        {"lower case", "regedit4\n", "refused 1:1"},
        {"another case of version 5", "Windows Registry Editor version 5.00\n", "refused 1:1"},
        {"a short number", "Windows Registry Editor Version 5\n", "refused 1:1"},
        {"version 4 in words", "Windows Registry Editor Version 4.00\n", "refused 1:1"},
        {"text before it", "AREGEDIT4\n", "refused 1:1"},
        {"the place is behind the blanks", "  junk\n", "refused 1:3"},
        {"another number: accepted, and nothing read", "REGEDIT5\n[HKEY_USERS\\A]\n", "!1:1"},
        {"a blank before the number", "REGEDIT 4\n[HKEY_USERS\\A]\n", "!1:1"},
        {"text behind the number", "REGEDIT4FOO\n[HKEY_USERS\\A]\n", "!1:1"},
        {"a blank behind the number", "REGEDIT4 \n[HKEY_USERS\\A]\n", "!1:1"},
    };
    for (const Row& row : rows) EXPECT_EQ(ReadText(row.input), row.expected) << row.why;
}

TEST(RegFileReader, Encodings) {
    const std::string body = kFive + "[HKEY_USERS\\\xC3\x84]\n\"\xE2\x82\xAC\"=\"\xF0\x9F\x99\x82\"\n";
    const std::string result = "[HKEY_USERS\\\xC3\x84] \xE2\x82\xAC=\"\xF0\x9F\x99\x82\"";
    std::string bigEndian = "\xFE\xFF", unmarked = Utf16File(body).substr(2), bigUnmarked;
    for (std::size_t i = 0; i < unmarked.size(); i += 2) {
        (bigEndian += unmarked[i + 1]) += unmarked[i];
        (bigUnmarked += unmarked[i + 1]) += unmarked[i];
    }
    const Row rows[] = {
        {"UTF-16 with its mark", Utf16File(body), result},
        {"UTF-8", body, result},
        {"UTF-8 with its mark", "\xEF\xBB\xBF" + body, result},
        {"UTF-16 without its mark", unmarked, "refused 1:1"},
        {"UTF-16 in the other order", bigEndian, "refused 1:1"},
        {"and without its mark", bigUnmarked, "refused 1:1"},
        {"half a character at the end", Utf16File(kFive + "ab") + "c", "refused 3:3"},
        {"a mark alone", "\xFF\xFE", "refused 1:1"},
        {"no UTF-8, its place in characters", kFive + "[HKEY_USERS\\A]\n; \xC3\xA4 \xFF\n", "refused 4:5"},
        {"a surrogate in UTF-8", kFive + "; \xED\xA0\x80\n", "refused 3:3"},
        {"an overlong form", kFive + "; \xC0\xAF\n", "refused 3:3"},
        {"a sequence cut short by the end", kFive + ";\xE2\x82", "refused 3:2"},
        {"version 4 is 8-bit text", "REGEDIT4\n[HKEY_USERS\\\xC4]\n\"\x80\"=\"\xE9\"\n",
         "[HKEY_USERS\\\xC3\x84] \xE2\x82\xAC=\"\xC3\xA9\""},
        {"a mark stands above that", "\xEF\xBB\xBFREGEDIT4\n[HKEY_USERS\\\xC3\x84]\n", "[HKEY_USERS\\\xC3\x84]"},
        {"version 4 in UTF-16", Utf16File("REGEDIT4\n[HKEY_USERS\\\xC3\x84]\n"), "[HKEY_USERS\\\xC3\x84]"},
    };
    for (const Row& row : rows) EXPECT_EQ(ReadText(row.input), row.expected) << row.why;
}

TEST(RegFileReader, LoneSurrogatesOfUtf16Stay) {
    const std::string bytes = Utf16File(kFive + kKey + "\"?\"=\"x\"\n");
    std::string changed = bytes;
    changed.replace(changed.find("?"), 2, "\x00\xD8", 2);
    const CRegFile file = ReadRegFile(changed);
    ASSERT_EQ(file.blocks.size(), 1u);
    ASSERT_EQ(file.blocks[0].entries.size(), 1u);
    EXPECT_EQ(file.blocks[0].entries[0].name, wstr(1, WCHAR(0xD800)));
}

TEST(RegFileReader, LineEnds) {
    const std::string expected = "[HKEY_USERS\\K] a=#1 b=#2";
    for (const char* end : {"\n", "\r\n", "\r"}) {
        std::string text = "REGEDIT4";
        for (const char* line : {"", "[HKEY_USERS\\K]", "\"a\"=dword:1", "\"b\"=dword:2"}) (text += end) += line;
        EXPECT_EQ(ReadText(text), expected) << "the last line needs no end";
        EXPECT_EQ(ReadText(text + end), expected);
        EXPECT_EQ(ReadText(text + end + "junk"), expected + " | !6:1") << "lines count alike";
    }
}

TEST(RegFileReader, Keys) {
    const std::string longName(256, 'n');
    const Row rows[] = {
        {"every root", "[HKEY_LOCAL_MACHINE\\A]\n[HKEY_CURRENT_USER\\B]\n[HKEY_CLASSES_ROOT\\C]\n[HKEY_USERS\\D]",
         "[HKEY_LOCAL_MACHINE\\A] | [HKEY_CURRENT_USER\\B] | [HKEY_CLASSES_ROOT\\C] | [HKEY_USERS\\D]"},
        {"case does not matter in the root", "[hkey_Users\\a\\B]", "[HKEY_USERS\\a\\B]"},
        {"a root alone", "[HKEY_USERS]", "[HKEY_USERS]"},
        {"short names are for command lines", "[HKU\\A]", "!3:2"},
        {"a root that is not kept here", "[HKEY_CURRENT_CONFIG\\A]", "!3:2"},
        {"a root with a letter too many", "[HKEY_CURRENT_USERS\\A]", "!3:2"},
        {"deletes", "[-HKEY_USERS\\A\\B]", "[-HKEY_USERS\\A\\B]"},
        {"no root can be deleted", "[-HKEY_USERS]", "!3:3"},
        {"a blank behind the bracket", "[ HKEY_USERS\\A]", "!3:2"},
        {"a tab behind the bracket", "[\tHKEY_USERS\\A]", "!3:2"},
        {"a blank before the minus", "[ -HKEY_USERS\\A]", "!3:2"},
        {"a blank behind the minus", "[- HKEY_USERS\\A]", "!3:3"},
        {"blanks before the bracket", " \t[HKEY_USERS\\A]", "[HKEY_USERS\\A]"},
        {"no opening bracket", "HKEY_USERS\\A]", "!3:1"},
        {"no closing bracket", "[HKEY_USERS\\A", "!3:14"},
        {"over two lines", "[HKEY_USERS\\A\\\nB]", "!3:15 | !4:1"},
        {"the last bracket ends it", "[HKEY_USERS\\a]b]", "[HKEY_USERS\\a]b]"},
        {"what stands behind is not looked at", "[HKEY_USERS\\A] ; x", "[HKEY_USERS\\A]"},
        {"no escapes", "[HKEY_USERS\\q\"n\\\\x]", "[HKEY_USERS\\q\"n\\x]"},
        {"a slash is an ordinary character", "[HKEY_USERS\\https://a/b]", "[HKEY_USERS\\https://a/b]"},
        {"blanks at the end belong to the name", "[HKEY_USERS\\A ]", "[HKEY_USERS\\A ]"},
        {"backslashes at the end do not", "[HKEY_USERS\\A\\\\]", "[HKEY_USERS\\A]"},
        {"a backslash too many behind the root", "[HKEY_USERS\\\\A]", "!3:13"},
        {"the longest name", "[HKEY_USERS\\" + longName + "]", "[HKEY_USERS\\" + longName + "]"},
        {"one more", "[HKEY_USERS\\A\\" + longName + "n]", "!3:15"},
        {"a NUL", std::string("[HKEY_USERS\\A\0B]", 16), "!3:14"},
    };
    for (const Row& row : rows) EXPECT_EQ(ReadText(kFive + row.input), row.expected) << row.why;
}

TEST(RegFileReader, ValuesNeedAnOpenKey) {
    const Row rows[] = {
        {"before any key", "\"a\"=dword:1\n" + kKey, "[HKEY_USERS\\K] | !3:1"},
        {"behind a deleted key", kKey + "[-HKEY_USERS\\K\\L]\n\"a\"=dword:1",
         "[HKEY_USERS\\K] | [-HKEY_USERS\\K\\L] | !5:1"},
        {"behind a key that was not understood: not the key before it",
         kKey + "[HKEY_USERSX\\L]\n\"a\"=dword:1\n@=-\n" + kKey + "\"b\"=dword:2",
         "[HKEY_USERS\\K] | [HKEY_USERS\\K] b=#2 | !4:2 | !5:1 | !6:1"},
        {"a list of theirs is read to its end", "\"a\"=hex:01,\\\n  02\n", "!3:1"},
    };
    for (const Row& row : rows) EXPECT_EQ(ReadText(kFive + row.input), row.expected) << row.why;
}

TEST(RegFileReader, LinesOfTheBody) {
    const Row rows[] = {
        {"text", "\"a\"=\"x\"", "a=\"x\""},
        {"the default value", "@=\"x\"", "@=\"x\""},
        {"the default value by an empty name", "\"\"=\"x\"", "@=\"x\""},
        {"deletes", "\"a\"=-\n@=-", "a=- @=-"},
        {"deletes, with blanks", "\"a\"=  \t-\t  ", "a=-"},
        {"deletes, with a comment", "\"a\"=- ;c", "a=-"},
        {"deletes nothing with other text behind", "\"a\"=-\"x\"\n\"b\"=- #c", "!4:6 | !5:7"},
        {"blanks around everything", " \t\"a\" \t= \t\"x\" \t", "a=\"x\""},
        {"blanks around @", " @ = dword:1", "@=#1"},
        {"empty and blank lines", "\n  \n\t\n\"a\"=dword:1\n\n", "a=#1"},
        {"comments", ";x\n#x\n  ;x\n\t#\"a\"=dword:1\n\"b\"=dword:1", "b=#1"},
        {"a comment line is not continued", ";c\\\n\"a\"=dword:1", "a=#1"},
        {"names with = ; and /", "\"a=b;c/d\"=dword:1", "a=b;c/d=#1"},
        {"escapes in a name", "\"a\\\\b\\\"c\"=dword:1", "a\\b\"c=#1"},
        {"junk", "junk\n\"a\"=dword:1", "a=#1 | !4:1"},
        {"no opening quotation mark", "a\"=dword:1", "!4:1"},
        {"no closing quotation mark", "\"a=dword:1", "!4:11"},
        {"no sign", "\"a\" dword:1", "!4:5"},
        {"a name over two lines", "\"a\\\nb\"=dword:1", "!4:3 | !5:1"},
        {"no data", "\"a\"=", "!4:5"},
        {"a comment for data", "\"a\"=;\"x\"", "!4:5"},
        {"data of no form", "\"a\"=x", "!4:5"},
        {"columns count characters", "\"\xC3\xA4\xF0\x9F\x99\x82\"=x", "!4:6"},
        {"a NUL in a name", std::string("\"a\0\"=dword:1", 12), "!4:3"},
    };
    ExpectBelowKey(rows);
}

TEST(RegFileReader, LongestValueName) {
    const std::string name(16383, 'v');
    EXPECT_EQ(ReadText(kFive + kKey + "\"" + name + "\"=-"), "[HKEY_USERS\\K] " + name + "=-");
    EXPECT_EQ(ReadText(kFive + kKey + "\"" + name + "v\"=-"), "[HKEY_USERS\\K] | !4:1");
}

TEST(RegFileReader, Texts) {
    const Row rows[] = {
        {"empty", "\"a\"=\"\"", "a=\"\""},
        {"escapes", "\"a\"=\"q\\\"b\\\\\"", "a=\"q\"b\\\""},
        {"line ends as one editor writes them", "\"a\"=\"x\\r\\ny\"", "a=\"x\\r\\ny\""},
        {"a tab as it is", "\"a\"=\"x\ty\"", "a=\"x\\ty\""},
        {"an escape that means different things to different tools", "\"a\"=\"C:\\Program\"", "!4:8"},
        {"a NUL is imported by nobody", "\"a\"=\"x\\0\"", "!4:7"},
        {"a raw NUL", std::string("\"a\"=\"x\0\"", 8), "!4:7"},
        {"comment signs inside", "\"a\"=\"#x;y\"", "a=\"#x;y\""},
        {"a ; comment behind", "\"a\"=\"x\";c\n\"b\"=\"x\"  ;c", "a=\"x\" b=\"x\""},
        {"a # comment behind", "\"a\"=\"x\"#c\n\"b\"=\"x\"\t#c", "!4:8 | !5:9"},
        {"a quotation mark too many", "\"a\"=\"x\"y\"", "!4:8"},
        {"no opening quotation mark", "\"a\"=x\"", "!4:5"},
        {"an escaped opening quotation mark", "\"a\"=\\\"x\\\"", "!4:5"},
        {"no closing quotation mark", "\"a\"=\"x", "!4:7"},
        {"no continuation", "\"a\"=\"x \\\ny\"", "!4:8 | !5:1"},
    };
    ExpectBelowKey(rows);
}

TEST(RegFileReader, Dwords) {
    const Row rows[] = {
        {"one digit", "\"a\"=dword:f", "a=#15"},
        {"eight digits, both cases", "\"a\"=dword:fFfFfFf0", "a=#4294967280"},
        {"nine digits", "\"a\"=dword:000000001", "!4:11"},
        {"none", "\"a\"=dword:", "!4:11"},
        {"no number", "\"a\"=dword:hello", "!4:11"},
        {"a prefix", "\"a\"=dword:0x12", "!4:12"},
        {"a blank before", "\"a\"=dword: 1", "!4:11"},
        {"a blank between", "\"a\"=dword:12 34", "!4:14"},
        {"a comment", "\"a\"=dword:12;34\n\"b\"=dword:12 ;34", "a=#18 b=#18"},
        {"a # comment", "\"a\"=dword:12#34\n\"b\"=dword:12 #34", "!4:13 | !5:14"},
        {"blanks behind", "\"a\"=dword:12 \t", "a=#18"},
        {"no continuation", "\"a\"=dword:12\\\n34", "!4:13 | !5:1"},
        {"another case", "\"a\"=DWORD:1", "!4:5"},
    };
    ExpectBelowKey(rows);
}

TEST(RegFileReader, HexTypes) {
    const Row rows[] = {
        {"binary", "\"a\"=hex:01,a,Ff", "a=3:010aff"},
        {"none", "\"a\"=hex(0):01", "a=0:01"},
        {"text, which gets no end", "\"a\"=hex(1):61,00", "a=1:6100"},
        {"text in full", "\"a\"=hex(1):61,00,00,00", "a=\"a\""},
        {"text to be expanded", "\"a\"=hex(2):25,00,50,00,41,00,54,00,48,00,25,00,00,00",
         "a=2:2500500041005400480025000000"},
        {"and without its end", "\"a\"=hex(2):61,00", "a=2:61000000"},
        {"and of an odd size", "\"a\"=hex(2):61", "a=2:610000"},
        {"a number of 4 bytes", "\"a\"=hex(4):01,02,00,00", "a=#513"},
        {"a number of another size", "\"a\"=hex(4):01,02,03", "a=4:010203"},
        {"a number the other way round", "\"a\"=hex(5):00,00,00,01", "a=5:00000001"},
        {"a list", "\"a\"=hex(7):61,00,00,00,62,00,63,00,00,00,00,00", "a=7:610000006200630000000000"},
        {"a list without its end gets one NUL, not two", "\"a\"=hex(7):61,00", "a=7:61000000"},
        {"a list with one NUL keeps it at that", "\"a\"=hex(7):61,00,00,00", "a=7:61000000"},
        {"8 bytes", "\"a\"=hex(b):88,77,66,55,44,33,22,11", "a=b:8877665544332211"},
        {"any number", "\"a\"=hex(7fffffff):01\n\"b\"=hex(FFFFFFFF):02", "a=7fffffff:01 b=ffffffff:02"},
        {"a number too large", "\"a\"=hex(100000000):01", "!4:9"},
        {"a prefix", "\"a\"=hex(0x2):01", "!4:9"},
        {"no number", "\"a\"=hex():01\n\"b\"=hex(x2):01", "!4:9 | !5:9"},
        {"no colon", "\"a\"=hex(2)01", "!4:9"},
        {"no bytes, every type",
         "\"a\"=hex:\n\"b\"=hex(1):\n\"c\"=hex(2):\n\"d\"=hex(4):\n\"e\"=hex(7):\n\"f\"=hex(abcd):",
         "a=3: b=1: c=2: d=4: e=7: f=abcd:"},
    };
    ExpectBelowKey(rows);
}

TEST(RegFileReader, HexTextOfVersion4IsIn8BitCharacters) {
    const Row rows[] = {
        {"text", "\"a\"=hex(1):61,80,00", "a=\"a\xE2\x82\xAC\""},
        {"text to be expanded, with an end given", "\"a\"=hex(2):25,61", "a=2:250061000000"},
        {"a list", "\"a\"=hex(7):61,00,62,00,00", "a=7:61000000620000000000"},
        {"a list without its end", "\"a\"=hex(7):61", "a=7:61000000"},
        {"no bytes", "\"a\"=hex(2):", "a=2:"},
        {"other types are bytes", "\"a\"=hex:61\n\"b\"=hex(0):61\n\"c\"=hex(100):61,00", "a=3:61 b=0:61 c=100:6100"},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(ReadText(kFour + kKey + row.input), "[HKEY_USERS\\K] " + row.expected) << row.why;
        EXPECT_EQ(ReadText(Utf16File(kFour + kKey + row.input)), "[HKEY_USERS\\K] " + row.expected)
            << row.why << ", by the header and not by the file's encoding";
    }
}

TEST(RegFileReader, HexLists) {
    const Row rows[] = {
        {"three digits", "\"a\"=hex:100", "!4:11"},
        {"no digit", "\"a\"=hex:0g", "!4:10"},
        {"two commas", "\"a\"=hex:01,,02", "!4:12"},
        {"a comma first", "\"a\"=hex:,01", "!4:9"},
        {"a comma last: the list ends there", "\"a\"=hex:01,\n\"b\"=dword:1", "a=3:01 b=#1"},
        {"a comma last, then a comment", "\"a\"=hex:01,;c\n  02", "a=3:01 | !5:3"},
        {"a blank between bytes", "\"a\"=hex:01 02", "!4:12"},
        {"blanks behind a comma", "\"a\"=hex:01, 02", "a=3:0102"},
        {"blanks behind", "\"a\"=hex:01 \t", "a=3:01"},
        {"a comment", "\"a\"=hex:01;c\n\"b\"=hex:01  ;c", "a=3:01 b=3:01"},
        {"a # comment", "\"a\"=hex:01#c\n\"b\"=hex:01 #c", "!4:11 | !5:12"},
        {"a slash is no backslash", "\"a\"=hex:01,/\n  02", "!4:12 | !5:3"},
    };
    ExpectBelowKey(rows);
}

TEST(RegFileReader, Continuation) {
    const Row rows[] = {
        {"comma, backslash, end of line", "\"a\"=hex:01,\\\n  02,\\\n  03", "a=3:010203"},
        {"without blanks", "\"a\"=hex:01,\\\n02", "a=3:0102"},
        {"blanks around the backslash", "\"a\"=hex:01,  \\\t \n  02", "a=3:0102"},
        {"a comment behind the backslash", "\"a\"=hex:01,\\;c\n  02,\\  ;c\n  03", "a=3:010203"},
        {"a # comment behind the backslash", "\"a\"=hex:01,\\#c\n  02", "!4:13 | !5:3"},
        {"empty, blank and comment lines between", "\"a\"=hex:01,\\\n\n \t\n;c\n  ;c\n  02", "a=3:0102"},
        {"a # comment between swallows its line", "\"a\"=hex:01,\\\n#c\n  02\n\"b\"=dword:1", "b=#1 | !5:1 | !6:3"},
        {"no comma: dropped, the next line is read afresh", "\"a\"=hex:01\\\n\"b\"=dword:1", "b=#1 | !4:11"},
        {"in the middle of a byte", "\"a\"=hex:01,0\\\n2", "!4:13 | !5:1"},
        {"the next line is no list: it is swallowed", "\"a\"=hex:01,\\\n\"b\"=dword:1\n\"c\"=dword:2", "c=#2 | !5:1"},
        {"and so is a key, so that no key is missed in silence", "\"a\"=hex:01,\\\n[HKEY_USERS\\L]\n\"c\"=dword:2",
         "c=#2 | !5:1"},
        {"a comma at the start of the next line", "\"a\"=hex:01,\\\n  ,02\n\"b\"=dword:1", "b=#1 | !5:3"},
        {"a backslash alone", "\"a\"=hex:01,\\\n  \\\n  02", "!5:3 | !6:3"},
        {"before the first byte", "\"a\"=hex(2):\\\n  61,00,00,00", "a=2:61000000"},
        {"a comma before the first byte", "\"a\"=hex:,\\\n  01", "!4:9 | !5:3"},
        {"bytes behind the backslash", "\"a\"=hex:01,\\02", "!4:13"},
        {"two backslashes", "\"a\"=hex:01,\\\\\n  02", "!4:13 | !5:3"},
        {"damage in a later line", "\"a\"=hex:01,\\\n  02,zz\n\"b\"=dword:1", "b=#1 | !5:6"},
        {"the file ends behind the backslash", "\"a\"=hex:01,\\", "a=3:01"},
        {"and behind blank lines", "\"a\"=hex(2):61,00,\\\n\n  ;c\n", "a=2:61000000"},
        {"the file ends behind a backslash without a comma", "\"a\"=hex:01\\", "!4:11"},
    };
    ExpectBelowKey(rows);
}

TEST(RegFileReader, Windows31) {
    const std::string header = "REGEDIT\n";
    const Row rows[] = {
        {"the text is the key's default value", "HKEY_CLASSES_ROOT\\.x = a \"file\"",
         "[HKEY_CLASSES_ROOT\\.x] @=\"a \"file\"\""},
        {"without blanks", "HKEY_CLASSES_ROOT\\.x =y", "[HKEY_CLASSES_ROOT\\.x] @=\"y\""},
        {"only one blank belongs to the sign", "HKEY_CLASSES_ROOT\\.x =  y", "[HKEY_CLASSES_ROOT\\.x] @=\" y\""},
        {"no text", "HKEY_CLASSES_ROOT\\.x", "[HKEY_CLASSES_ROOT\\.x] @=\"\""},
        {"other roots", "HKEY_USERS\\A = b", "!2:1"},
        {"lines of later versions", "[HKEY_CLASSES_ROOT\\A]\n\"a\"=dword:1", "!2:1 | !3:1"},
        {"empty lines", "\n\nHKEY_CLASSES_ROOT\\A = b\n", "[HKEY_CLASSES_ROOT\\A] @=\"b\""},
    };
    for (const Row& row : rows) EXPECT_EQ(ReadText(header + row.input), row.expected) << row.why;
}

TEST(RegFileReader, MessagesSayWhatWasFoundAndExpected) {
    const CRegFile file = ReadRegFile(kFive + kKey + "\"a\"=hex:01,\\\nj\x01unk\n\"b\"=x\n\"c\"\n");
    ASSERT_EQ(file.skipped.size(), 3u);
    EXPECT_EQ(file.skipped[0].text,
              "found 'j\\x01unk', expected more bytes of the list; the value of line 4 is dropped; skipped");
    EXPECT_EQ(file.skipped[1].text, "found 'x', expected text in quotes, dword:, hex:, hex(N): or -; skipped");
    EXPECT_EQ(file.skipped[2].text, "found the end of the line, expected '='; skipped");
    try {
        ReadRegFile("Windows Registry\n");
        FAIL() << "no header";
    } catch (const CBadRegFile& bad) {
        EXPECT_EQ(bad.text, "found 'Windows Registry', expected 'Windows Registry Editor Version 5.00' or 'REGEDIT4'");
    }
}

}  // namespace
