// The recorded answers of the platform's registry (vectors/registry.jsonl): every query and every write that is told of
// there, with the bytes that came back.
#include <algorithm>
#include <map>
#include <string>
#include <vector>

#include "module/RegistryKey.h"
#include "support/TestRoot.h"
#include "support/Vectors.h"

namespace {

using vectors::Row;
using Bytes = std::vector<BYTE>;

constexpr DWORD kMark = 0xDEADBEEF;
constexpr BYTE kUntouched = 0xCC;

// What a query finds: a value that is set before, the handle it goes through, and the name it asks for.
struct Setting {
    LPCWSTR name;
    DWORD type;
    Bytes data;
    LPCWSTR asked;
    REGSAM access = KEY_ALL_ACCESS;
    bool nullBuffer = false;
};

const Bytes kDword = {0x78, 0x56, 0x34, 0x12};
const Bytes kText = {'a', 0, 'b', 0, 'c', 0, 0, 0};
const Bytes kUnended = {'a', 0, 'b', 0, 'c', 0};

const std::map<std::string, Setting> kQueries = {
    {"query missing, buffer", {W("other"), REG_DWORD, kDword, W("v")}},
    {"dword null buffer", {W("v"), REG_DWORD, kDword, W("v"), KEY_READ, true}},
    {"dword buf 3", {W("v"), REG_DWORD, kDword, W("v")}},
    {"sz null buffer", {W("v"), REG_SZ, kText, W("v"), KEY_READ, true}},
    {"sz buf 8", {W("v"), REG_SZ, kText, W("v")}},
    {"sz buf 0", {W("v"), REG_SZ, kText, W("v")}},
    {"sz buf 64", {W("v"), REG_SZ, kText, W("v")}},
    {"default value missing (null name)", {W("other"), REG_SZ, kText, nullptr}},
    {"default value set by null name, read by empty", {nullptr, REG_SZ, {'d', 0, 0, 0}, W("")}},
    {"name case folded", {W("Name"), REG_DWORD, kDword, W("nAME")}},
    {"query sz stored without NUL, buf 64", {W("v"), REG_SZ, kUnended, W("v")}},
    {"query sz stored without NUL, null buf", {W("v"), REG_SZ, kUnended, W("v"), KEY_READ, true}},
    {"query zero-size sz null buffer", {W("v"), REG_SZ, {}, W("v"), KEY_READ, true}},
    {"query zero-size sz buf 64", {W("v"), REG_SZ, {}, W("v")}},
    {"query via access 0", {W("v"), REG_DWORD, kDword, W("v"), 0}},
    {"value e-acute read as capital", {W("\u00E9"), REG_DWORD, {1, 0, 0, 0}, W("\u00C9")}},
};

// Writes whose data is not what came back: no data at all, or a NUL behind it that was stored as well.
const std::map<std::string, const char*> kOtherWrites = {
    {"set dword null data cb 4", "null"},
    {"set sz cb 0 null data", "null"},
    {"set dword null data cb 0", "null"},
    {"set through KEY_READ handle", "refused"},
    {"set via RegOpenCurrentUser(KEY_READ)", "refused"},
    {"set on deleted key", "deleted"},
    {"set sz no NUL, cb 6 (NUL follows in memory)", "reads behind the data"},
    {"set expand_sz no NUL cb 6", "reads behind the data"},
    {"set multi_sz no NUL cb 6", "reads behind the data"},
};

class RegistryVectors : public RootTest {
  protected:
    // A key with nothing in it.
    void Renew() {
        m_key.Close();
        RegDeleteKeyW(HKEY_LOCAL_MACHINE, W("SOFTWARE\\OvTest"));
        ASSERT_EQ(m_key.Create(HKEY_LOCAL_MACHINE, W("SOFTWARE\\OvTest"), nullptr, 0, KEY_ALL_ACCESS, nullptr, nullptr),
                  ERROR_SUCCESS);
    }

    CRegistryKey m_key;
};

TEST_F(RegistryVectors, QueriesGiveWhatWasRecorded) {
    int asserted = 0;
    for (const Row& row : vectors::Load("registry.jsonl")) {
        if (!row.contains("in_size") || row.contains("flag")) continue;
        const std::string name = row["case"];
        SCOPED_TRACE(name);
        Renew();
        Setting setting = {W("v"), REG_DWORD, kDword, W("v")};
        const bool badHandle = name == "bad handle";
        if (!badHandle) {
            ASSERT_TRUE(kQueries.contains(name)) << "nobody knows how to ask this";
            setting = kQueries.at(name);
        }
        Bytes stored = setting.data;
        stored.resize(stored.size() + 4, 0xEE);
        ASSERT_EQ(RegSetValueExW(m_key.Get(), setting.name, 0, setting.type, stored.data(),
                                 static_cast<DWORD>(setting.data.size())),
                  ERROR_SUCCESS);
        CRegistryKey key;
        ASSERT_EQ(key.Open(m_key.Get(), nullptr, setting.access), ERROR_SUCCESS);

        DWORD type = kMark;
        DWORD size = row["in_size"];
        Bytes buffer(size + 16, kUntouched);
        const LSTATUS error = RegQueryValueExW(badHandle ? nullptr : key.Get(), setting.asked, nullptr, &type,
                                               setting.nullBuffer ? nullptr : buffer.data(), &size);
        EXPECT_EQ(error, row["rc"].get<LSTATUS>());
        EXPECT_EQ(type, vectors::Hex(row["type"]));
        EXPECT_EQ(size, row["size"].get<DWORD>());
        if (row.contains("buf16")) {
            const std::string expected = vectors::Bytes(row["buf16"]);
            EXPECT_EQ(std::string(buffer.begin(), buffer.begin() + 16), expected);
        }
        ++asserted;
    }
    EXPECT_EQ(asserted, static_cast<int>(kQueries.size()) + 1);
}

TEST_F(RegistryVectors, WritesStoreWhatWasRecorded) {
    int asserted = 0;
    for (const Row& row : vectors::Load("registry.jsonl")) {
        if (!row.contains("set_type") || row.contains("flag")) continue;
        const std::string name = row["case"];
        SCOPED_TRACE(name);
        const auto other = kOtherWrites.find(name);
        const std::string how = other == kOtherWrites.end() ? "" : other->second;
        // Storing exactly the bytes given is allowed, and the safe form.
        if (how == "reads behind the data") continue;
        Renew();
        CRegistryKey key;
        const REGSAM access = how == "refused" ? KEY_READ : KEY_ALL_ACCESS;
        ASSERT_EQ(key.Open(m_key.Get(), nullptr, access), ERROR_SUCCESS);
        if (how == "deleted") {
            ASSERT_EQ(RegDeleteKeyW(key.Get(), W("")), ERROR_SUCCESS);
        }
        const std::string recorded = vectors::Bytes(row["get_data"]);
        Bytes data(recorded.begin(), recorded.end());
        data.resize(data.size() + 8, 0xEE);
        EXPECT_EQ(
            RegSetValueExW(key.Get(), W("v"), 0, row["set_type"], how == "null" ? nullptr : data.data(), row["set_cb"]),
            row["rc"].get<LSTATUS>());
        DWORD type = kMark;
        DWORD size = 64;
        Bytes buffer(64, kUntouched);
        EXPECT_EQ(RegQueryValueExW(key.Get(), W("v"), nullptr, &type, buffer.data(), &size),
                  row["get_rc"].get<LSTATUS>());
        EXPECT_EQ(type, vectors::Hex(row["get_type"]));
        EXPECT_EQ(size, row["get_size"].get<DWORD>());
        EXPECT_EQ(std::string(buffer.begin(), buffer.begin() + static_cast<std::ptrdiff_t>(recorded.size())), recorded);
        ++asserted;
    }
    EXPECT_GT(asserted, 15);
}

}  // namespace
