// The cache file's life: written, read back, refused, taken away.
#include <algorithm>
#include <fstream>
#include <random>

#include "cache/CacheFile.h"
#include "diagnostics/RecordingOutput.h"
#include "security/CoreKey.h"
#include "support/Document.h"
#include "support/StoreDoor.h"

namespace {

namespace fs = std::filesystem;
using namespace testreg;

constexpr HRESULT kMissing = static_cast<HRESULT>(0x80070002u);
constexpr HRESULT kDamaged = static_cast<HRESULT>(0x80090006u);

// The file of the one item A, type 4, value 1.
constexpr char kSmall[] =
    "\x30\x12\x04\x10\x30\x0E\x1E\x04\x00\x41\x00\x00\x30\x06\x02\x01\x04\x02\x01\x01"
    "\x68\x5E\x4A\xF3\xE5\xCB\xDF\xE5\x47\x53\x1C\x90\x48\xE2\x8B\xBB";
const std::string kSmallFile(kSmall, sizeof kSmall - 1);

CPolicyItem Item(LPCWSTR name, DWORD type, ULONGLONG number) {
    CPolicyItem item{name, {}};
    item.value.SetNumber(type, number);
    return item;
}

class CacheFile : public TraceTest {
  protected:
    CacheFile() { PutString(kCoreKey, W("BinDir"), WidePath(m_root.Path())); }

    fs::path Path() const { return m_root.Path() / "svinfo.cch"; }
    bool Exists() const { return fs::exists(Path()); }
    std::string Bytes() const {
        std::ifstream in(Path(), std::ios::binary);
        return {std::istreambuf_iterator<char>(in), {}};
    }
    void Write(const std::string& bytes) const { std::ofstream(Path(), std::ios::binary) << bytes; }
    void WriteWithDigest(const std::string& body) const {
        const CCacheDigest digest = CacheDigestOf({reinterpret_cast<const BYTE*>(body.data()), body.size()}).value();
        Write(body + std::string(digest.begin(), digest.end()));
    }
    HRESULT Load() { return StoreDoor::Load(*m_object); }
    HRESULT Save() { return StoreDoor::Save(*m_object); }
    CPolicyMap& Store() { return StoreDoor::Items(*m_object); }

    void FillStore() {
        Store().Clear();
        Store().Insert(Item(W("Zed\\Number"), OV_TYPE_DWORD, 0xFFFFFFFF));
        Store().Insert(Item(W("LICENSE"), OV_TYPE_QWORD, ~0ull));
        CPolicyItem text{W("a\\Text"), {}};
        text.value.SetString(W("\u0416 text"));
        Store().Insert(std::move(text));
        CPolicyItem list = Item(W("LogonPolicy"), OV_TYPE_ARRAY, 0);
        list.value.Append(Item(W(""), OV_TYPE_QWORD, 4).value);
        Store().Insert(std::move(list));
    }
    // The names in key order.
    wstr Names() {
        wstr names;
        for (std::size_t i = 0; i < Store().Size(); ++i) names += (i ? W(" ") : W("")) + Store().At(i).name;
        return names;
    }

    CTestInstance m_object;
};

TEST_F(CacheFile, TheWorkedExample) {
    Store().Insert(Item(W("A"), OV_TYPE_DWORD, 1));
    EXPECT_EQ(Save(), S_OK);
    EXPECT_EQ(Bytes(), kSmallFile);
    Store().Clear();
    EXPECT_EQ(Load(), S_OK);
    ASSERT_EQ(Names(), W("A"));
    EXPECT_EQ(Store().At(0).value.Dword(), 1u);
}

TEST_F(CacheFile, ComesBackButForArrays) {
    FillStore();
    const CPolicyMap before = Store();
    EXPECT_EQ(Save(), S_OK);
    EXPECT_EQ(Load(), S_OK);
    EXPECT_EQ(Names(), W("a\\Text LICENSE Zed\\Number"));
    const auto differences = CPolicyMap::Differences(before, Store());
    ASSERT_EQ(differences.size(), 1u);
    EXPECT_EQ(differences[0].item->name, W("LogonPolicy"));
    // Arrays alone: a file of one element, and an empty store.
    Store().Clear();
    Store().Insert(*before.Find(W("LogonPolicy")));
    EXPECT_EQ(Save(), S_OK);
    EXPECT_EQ(Load(), S_OK);
    EXPECT_TRUE(Store().IsEmpty());
}

TEST_F(CacheFile, FromOneObjectToTheNext) {
    PutDword(W("SOFTWARE\\Policies\\Orvantis"), W("Kept"), 1);
    PutDword(W("SOFTWARE\\Policies\\Orvantis"), W("Changed"), 1);
    { CTestInstance().Items(); }
    PutDword(W("SOFTWARE\\Policies\\Orvantis"), W("Changed"), 2);
    PutDword(W("SOFTWARE\\Policies\\Orvantis"), W("New"), 1);
    CTestInstance next;
    EXPECT_EQ(StoreDoor::Items(*next).Size(), 2u) << "before any source is read";
    next.Items();
    const CLoadReport report = next->LastLoad();
    EXPECT_EQ(report.created, 1u);
    EXPECT_EQ(report.changed, 1u);
    EXPECT_EQ(report.deleted, 0u);
}

TEST_F(CacheFile, WhereItLies) {
    FillStore();
    fs::create_directory(m_root.Path() / "bin");
    const wstr folder = WidePath(m_root.Path() / "bin");
    for (const wstr& value : {folder, folder + W("\\")}) {
        PutString(kCoreKey, W("BinDir"), value, REG_EXPAND_SZ);
        EXPECT_EQ(Save(), S_OK);
        EXPECT_TRUE(fs::remove(m_root.Path() / "bin" / "svinfo.cch"));
    }
    // What is no string leaves the name alone, for the folder that the process is in.
    PutDword(kCoreKey, W("BinDir"), 1);
    fs::current_path(m_root.Path() / "bin");
    EXPECT_EQ(Save(), S_OK);
    EXPECT_TRUE(fs::remove(m_root.Path() / "bin" / "svinfo.cch"));
    fs::current_path(m_root.Path());
    PutString(kCoreKey, W("BinDir"), folder + W("\\none"));
    EXPECT_EQ(Load(), static_cast<HRESULT>(0x80070003u));
    EXPECT_EQ(Save(), static_cast<HRESULT>(0x80070003u));
}

TEST_F(CacheFile, MadeHiddenAndKeptWhenItIsThere) {
    FillStore();
    EXPECT_EQ(Save(), S_OK);
    EXPECT_TRUE(GetFileAttributesW(WidePath(Path()).c_str()) & FILE_ATTRIBUTE_HIDDEN);
    const std::string full = Bytes();
    Store().Clear();
    Store().Insert(Item(W("A"), OV_TYPE_DWORD, 1));
    EXPECT_EQ(Save(), S_OK);
    EXPECT_EQ(Bytes(), kSmallFile) << "cut before it is written";
    Store().Clear();
    EXPECT_EQ(Save(), S_FALSE);
    EXPECT_FALSE(Exists());
    EXPECT_EQ(Save(), S_FALSE) << "and again, with nothing there";
}

TEST_F(CacheFile, HeldByAnother) {
    FillStore();
    EXPECT_EQ(Save(), S_OK);
    const std::string full = Bytes();
    HANDLE held =
        CreateFileW(WidePath(Path()).c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    ASSERT_NE(held, INVALID_HANDLE_VALUE);
    constexpr HRESULT kShared = static_cast<HRESULT>(0x80070020u);
    EXPECT_EQ(Load(), kShared);
    EXPECT_EQ(Store().Size(), 4u) << "what was there stays";
    EXPECT_EQ(Save(), kShared);
    CloseHandle(held);
    EXPECT_EQ(Bytes(), full);
    EXPECT_EQ(Load(), S_OK);
}

TEST_F(CacheFile, NoneOrTooShort) {
    FillStore();
    EXPECT_EQ(Load(), kMissing);
    for (std::size_t length = 0; length < kSmallFile.size(); ++length) {
        Write(kSmallFile.substr(0, length));
        const HRESULT hr = Load();
        if (length < kSmallestCacheFile) {
            EXPECT_TRUE(Exists()) << length << ": left for the next save";
        } else {
            EXPECT_EQ(hr, kDamaged) << length;
            EXPECT_FALSE(Exists()) << length;
        }
        EXPECT_EQ(Store().Size(), 4u) << length;
    }
    WriteWithDigest("\x30");
    EXPECT_EQ(Load(), S_OK) << "a good digest of what is no sequence";
    EXPECT_TRUE(Store().IsEmpty());
    EXPECT_TRUE(Exists());
}

// Many arrays that claim what is not there cost no more than one of them.
TEST_F(CacheFile, CountsOfAWholeFileHaveOneBound) {
    CDerWriter writer;
    for (int i = 0; i < 2'000; ++i) {
        const std::size_t end = writer.Size();
        const std::string item("\x30\x0E\x1E\x02\0\0\x30\x08\x02\x01\x0B\x02\x03\x01\x00\x00", 16);
        writer.Bytes({reinterpret_cast<const BYTE*>(item.data()), item.size()});
        writer.Close(DerTag::kOctetString, end);
    }
    writer.Close(DerTag::kSequence, 0);
    CCacheReader reader(writer.Written());
    std::size_t elements = 0;
    for (CPolicyItem item; reader.Next(item);) elements += item.value.Elements().size();
    EXPECT_EQ(elements, 65'536u);
}

// The digest vouches for bytes, not for sense: what stood in front of a time that is none has come back by then.
TEST_F(CacheFile, ATimeThatIsNone) {
    FillStore();
    WriteWithDigest(
        std::string("\x30\x23\x04\x10\x30\x0E\x1E\x04\0A\0\0\x30\x06\x02\x01\x04\x02\x01\x01"
                    "\x04\x0F\x30\x0D\x1E\x04\0B\0\0\x30\x05\x02\x01\x07\x05\x00",
                    37));
    EXPECT_EQ(Load(), static_cast<HRESULT>(0x80093103u));
    EXPECT_EQ(Names(), W("A"));
}

TEST_F(CacheFile, EveryFlippedBit) {
    FillStore();
    for (std::size_t bit = 0; bit < kSmallFile.size() * 8; ++bit) {
        std::string flipped = kSmallFile;
        flipped[bit / 8] = static_cast<char>(flipped[bit / 8] ^ (1 << bit % 8));
        Write(flipped);
        ASSERT_EQ(Load(), kDamaged) << bit;
        ASSERT_FALSE(Exists()) << bit;
        ASSERT_EQ(Store().Size(), 4u) << bit;
    }
}

// Bodies that were written by somebody else, or by chance: whatever a digest vouches for is read without harm.
// OV_MUTATIONS says how many.
TEST_F(CacheFile, WhateverADigestVouchesFor) {
    FillStore();
    Store().Insert([] {
        CPolicyItem nested = Item(W("Nested"), OV_TYPE_ARRAY, 0);
        for (int i = 0; i < 3; ++i) nested.value.Append(CPolicyValue(nested.value));
        return nested;
    }());
    OVTraceNS::CTraceScope scope("mutations", 0);
    const CDerWriter written = EncodeCacheBody(Store(), scope);
    const std::string body(written.Written().begin(), written.Written().end());
    const char* const asked = std::getenv("OV_MUTATIONS");
    const int rounds = asked ? std::atoi(asked) : 1'000;
    std::mt19937 dice(20261123);
    for (int round = 0; round < rounds; ++round) {
        std::string mutated = body;
        for (auto change = dice() % 6 + 1; change > 0; --change) {
            const std::size_t at = dice() % mutated.size();
            switch (dice() % 4) {
                case 0:
                    mutated[at] = static_cast<char>(dice());
                    break;
                case 1:
                    mutated[at] = static_cast<char>(mutated[at] ^ (1 << dice() % 8));
                    break;
                case 2:
                    mutated.erase(at, dice() % 8 + 1);
                    break;
                default:
                    mutated.insert(at, std::string(dice() % 8 + 1, static_cast<char>(dice())));
                    break;
            }
            if (mutated.empty()) mutated = "\x30";
        }
        WriteWithDigest(mutated);
        Load();
        for (std::size_t i = 0; i < Store().Size(); ++i) {
            const DWORD type = Store().At(i).value.Type();
            ASSERT_TRUE(type == OV_TYPE_STRING || type == OV_TYPE_DWORD || type == OV_TYPE_QWORD) << type;
        }
        ASSERT_TRUE(Save() == S_OK || Store().IsEmpty());
    }
}

TEST_F(CacheFile, WhatTheTraceSays) {
    FillStore();
    Store().Insert(Item(W("Odd"), OV_TYPE_LONG, 1));
    TraceOn();
    ReadAgain();
    Save();
    EXPECT_EQ(
        Told(),
        ">CServerInfo::Save >CServerInfo::Create < U'a\\Text = '\xD0\x96 text'' U'LICENSE = '0xFFFFFFFFFFFFFFFF'' "
        "U'LogonPolicy (array)' U'Wrong Type for Odd' U'Zed\\Number = '-1'' U'Count is 4' U'Blob size is 168' "
        "U'Hash size is 16' <");
    Load();
    EXPECT_EQ(Told(),
              ">CServerInfo::Load U'File size is 184' U'Read size is 168' U'Hash size is 16' U'Count is 4' "
              "U'a\\Text = '\xD0\x96 text'' U'LICENSE = '0xFFFFFFFFFFFFFFFF'' U'LogonPolicy (array)' "
              "U'Zed\\Number = '-1'' <");
    fs::remove(Path());
    Load();
    EXPECT_EQ(Told(), ">CServerInfo::Load U'Cannot open file. May be it does not exist...' E'-2147024894 ' <");
    Write("short");
    Load();
    EXPECT_TRUE(Told().starts_with(">CServerInfo::Load U'File size is invalid.'")) << "the result is the system's own";
}

}  // namespace
