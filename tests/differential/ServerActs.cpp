#include "differential/ServerActs.h"

#include <algorithm>
#include <fstream>
#include <iterator>

#include "module/Library.h"
#include "module/RegistryKey.h"
#include "sources/PolicySave.h"
#include "support/Recorder.h"
#include "support/RegistryTree.h"

namespace {

constexpr DWORD kMark = 0xDEADBEEF;

const wstr kLevels[] = {W("SOFTWARE\\Orvantis\\Policies"), W("SOFTWARE\\Orvantis\\Policies\\Default"),
                        W("SOFTWARE\\Policies\\Orvantis")};
const wstr kLongPrefix = W("Applications\\{5ED04F3F-AC3E-4BE0-A157-782B204E2B8C}\\");

const wstr kNames[] = {
    W("LogonPolicy"),
    W("logonPOLICY"),
    W("RuntimePolicy"),
    W("DisableCredentials"),
    kLongPrefix + W("LogonPolicy"),
    W("applications\\{5ed04f3f-ac3e-4be0-a157-782b204e2b8c}\\RUNTIMEPOLICY"),
    kLongPrefix + W("Other"),
    kLongPrefix,
    W("Applications"),
    W("Plain"),
    W("PLAIN"),
    W("Key\\Value"),
    W("key\\VALUE"),
    W("Key\\Deeper\\Value"),
    W("Key\\\\Value"),
    W("\\Value"),
    W("Key\\"),
    W("\\"),
    {W('K'), 0xE9, W('y'), W('\\'), 0x3C2},
    {W('K'), 0xC9, W('Y'), W('\\'), 0x3A3},
    {0xD800},
    wstr(300, W('n')),
    W("Key\\") + wstr(300, W('n')),
    wstr(300, W('k')) + W("\\Value"),
    W("Default\\Plain"),
    W("Missing"),
};

// As the object answers it: the type and the whole value.
std::string ShownValue(const OV_SERVER_VALUE& value) {
    switch (value.type) {
        case OV_TYPE_STRING:
            return "string " + Shown(OvServerValueText(value));
        case OV_TYPE_ARRAY: {
            std::string all = "array";
            for (DWORD i = 0; i < static_cast<DWORD>(value.data); ++i) all += ' ' + ShownValue(value.items[i]);
            return all;
        }
        default:
            return "type " + std::to_string(value.type) + ' ' + Hex(value.data);
    }
}

std::string ShownResult(HRESULT hr) {
    return Hex(static_cast<DWORD>(hr));
}

// What an object leaves at its end: the cache file, byte for byte, and the copy in the registry.
std::string LeftBehind() {
    std::ifstream file("svinfo.cch", std::ios::binary);
    std::string text = file ? "file" : "no file";
    for (std::istreambuf_iterator<char> at(file), end; at != end; ++at) {
        const auto byte = static_cast<BYTE>(*at);
        text.append(1, "0123456789abcdef"[byte >> 4]).append(1, "0123456789abcdef"[byte & 15]);
    }
    std::string copy = TreeText(kCachedInfoKey);
    std::replace(copy.begin(), copy.end(), '\n', ';');
    return text + "; " + copy;
}

// Where an item lies: a key and a value name.
LSTATUS OpenItem(CRegistryKey& key, const wstr& level, const wstr& name, wstr& value) {
    const std::size_t last = name.rfind(W('\\'));
    const wstr path = last == wstr::npos ? level : level + W('\\') + name.substr(0, last);
    value = last == wstr::npos ? name : name.substr(last + 1);
    return key.Create(HKEY_LOCAL_MACHINE, path.c_str(), nullptr, 0, KEY_ALL_ACCESS, nullptr, nullptr);
}

}  // namespace

CServerActs::CServerActs(CChoice& choice, CTranscript& transcript)
    : m_choice(choice), m_transcript(transcript), m_module(LoadLibraryW(W("OvSvInfo"))) {
    MakeObject();
}

void CServerActs::MakeObject() {
    const auto classObject = FindExport<LPFNGETCLASSOBJECT>(m_module, "DllGetClassObject");
    void* factory = nullptr;
    if (!classObject || FAILED(classObject(CLSID_ServerInfo, IID_IClassFactory, &factory))) return;
    void* server = nullptr;
    static_cast<IClassFactory*>(factory)->CreateInstance(nullptr, IID_IOVServerInfo, &server);
    static_cast<IClassFactory*>(factory)->Release();
    m_server = static_cast<IOVServerInfo*>(server);
}

CServerActs::~CServerActs() {
    if (m_server) m_server->Release();
    if (m_module) FreeLibrary(m_module);
}

void CServerActs::Act() {
    using Step = void (CServerActs::*)();
    static constexpr Step kSteps[] = {
        &CServerActs::PutPlain, &CServerActs::PutPlain, &CServerActs::PutPlain,  &CServerActs::PutMasks,
        &CServerActs::PutBits,  &CServerActs::Remove,   &CServerActs::AskMany,   &CServerActs::AskMany,
        &CServerActs::AskMany,  &CServerActs::AskMany,  &CServerActs::AskNumber, &CServerActs::AskNumber,
        &CServerActs::AskText,  &CServerActs::AskText,  &CServerActs::Change,    &CServerActs::Renew,
    };
    if (!m_server) {
        m_transcript.Write("ask", "no object");
        return;
    }
    (this->*m_choice.Of(kSteps))();
}

const wstr& CServerActs::DrawName() {
    return m_choice.Of(kNames);
}

void CServerActs::PutPlain() {
    static const struct {
        const char* shown;
        DWORD type;
        std::string bytes;
    } kValues[] = {
        {"dword 5", REG_DWORD, {"\5\0\0\0", 4}},
        {"dword 4294967295", REG_DWORD, {"\xFF\xFF\xFF\xFF", 4}},
        {"dword of 3 bytes", REG_DWORD, {"\1\2\3", 3}},
        {"text", REG_SZ, {"t\0e\0\xE9\0\0\0", 8}},
        {"text to be expanded", REG_EXPAND_SZ, {"%\0P\0%\0\0\0", 8}},
        {"empty text", REG_SZ, {"\0\0", 2}},
        {"text of no bytes", REG_SZ, {}},
        {"text without a NUL", REG_SZ, {"a\0b\0", 4}},
        {"text of odd size", REG_SZ, {"a\0b\0c", 5}},
        {"text with a NUL inside", REG_SZ, {"a\0\0\0b\0\0\0", 8}},
        {"lone surrogate", REG_SZ, {"\0\xD8\0\0", 4}},
        {"qword", REG_QWORD, {"\1\2\3\4\5\6\7\x88", 8}},
        {"qword of 4 bytes", REG_QWORD, {"\1\2\3\4", 4}},
        {"8 bytes", REG_BINARY, {"\x88\7\6\5\4\3\2\1", 8}},
        {"7 bytes", REG_BINARY, {"\1\2\3\4\5\6\7", 7}},
        {"list", REG_MULTI_SZ, {"a\0\0\0\0\0", 6}},
        {"nothing", REG_NONE, {}},
        {"big endian", REG_DWORD_BIG_ENDIAN, {"\0\0\0\1", 4}},
    };
    const wstr& level = m_choice.Of(kLevels);
    const wstr& name = DrawName();
    const auto& content = m_choice.Of(kValues);
    // A NUL that stood behind the bytes could be stored with them.
    const std::string guarded = content.bytes + "\xEE\xEE\xEE\xEE";
    CRegistryKey key;
    wstr value;
    LSTATUS error = OpenItem(key, level, name, value);
    if (!error) {
        error = RegSetValueExW(key.Get(), value.c_str(), 0, content.type, reinterpret_cast<const BYTE*>(guarded.data()),
                               static_cast<DWORD>(content.bytes.size()));
    }
    m_transcript.Write("put " + Shown(level) + ' ' + Shown(name) + ' ' + content.shown, std::to_string(error));
}

void CServerActs::PutMasks() {
    static const struct {
        const char* shown;
        LPCWSTR list;  // ends with an empty string
    } kLists[] = {
        {"one", W("00000000000000FF\0")},
        {"two", W("1\0FFFFFFFFFFFFFFFF\0")},
        {"a sign", W("-1\0")},
        {"a prefix", W("0x1F\0")},
        {"too large", W("123456789ABCDEF01\0")},
        {"no number", W("zz\0"
                        "7\0")},
        {"empty", W("\0")},
    };
    const wstr& level = m_choice.Of(kLevels);
    const auto& list = m_choice.Of(kLists);
    CRegistryKey key;
    wstr value;
    LSTATUS error = OpenItem(key, level, kLongPrefix + W("LogonPolicy"), value);
    if (!error) error = key.SetMultiString(value.c_str(), list.list);
    m_transcript.Write("put masks " + Shown(level) + ' ' + list.shown, std::to_string(error));
}

void CServerActs::PutBits() {
    static const wstr kPolicies[] = {W("LogonPolicy"), W("RuntimePolicy")};
    const wstr& level = m_choice.Of(kLevels);
    const wstr& policy = m_choice.Of(kPolicies);
    const auto bit = static_cast<DWORD>(1u << m_choice.Below(32));
    CRegistryKey key;
    wstr value;
    LSTATUS error = OpenItem(key, level, W("AuthenticationPolicies\\") + policy + W("\\b"), value);
    if (!error)
        error = key.SetDword((value + static_cast<WCHAR>(W('0') + static_cast<int>(m_choice.Below(4)))).c_str(), bit);
    m_transcript.Write("put bit " + Shown(level) + ' ' + Shown(policy) + ' ' + Hex(bit), std::to_string(error));
}

void CServerActs::Remove() {
    static const wstr kTrees[] = {W("Applications"), W("AuthenticationPolicies"), W("Key"), W("Default")};
    const wstr& level = m_choice.Of(kLevels);
    const wstr& tree = m_choice.Of(kTrees);
    CRegistryKey key;
    LSTATUS error = key.Open(HKEY_LOCAL_MACHINE, level.c_str(), KEY_ALL_ACCESS);
    if (!error) error = key.DeleteTree(tree.c_str());
    m_transcript.Write("remove " + Shown(level) + ' ' + Shown(tree), std::to_string(error));
}

void CServerActs::AskMany() {
    static constexpr HRESULT kRequests[] = {OV_QUERY, OV_QUERY, OV_QUERY_DEFAULT, S_FALSE, E_FAIL};
    OV_SERVER_INFO_EX records[4] = {};
    const std::size_t count = m_choice.Below(std::size(records) + 1);
    std::string question = "info";
    for (std::size_t i = 0; i < count; ++i) {
        const bool null = m_choice.OneIn(15);
        const bool empty = m_choice.OneIn(15);
        const wstr& name = DrawName();
        records[i].name = null ? nullptr : empty ? W("") : name.c_str();
        records[i].hr = m_choice.Of(kRequests);
        records[i].value = {kMark, kMark, nullptr};
        question += ' ' + Shown(records[i].name) + ' ' + ShownResult(records[i].hr);
    }
    const HRESULT hr =
        m_server->GetInfo(static_cast<DWORD>(count), count == 0 && m_choice.OneIn(2) ? nullptr : records);
    std::string answer = ShownResult(hr);
    for (std::size_t i = 0; i < count; ++i) {
        answer += "; " + ShownResult(records[i].hr) + ' ' + ShownValue(records[i].value);
        if (SUCCEEDED(records[i].hr)) OvFreeServerValue(records[i].value);
    }
    m_transcript.Write(question, answer);
}

// Another object, whose first load is told to a subscriber: the machine's whole policy, in the order of its names.
void CServerActs::Renew() {
    static constexpr LPCWSTR kFilters[] = {W(""), W(""), W("key"), W("Key\\Value"), W("LogonPolicy")};
    m_server->Release();
    m_server = nullptr;
    m_transcript.Write("left", LeftBehind());
    MakeObject();
    const LPCWSTR filter = m_choice.Of(kFilters);
    void* found = nullptr;
    if (!m_server || FAILED(m_server->QueryInterface(IID_IOVServerInfoNotify, &found))) return;
    auto* notify = static_cast<IOVServerInfoNotify*>(found);
    CRecorder recorder;
    DWORD cookie = 0;
    std::string answer = ShownResult(notify->RegisterNotification(filter, &recorder, &cookie));
    answer += ' ' + ShownResult(m_server->GetInfo(0, nullptr));
    answer += ' ' + ShownResult(notify->UnregisterNotification(cookie));
    notify->Release();
    for (const std::string& line : recorder.Take()) answer += "; " + line;
    m_transcript.Write("renew " + Shown(filter), answer + "; in " + std::to_string(recorder.Batches()));
}

void CServerActs::AskNumber() {
    DWORD number = kMark;
    const wstr& name = DrawName();
    const LPCWSTR asked = m_choice.OneIn(20) ? nullptr : name.c_str();
    const HRESULT hr = m_server->GetItemLong(asked, &number);
    m_transcript.Write("number " + Shown(asked), ShownResult(hr) + ' ' + std::to_string(number));
}

void CServerActs::AskText() {
    WCHAR mark = 0;
    LPWSTR text = &mark;
    const wstr& name = DrawName();
    const LPCWSTR asked = m_choice.OneIn(20) ? W("") : name.c_str();
    const HRESULT hr = m_server->GetItemString(asked, &text);
    m_transcript.Write("text " + Shown(asked),
                       ShownResult(hr) + ' ' + (text == &mark ? "untouched" : Shown(LPCWSTR(text))));
    if (SUCCEEDED(hr)) CoTaskMemFree(text);
}

void CServerActs::Change() {
    const wstr& name = DrawName();
    const OV_SERVER_VALUE value = {OV_TYPE_DWORD, 1, nullptr};
    const HRESULT results[] = {m_server->SetItemLong(name.c_str(), 1), m_server->SetItemString(name.c_str(), W("x")),
                               m_server->DeleteItem(name.c_str()), m_server->SetItem(name.c_str(), &value)};
    std::string answer;
    for (const HRESULT hr : results) answer += (answer.empty() ? "" : " ") + ShownResult(hr);
    m_transcript.Write("change " + Shown(name), answer);
}
