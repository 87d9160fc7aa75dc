// Writing items: what is written, told and logged, for each operation and whatever held before.
#include <atomic>
#include <chrono>
#include <thread>

#include "support/Writer.h"

namespace {

using namespace testreg;

constexpr LPCWSTR kManaged = W("SOFTWARE\\Policies\\Orvantis");
constexpr wstr_view kLongPolicy = W("Applications\\{5ED04F3F-AC3E-4BE0-A157-782B204E2B8C}\\LogonPolicy");

// Values as the table writes them: "" none, "5" a DWORD, "'text" a string, "[1 A]" masks, "q5" 64 bits, "?5" of type 5.
OV_SERVER_VALUE ValueOf(const std::string& text, CPolicyValue& holder) {
    const std::string rest = text.empty() ? "" : text.substr(1);
    if (text.starts_with("'")) {
        holder.SetString(wstr(rest.begin(), rest.end()).c_str());
    } else if (text.starts_with("[")) {
        holder.SetNumber(OV_TYPE_ARRAY, 0);
        for (std::size_t at = 1; at < text.size() && text[at] != ']';) {
            std::size_t used = 0;
            CPolicyValue mask;
            mask.SetNumber(OV_TYPE_QWORD, std::stoull(text.substr(at), &used, 16));
            holder.Append(std::move(mask));
            at += used + (text[at + used] == ' ');
        }
    } else if (text.starts_with("q")) {
        holder.SetNumber(OV_TYPE_QWORD, std::stoull(rest));
    } else if (text.starts_with("?")) {
        holder.SetNumber(static_cast<DWORD>(std::stoul(rest)), 1);
    } else if (!text.empty()) {
        holder.SetNumber(OV_TYPE_DWORD, std::stoul(text));
    }
    return holder.Raw();
}

void Put(LPCWSTR base, LPCWSTR name, const std::string& text) {
    if (text.empty()) return;
    CPolicyValue holder;
    const OV_SERVER_VALUE value = ValueOf(text, holder);
    if (value.type == OV_TYPE_ARRAY) {
        ASSERT_EQ(SaveAuthPolicyGPO(HKEY_LOCAL_MACHINE, base, name, value), S_OK);
    } else if (value.type == OV_TYPE_STRING) {
        PutString(base, name, OvServerValueText(value));
    } else if (value.type == OV_TYPE_QWORD) {
        PutQword(base, name, value.data);
    } else {
        PutDword(base, name, static_cast<DWORD>(value.data));
    }
}

struct Case {
    const char* operation;  // long, string, item or delete
    const char* name;
    const char* managed;
    const char* local;
    const char* fallback;  // the product's default
    const char* value;     // what is written
    HRESULT result;
    const char* told;    // to the subscriber
    const char* logged;  // without who did it
    const char* answer;  // of a query afterwards
};

const Case kCases[] = {
    // Nothing held: the write made the item.
    {"long", "X", "", "", "", "7", S_OK, "X: nothing -> dword 7 local", "0110040B X | 0 | 7", "1 dword 7"},
    {"string", "X", "", "", "", "'a", S_OK, "X: nothing -> string 'a' local", "0110040B X |  | a", "1 string 'a'"},
    {"item", "X", "", "", "", "7", S_OK, "X: nothing -> dword 7 local", "0110040B X | 0 | 7", "1 dword 7"},
    {"item", "X", "", "", "", "'a", S_OK, "X: nothing -> string 'a' local", "0110040B X |  | a", "1 string 'a'"},
    {"delete", "X", "", "", "", "", S_OK, "", "", "0x80070002 none"},
    // The local value answers.
    {"long", "X", "", "5", "", "7", S_OK, "X: nothing -> dword 7 local", "0110040B X | 5 | 7", "1 dword 7"},
    {"long", "X", "", "5", "", "5", S_OK, "", "", "1 dword 5"},
    {"long", "X", "", "5", "", "4294967295", S_OK, "X: nothing -> dword 4294967295 local", "0110040B X | 5 | -1",
     "1 dword 4294967295"},
    {"string", "X", "", "'a", "", "'b", S_OK, "X: nothing -> string 'b' local", "0110040B X | a | b", "1 string 'b'"},
    {"string", "X", "", "'a", "", "'A", S_OK, "", "", "1 string 'A'"},
    {"delete", "X", "", "5", "", "", S_OK, "", "01100409 X | 5", "0x80070002 none"},
    {"delete", "X", "", "'a", "", "", S_OK, "", "01100409 X | a", "0x80070002 none"},
    {"delete", "X", "", "4294967295", "", "", S_OK, "", "01100409 X | 4294967295", "0x80070002 none"},
    {"delete", "X", "", "q255", "", "", S_OK, "", "01100409 X | 0x00000000000000FF", "0x80070002 none"},
    // It is of another type: the question for the old value fails, which counts as none.
    {"long", "X", "", "'a", "", "7", S_OK, "X: nothing -> dword 7 local", "0110040B X | 0 | 7", "1 dword 7"},
    {"string", "X", "", "5", "", "'a", S_OK, "X: nothing -> string 'a' local", "0110040B X |  | a", "1 string 'a'"},
    // A default lies below.
    {"long", "X", "", "", "5", "5", S_OK, "", "", "1 dword 5"},
    {"long", "X", "", "", "5", "7", S_OK, "X: nothing -> dword 7 local", "0110040B X | 5 | 7", "1 dword 7"},
    {"delete", "X", "", "5", "5", "", S_OK, "", "01100409 X | 5", "1 dword 5"},
    {"delete", "X", "", "7", "5", "", S_OK, "X: nothing -> dword 5 local", "01100409 X | 7", "1 dword 5"},
    {"delete", "X", "", "", "5", "", S_OK, "", "", "1 dword 5"},
    // A managed value hides the write.
    {"long", "X", "3", "5", "", "7", S_OK, "", "", "0 dword 3"},
    {"string", "X", "'m", "", "", "'a", S_OK, "", "", "0 string 'm'"},
    {"delete", "X", "3", "5", "", "", S_OK, "", "", "0 dword 3"},
    // A path of keys.
    {"long", "A\\B\\X", "", "", "", "7", S_OK, "A\\B\\X: nothing -> dword 7 local", "0110040B A\\B\\X | 0 | 7",
     "1 dword 7"},
    {"delete", "A\\X", "", "5", "", "", S_OK, "", "01100409 A\\X | 5", "0x80070002 none"},
    // Policies.
    {"item", "LogonPolicy", "", "", "", "[1 A]", S_OK,
     "LogonPolicy: nothing -> array [0000000000000001 000000000000000A] local", "0110040B LogonPolicy | {...} | {...}",
     "1 array [0000000000000001 000000000000000A]"},
    {"item", "LogonPolicy", "", "[1]", "", "[1]", S_OK, "", "0110040B LogonPolicy | {...} | {...}",
     "1 array [0000000000000001]"},
    {"item", "LogonPolicy", "", "[1]", "", "6", S_OK, "LogonPolicy: nothing -> dword 6 local",
     "0110040B LogonPolicy | {...} | {...}", "1 dword 6"},
    {"item", "LogonPolicy", "[2]", "[1]", "", "[3]", S_OK, "", "", "0 array [0000000000000002]"},
    {"item", "*", "", "[1]", "", "[2]", S_OK, "*: nothing -> array [0000000000000002] local",
     "0110040B * | {...} | {...}", "1 array [0000000000000002]"},
    {"item", "*", "", "", "", "[2]", S_OK, "*: nothing -> array [0000000000000002] local", "0110040B * | {...} | {...}",
     "1 array [0000000000000002]"},
    {"delete", "LogonPolicy", "", "[1]", "", "", S_OK, "", "01100409 LogonPolicy | {...}", "0x80070002 none"},
    {"delete", "*", "", "[1]", "", "", S_OK, "", "01100409 * | {...}", "0x80070002 none"},
    {"delete", "LogonPolicy", "", "[1]", "[2]", "", S_OK, "LogonPolicy: nothing -> array [0000000000000002] local",
     "01100409 LogonPolicy | {...}", "1 array [0000000000000002]"},
    // What cannot be written changes nothing, and nobody hears of it.
    {"item", "X", "", "5", "", "q7", E_NOTIMPL, "", "", "1 dword 5"},
    {"item", "X", "", "5", "", "[1]", E_INVALIDARG, "", "", "1 dword 5"},
    {"item", "X", "", "5", "", "", E_INVALIDARG, "", "", "1 dword 5"},
    {"item", "X", "", "5", "", "?1", E_INVALIDARG, "", "", "1 dword 5"},
    {"item", "LogonPolicy", "", "[1]", "", "'a", E_INVALIDARG, "", "", "1 array [0000000000000001]"},
};

class ItemWrites : public CWriterFixture {
  protected:
    HRESULT Run(const std::string& operation, const wstr& name, const std::string& value) {
        CPolicyValue holder;
        const OV_SERVER_VALUE raw = ValueOf(value, holder);
        if (operation == "long") return m_object->SetItemLong(name.c_str(), static_cast<DWORD>(raw.data));
        if (operation == "string") return m_object->SetItemString(name.c_str(), OvServerValueText(raw));
        if (operation == "item") return m_object->SetItem(name.c_str(), &raw);
        return m_object->DeleteItem(name.c_str());
    }
    std::string Answer(const wstr& name) {
        OV_SERVER_INFO_EX record = {name.c_str(), OV_QUERY, {}};
        EXPECT_EQ(m_object->GetInfo(1, &record), S_OK);
        return TextAndFree(record);
    }
    static void Clear() {
        for (LPCWSTR path : {kManaged, kLocalPolicyKey}) {
            CRegistryKey key;
            if (!key.Open(HKEY_LOCAL_MACHINE, W("SOFTWARE"), KEY_ALL_ACCESS))
                key.DeleteTree(path + wcslen(W("SOFTWARE\\")));
        }
    }
    static std::string All(const std::vector<std::string>& lines) {
        std::string all;
        for (const std::string& line : lines) all += (all.empty() ? "" : "; ") + line;
        return all;
    }
};

TEST_F(ItemWrites, TheTableOfOperations) {
    const std::string longName(kLongPolicy.begin(), kLongPolicy.end());
    for (const Case& row : kCases) {
        SCOPED_TRACE(std::string(row.operation) + " " + row.name + " m" + row.managed + " l" + row.local + " d" +
                     row.fallback + " <- " + row.value);
        Clear();
        // The long spelling of a policy is told and logged as it is, and read and written under its short one.
        const bool isLong = std::string(row.name) == "*";
        const std::string spelled = isLong ? longName : row.name;
        const wstr name(spelled.begin(), spelled.end());
        const wstr stored = isLong ? W("LogonPolicy") : name;
        LPCWSTR leaf = stored.c_str();
        const auto key = [&](LPCWSTR base) {
            const std::size_t cut = stored.rfind(W('\\'));
            leaf = stored.c_str() + (cut == wstr::npos ? 0 : cut + 1);
            return cut == wstr::npos || cut == 0 ? wstr(base) : base + wstr(W("\\")) + stored.substr(0, cut);
        };
        for (const auto& [base, text] : {std::pair(kManaged, row.managed), std::pair(kLocalPolicyKey, row.local),
                                         std::pair(kDefaultPolicyKey, row.fallback)}) {
            const wstr path = key(base);
            Put(path.c_str(), leaf, text);
        }
        m_object->SetWorkgroupPolicies();  // what is managed now
        m_subscriber.Take();
        Events();

        EXPECT_EQ(Run(row.operation, name, row.value), row.result);
        const auto expected = [&](std::string text) {
            for (std::size_t at; isLong && (at = text.find('*')) != text.npos;) text.replace(at, 1, longName);
            return text;
        };
        EXPECT_EQ(All(m_subscriber.Take()), expected(row.told));
        EXPECT_EQ(All(Events()), expected(row.logged));
        EXPECT_EQ(Answer(name), row.answer);
    }
}

TEST_F(ItemWrites, WhatIsNoArgument) {
    OV_SERVER_VALUE none = {OV_TYPE_DWORD, 1, nullptr};
    for (LPCWSTR name : {static_cast<LPCWSTR>(nullptr), W("")}) {
        EXPECT_EQ(m_object->SetItemLong(name, 1), E_INVALIDARG);
        EXPECT_EQ(m_object->SetItemString(name, W("a")), E_INVALIDARG);
        EXPECT_EQ(m_object->SetItem(name, &none), E_INVALIDARG);
        EXPECT_EQ(m_object->DeleteItem(name), E_INVALIDARG);
    }
    EXPECT_EQ(m_object->SetItemString(W("X"), nullptr), E_INVALIDARG);
    EXPECT_EQ(m_object->SetItem(W("X"), nullptr), E_INVALIDARG);
    EXPECT_TRUE(Events().empty());
}

TEST_F(ItemWrites, WhatTheRegistryRefuses) {
    const wstr tooLong = wstr(300, W('k')) + W("\\X");
    EXPECT_EQ(m_object->SetItemLong(tooLong.c_str(), 1), E_INVALIDARG);
    EXPECT_EQ(m_object->SetItemString(tooLong.c_str(), W("a")), E_INVALIDARG);
    EXPECT_EQ(m_object->DeleteItem(tooLong.c_str()), S_OK) << "failures of deletions are not told";
    EXPECT_TRUE(Events().empty());
    EXPECT_TRUE(m_subscriber.Take().empty());
}

TEST_F(ItemWrites, TheThirdNumberTypeIsADword) {
    const OV_SERVER_VALUE number = {OV_TYPE_ULONG, 0x100000007, nullptr};
    EXPECT_EQ(m_object->SetItem(W("X"), &number), S_OK);
    EXPECT_EQ(Answer(W("X")), "1 dword 7");
}

// Neither the logger nor a subscriber can fail a write.
TEST_F(ItemWrites, WhoeverListensChangesNoResult) {
    DWORD next = 1;
    const auto write = [&] {
        EXPECT_EQ(m_object->SetItemLong(W("X"), next), S_OK);
        EXPECT_EQ(Answer(W("X")), "1 dword " + std::to_string(next));
        ++next;
    };
    m_answer = [] { return E_FAIL; };
    write();
    m_answer = []() -> HRESULT { throw 7; };
    write();
    m_answer = {};
    m_subscriber.then = [] { return E_FAIL; };
    write();
    m_subscriber.then = []() -> HRESULT { throw 7; };
    write();
    m_subscriber.then = {};
    EXPECT_EQ(Events().size(), 4u) << "and each hears of what the other missed";
    EXPECT_EQ(m_subscriber.Take().size(), 4u);
    // A library that throws is gone before anybody could look at what it threw.
    m_logger = {};
    Make(kTestLoggerThrows);
    write();
    CRegistryKey software;
    ASSERT_EQ(software.Open(HKEY_LOCAL_MACHINE, W("SOFTWARE"), KEY_ALL_ACCESS), ERROR_SUCCESS);
    ASSERT_EQ(software.DeleteSubkey(W("OvTestLoggerThrows")), ERROR_SUCCESS);
    m_logger = CDLLLoader(LoggerPath().c_str());
    m_hook = m_logger.Find<TestLoggerHookProc>("OvTestLoggerHook")();
    for (const wstr& path : {wstr(W("nowhere\\none.dll")), wstr(W("OvSvInfo")), wstr()}) {
        RegisterLogger(path);
        write();
    }
    CRegistryKey key;
    ASSERT_EQ(key.Open(HKEY_LOCAL_MACHINE, W("SOFTWARE"), KEY_ALL_ACCESS), ERROR_SUCCESS);
    ASSERT_EQ(key.DeleteTree(W("Classes\\CLSID")), ERROR_SUCCESS);
    write();
    EXPECT_TRUE(Events().empty());
}

// Nobody else waits for a slow one.
TEST_F(ItemWrites, NoLockIsHeldWhileAnEventIsLogged) {
    std::atomic<bool> logging{false}, answered{false};
    m_answer = [&]() -> HRESULT {
        logging = true;
        for (int i = 0; i < 2'000 && !answered; ++i) std::this_thread::sleep_for(std::chrono::milliseconds(5));
        return S_OK;
    };
    std::thread reader([&] {
        while (!logging) std::this_thread::yield();
        DWORD number = 0;
        EXPECT_EQ(m_object->GetItemLong(W("X"), &number), S_FALSE);
        answered = true;
    });
    EXPECT_EQ(m_object->SetItemLong(W("X"), 1), S_OK);
    EXPECT_TRUE(answered);
    reader.join();
}

TEST_F(ItemWrites, ASubscriberMayWrite) {
    bool done = false;
    m_subscriber.then = [&]() -> HRESULT {
        return std::exchange(done, true) ? S_OK : m_object->SetItemLong(W("Y"), 2);
    };
    EXPECT_EQ(m_object->SetItemLong(W("X"), 1), S_OK);
    EXPECT_EQ(All(m_subscriber.Take()), "X: nothing -> dword 1 local; Y: nothing -> dword 2 local");
    EXPECT_EQ(All(Events()), "0110040B Y | 0 | 2; 0110040B X | 0 | 1") << "each when its operation ends";
}

TEST_F(ItemWrites, ActingForNobodyChangesNothing) {
    RevertToSelf();
    EXPECT_TRUE(FAILED(m_object->SetItemLong(W("New\\X"), 1)));
    EXPECT_TRUE(FAILED(m_object->SetItemString(W("New\\X"), W("a"))));
    EXPECT_TRUE(FAILED(m_object->DeleteItem(W("New\\X"))));
    CRegistryKey key;
    EXPECT_EQ(key.Open(HKEY_LOCAL_MACHINE, W("SOFTWARE\\Orvantis\\Policies\\New"), KEY_READ), ERROR_FILE_NOT_FOUND);
    EXPECT_TRUE(Events().empty());
    EXPECT_TRUE(m_subscriber.Take().empty());
}

}  // namespace
