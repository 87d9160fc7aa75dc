// Damaged registration files: the reader survives whatever it is given, and does not read past its end.
#include <gtest/gtest.h>

#include <random>

#include "cli_fixture.h"
#include "regfile_text.h"

namespace {

std::string Sample() {
    std::ifstream in(OV_SAMPLES "/machine.reg", std::ios::binary);
    EXPECT_TRUE(in);
    return {std::istreambuf_iterator<char>(in), {}};
}

// The sample in the encodings that the reader takes.
std::vector<std::string> Samples() {
    const std::string utf16 = Sample();
    wstr text;
    for (std::size_t i = 2; i + 1 < utf16.size(); i += 2) {
        text += static_cast<WCHAR>(static_cast<BYTE>(utf16[i]) | static_cast<BYTE>(utf16[i + 1]) << 8);
    }
    const std::string utf8 = ToUtf8(text);
    return {utf16, utf8, "REGEDIT4" + utf8.substr(utf8.find("\r\n"))};
}

class CMutator {
  public:
    explicit CMutator(unsigned seed) : m_random(seed) {}

    std::string Mutate(std::string bytes) {
        for (std::size_t times = 1 + Below(4); times > 0; --times) Once(bytes);
        return bytes;
    }

  private:
    std::size_t Below(std::size_t limit) { return limit ? m_random() % limit : 0; }

    void Once(std::string& bytes) {
        static const std::string kTokens[] = {"\\",   "\"",      "[",  "]",       "[-",     "=",
                                              "hex:", "hex(7):", ",",  ",\\\r\n", ";",      "#",
                                              "@",    "\r",      "\n", "-",       "dword:", std::string(1, '\0'),
                                              "\xFF", "\xD8"};
        const std::size_t at = Below(bytes.size() + 1);
        switch (Below(6)) {
            case 0:
                if (at < bytes.size()) bytes[at] = static_cast<char>(m_random());
                break;
            case 1:
                bytes.erase(at, 1 + Below(8));
                break;
            case 2:
                bytes.insert(at, kTokens[Below(std::size(kTokens))]);
                break;
            case 3:
                bytes.resize(at);
                break;
            case 4:
                bytes.insert(at, bytes.substr(Below(bytes.size() + 1), Below(200)));
                break;
            default:
                for (const char unit : kTokens[Below(std::size(kTokens))]) {
                    // As a 16-bit character, in the place of another one.
                    if (at / 2 * 2 + 1 < bytes.size()) bytes.replace(at / 2 * 2, 2, {unit, '\0'});
                }
                break;
        }
    }

    std::mt19937 m_random;
};

// What may come out of any file: names in bounds, places inside the file, no root deleted.
void ExpectSound(const CRegFile& file, std::size_t size) {
    for (const CRegBlock& block : file.blocks) {
        ASSERT_NE(block.key.root, nullptr);
        EXPECT_TRUE(!block.remove || (!block.key.below.empty() && block.entries.empty()));
        EXPECT_EQ(block.key.Full().find_first_of(W("\r\n")), wstr::npos);
        for (const CRegEntry& entry : block.entries) {
            EXPECT_LE(entry.name.size(), kMaxValueName);
            EXPECT_EQ(entry.name.find(WCHAR(0)), wstr::npos);
            EXPECT_LE(entry.data.size(), 2 * size);
        }
    }
    for (const CRegNote& note : file.skipped) {
        EXPECT_GE(note.line, 1u);
        EXPECT_LE(note.line, size + 1);
        EXPECT_GE(note.column, 1u);
        EXPECT_FALSE(note.text.empty());
    }
}

TEST(RegFileFuzz, DamagedFilesAreReadOrRefused) {
    const unsigned seed = std::random_device()();
    RecordProperty("seed", std::to_string(seed));
    CMutator mutator(seed);
    unsigned read = 0, refused = 0;
    const std::vector<std::string> samples = Samples();
    for (int i = 0; i < 6000 && !HasFailure(); ++i) {
        const std::string bytes = mutator.Mutate(samples[static_cast<std::size_t>(i) % samples.size()]);
        try {
            const CRegFile file = ReadRegFile(bytes);
            ExpectSound(file, bytes.size());
            // Whatever was read can be written, and is read alike from there.
            const CRegFile again = ReadRegFile(WriteRegFile(file.blocks));
            EXPECT_TRUE(again.skipped.empty());
            EXPECT_EQ(regtext::FileText({file.blocks, {}}), regtext::FileText({again.blocks, {}}));
            ++read;
        } catch (const CBadRegFile& bad) {
            EXPECT_GE(bad.line, 1u);
            EXPECT_GE(bad.column, 1u);
            EXPECT_FALSE(bad.text.empty());
            ++refused;
        }
        EXPECT_FALSE(HasFailure()) << "seed " << seed << ", round " << i;
    }
    std::cout << "seed " << seed << ": " << read << " read, " << refused << " refused\n";
    EXPECT_GT(read, 0u);
    EXPECT_GT(refused, 0u);
}

using CliFuzz = CliTest;

// The same through the program: a refused file has changed nothing, and so has one that failed.
TEST_F(CliFuzz, DamagedFilesChangeAllOrNothing) {
    const unsigned seed = std::random_device()();
    CMutator mutator(seed);
    const std::vector<std::string> samples = Samples();
    ImportSample();
    const std::string before = Done({"reg", "export", "HKLM\\SOFTWARE"});
    int refused = 0;
    for (int i = 0; i < 400 && refused < 40 && !HasFailure(); ++i) {
        const std::string bytes = mutator.Mutate(samples[static_cast<std::size_t>(i) % samples.size()]);
        const bool readable = !regtext::ReadText(bytes).starts_with("refused");
        if (readable && i % 8 != 0) continue;  // these are many, and the others are what this is about
        const std::string copy = (m_root.Path() / "copy").string();
        const CRunResult result = readable ? RunAt(copy, {"reg", "import", Write("f.reg", bytes)})
                                           : Run({"reg", "import", Write("f.reg", bytes)});
        if (readable) {
            EXPECT_TRUE(result.exitCode == 0 || result.exitCode == 5) << result.errors;
        } else {
            ++refused;
            EXPECT_EQ(result.exitCode, 4) << result.errors;
            EXPECT_TRUE(Done({"reg", "export", "HKLM\\SOFTWARE"}) == before);
        }
        EXPECT_FALSE(HasFailure()) << "seed " << seed << ", round " << i;
    }
    EXPECT_GT(refused, 0);
}

}  // namespace
