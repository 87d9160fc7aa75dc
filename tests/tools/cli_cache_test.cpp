// svinfo cache show, verify and diff.
#include "cache/CacheFile.h"
#include "cli_fixture.h"
#include "security/CoreKey.h"
#include "support/Document.h"
#include "support/Registry.h"

namespace {

class CliCache : public CliTest {
  protected:
    CliCache() {
        testreg::PutString(kCoreKey, W("BinDir"), WidePath(m_root.Path()));
        testreg::PutDword(kPolicy, W("Kept"), 7);
        testreg::PutString(kPolicy, W("Name"), W("before"));
    }
    std::string Path() const { return (m_root.Path() / "svinfo.cch").string(); }
    // What an object that has answered leaves behind.
    void LeaveCache() { EXPECT_EQ(Done({"get", "Kept"}), "7\n"); }

    static constexpr LPCWSTR kPolicy = W("SOFTWARE\\Policies\\Orvantis");
};

TEST_F(CliCache, AHealthyOne) {
    for (const char* verb : {"show", "verify", "diff"}) {
        EXPECT_EQ(Run({"cache", verb}).exitCode, 1) << verb << ": there is none";
    }
    EXPECT_EQ(Json({"status"})["cache"]["state"], "none");
    LeaveCache();
    const std::string bytes = Read(Path());
    const CRunResult shown = Run({"cache", "show"});
    EXPECT_EQ(shown.exitCode, 0);
    EXPECT_EQ(shown.output, "Kept\t7\tdword\nName\tbefore\tstring\n");
    EXPECT_NE(shown.errors.find(": " + std::to_string(bytes.size()) + " bytes, 2 items, digest good"),
              std::string::npos);
    EXPECT_NE(Done({"cache", "verify"}).find("2 items, digest good"), std::string::npos);
    EXPECT_EQ(Json({"cache", "show"})["items"].dump(),
              R"([{"name":"Kept","type":"dword","value":7,"state":"managed","hr":"0x00000000"},)"
              R"({"name":"Name","type":"string","value":"before","state":"managed","hr":"0x00000000"}])");
    EXPECT_EQ(Json({"status"})["cache"]["state"], "good");
    EXPECT_EQ(Done({"cache", "diff"}), "");

    testreg::PutString(kPolicy, W("Name"), W("after"));
    testreg::PutDword(kPolicy, W("New"), 1);
    CRegistryKey key;
    ASSERT_EQ(key.Open(HKEY_LOCAL_MACHINE, kPolicy, KEY_ALL_ACCESS), ERROR_SUCCESS);
    ASSERT_EQ(RegDeleteValueW(key.Get(), W("Kept")), ERROR_SUCCESS);
    for (int again = 0; again < 2; ++again) {
        const CRunResult diff = Run({"cache", "diff"});
        EXPECT_EQ(diff.exitCode, 1);
        EXPECT_EQ(diff.output, "deleted\tKept\t7\t(none)\nchanged\tName\tbefore\tafter\ncreated\tNew\t(none)\t1\n");
    }
    EXPECT_EQ(Json({"cache", "diff"})["differences"][1].dump(),
              R"({"name":"Name","change":"changed","cached":{"type":"string","value":"before"},)"
              R"("now":{"type":"string","value":"after"}})");
    EXPECT_EQ(Read(Path()), bytes) << "they only read";
}

TEST_F(CliCache, DamagedOrOdd) {
    LeaveCache();
    const std::string bytes = Read(Path());
    const struct {
        std::string bytes;
        int exitCode;
        const char* message;
    } cases[] = {
        {"", 4, "found 0 bytes, expected at least 17: a save was cut off"},
        {bytes.substr(0, 16), 4, "found 16 bytes, expected at least 17"},
        {bytes.substr(0, bytes.size() - 1), 4, ": cut off or damaged"},
        {"x" + bytes, 4, ": cut off or damaged"},
    };
    for (const auto& [content, exitCode, message] : cases) {
        const std::string copy = Write("copy.cch", content);
        for (const char* verb : {"show", "verify", "diff"}) {
            const CRunResult result = Run({"cache", verb, copy});
            EXPECT_EQ(result.exitCode, exitCode) << verb;
            EXPECT_NE(result.errors.find(message), std::string::npos) << result.errors;
        }
        Write("svinfo.cch", content);
        EXPECT_EQ(Run({"cache", "verify"}).exitCode, exitCode);
        EXPECT_EQ(Json({"status"})["cache"]["state"], "damaged");
        Run({"sources"});
        EXPECT_EQ(Read(Path()), content) << "a damaged one is not taken away by who only looks";
    }
    // A good digest, over what the component would not write.
    const std::pair<std::string, const char*> odd[] = {
        {std::string("\x30\x00x", 3), "1 byte behind the sequence"},
        {std::string("\x31\x00", 2), "no sequence of elements"},
        {std::string("\x30\x81\x12\x04\x10\x30\x0E\x1E\x04\0A\0\0\x30\x06\x02\x01\x04\x02\x01\x01", 21),
         "not written as the component writes these items"},
        {std::string("\x30\x12\x04\x10\x30\x0E\x1E\x04\0A\0\0\x30\x06\x02\x01\x01\x02\x01\x01", 20),
         "element 1, 'A': type 1 has no place in a store"},
        {std::string("\x30\x11\x04\x0F\x30\x0D\x1E\x04\0B\0\0\x30\x05\x02\x01\x07\x05\x00", 19),
         "element 1 and what follows: 0x80093103"},
    };
    for (const auto& [body, finding] : odd) {
        const CCacheDigest digest = CacheDigestOf({reinterpret_cast<const BYTE*>(body.data()), body.size()}).value();
        const CRunResult result =
            Run({"cache", "verify", Write("odd.cch", body + std::string(digest.begin(), digest.end()))});
        EXPECT_EQ(result.exitCode, 1) << finding;
        EXPECT_NE(result.errors.find(finding), std::string::npos) << result.errors;
    }
}

}  // namespace
