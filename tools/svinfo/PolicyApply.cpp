#include "svinfo/PolicyApply.h"

#include <algorithm>
#include <functional>

#include "module/RegistryKey.h"
#include "module/ValueWalk.h"
#include "store/PolicyNames.h"
#include "svinfo/Failure.h"
#include "svinfo/Text.h"

namespace {

constexpr wstr_view kPolicies = W("SOFTWARE\\Policies");
// Where an application writes down what it has set: a policy file of names alone.
constexpr LPCWSTR kRecordKey = W("SOFTWARE\\Orvantis\\PolicyEngine");
constexpr LPCWSTR kRecordValue = W("Applied");

void Require(LSTATUS error, const char* operation, const wstr& key) {
    if (error) throw RegistryFailureOf(operation + (" " + EscapeControls(ToUtf8(key))), error);
}

// Whether the key is gone, in one of the forms in which the registry says so.
bool IsMissing(LSTATUS error) noexcept {
    return error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND;
}

// The key and those above it, from the policies' own down.
void ForEachPart(const wstr& key, const std::function<void(const wstr&)>& use) {
    for (std::size_t end = kPolicies.size(); end < key.size(); end = std::min(key.find(W('\\'), end + 1), key.size())) {
        use(key.substr(0, end));
    }
    use(key);
}

// Below SOFTWARE\Policies, and a path that the registry takes as it stands.
bool IsPolicyKey(const wstr& key) noexcept {
    return IsSameOrSubPath(kPolicies, key) && key.size() >= kPolicies.size() && key.back() != W('\\') &&
           key.find(W("\\\\")) == wstr::npos;
}

wstr TextOf(const std::vector<BYTE>& data) {
    wstr text;
    for (std::size_t i = 0; i + 1 < data.size(); i += 2) {
        const auto unit = static_cast<WCHAR>(data[i] | data[i + 1] << 8);
        if (unit == 0) break;
        text += unit;
    }
    return text;
}

bool IsOneBlank(const CPolRecord& record) noexcept {
    static constexpr BYTE kBlank[] = {0x20, 0, 0, 0};
    return record.type == REG_SZ &&
           std::equal(record.data.begin(), record.data.end(), std::begin(kBlank), std::end(kBlank));
}

// The rest of a name that begins with the word, in any case.
bool TakeWord(wstr_view& name, wstr_view word) noexcept {
    if (name.size() < word.size() || CompareNames(name.substr(0, word.size()), word) != 0) return false;
    name.remove_prefix(word.size());
    return true;
}

// Names joined by semicolons: in the data, or behind the word itself, as the oldest description has it.
std::vector<wstr> ListOf(const CPolRecord& record, wstr_view behindWord) {
    wstr list = TextOf(record.data);
    if (!behindWord.empty()) list = wstr(behindWord.substr(0, behindWord.find(W(' '))));
    std::vector<wstr> names;
    for (std::size_t at = 0; at < list.size();) {
        const std::size_t end = std::min(list.find(W(';'), at), list.size());
        if (end > at) names.push_back(list.substr(at, end - at));
        at = end + 1;
    }
    return names;
}

}  // namespace

bool CPathLess::operator()(const wstr& a, const wstr& b) const noexcept {
    return CompareNames(wstr_view(a), wstr_view(b)) < 0;
}

void CPolicyApplication::TakeBack() {
    CRegistryKey key;
    const wstr recordKey = Full(kRecordKey);
    const LSTATUS opened = key.Open(m_root, recordKey.c_str(), KEY_READ);
    if (IsMissing(opened)) return;
    Require(opened, "open", recordKey);
    CValueWalk walk(key.Get());
    Require(walk.Measure(), "read", recordKey);
    while (walk.Next()) {
        if (CompareNames(walk.Name(), kRecordValue) != 0 || walk.Type() != REG_BINARY) continue;
        const auto* bytes = reinterpret_cast<const char*>(walk.Data().data());
        try {
            for (const CPolRecord& record : ReadPolFile({bytes, walk.Data().size()})) {
                // What somebody else may have put into the record deletes nothing outside of the policies.
                if (!IsPolicyKey(record.key)) continue;
                if (record.name.empty()) {
                    m_before.insert(record.key);
                } else if (DeleteValue(record.key, record.name)) {
                    ++m_counts.valuesTakenBack;
                }
            }
        } catch (const CBadPolFile& bad) {
            throw CCommandFailure(ExitCode::Failed,
                                  "read what was applied before, " + EscapeControls(ToUtf8(recordKey)) + " value '" +
                                      ToUtf8(kRecordValue) + "', byte " + std::to_string(bad.offset) + ": " + bad.text);
        }
    }
}

std::vector<CPolicyNote> CPolicyApplication::Apply(const std::vector<CPolRecord>& records) {
    std::vector<CPolicyNote> notes;
    for (const CPolRecord& record : records) {
        std::string why = IsPolicyKey(record.key) ? Carry(record) : "is not a key below " + ToUtf8(kPolicies);
        if (why.empty()) continue;
        notes.push_back({record.offset,
                         Quoted(ToUtf8(record.key)) + " " + Quoted(ToUtf8(record.name)) + " " + why + ", passed over"});
    }
    return notes;
}

// Empty when the record was carried out, else what is wrong with it.
std::string CPolicyApplication::Carry(const CPolRecord& record) {
    if (record.name.starts_with(W("**"))) return Instruct(record);
    CreateKey(record.key);
    // "If value name, type, size or data is missing or zero, only the key is created."
    if (!record.name.empty() && record.type != REG_NONE && !record.data.empty()) {
        SetValue(record.key, record.name, record);
    }
    return {};
}

// The longer words come first: four of them begin alike.
std::string CPolicyApplication::Instruct(const CPolRecord& record) {
    wstr_view rest = record.name;
    if (TakeWord(rest, W("**DeleteValues"))) {
        for (const wstr& name : ListOf(record, rest)) m_counts.valuesDeleted += DeleteValue(record.key, name);
    } else if (TakeWord(rest, W("**DeleteKeys"))) {
        CRegistryKey key;
        if (key.Open(m_root, Full(record.key).c_str(), KEY_READ) != ERROR_SUCCESS) return {};
        for (const wstr& name : ListOf(record, rest)) {
            if (name.find(W('\\')) != wstr::npos) return "names a key that is not immediately below it";
            const LSTATUS error = key.DeleteTree(name.c_str());
            if (!IsMissing(error)) Require(error, "delete", record.key + W('\\') + name);
        }
    } else if (TakeWord(rest, W("**DelVals"))) {
        if (!IsOneBlank(record)) return "does not have one blank for its data";
        DeleteAllValues(record.key);
    } else if (TakeWord(rest, W("**Del."))) {
        if (!IsOneBlank(record)) return "does not have one blank for its data";
        m_counts.valuesDeleted += DeleteValue(record.key, wstr(rest));
    } else if (TakeWord(rest, W("**soft."))) {
        CreateKey(record.key);
        if (!HasValue(record.key, wstr(rest))) SetValue(record.key, wstr(rest), record);
    } else if (TakeWord(rest, W("**SecureKey"))) {
        return "would set access rights, which policies have anyway";
    } else {
        return "is an unknown instruction";
    }
    return {};
}

void CPolicyApplication::CreateKey(const wstr& key) {
    if (!m_touched.insert(key).second) return;
    ForEachPart(key, [&](const wstr& part) {
        m_touched.insert(part);
        CRegistryKey made;
        DWORD disposition = 0;
        Require(
            made.Create(m_root, Full(part).c_str(), nullptr, REG_OPTION_NON_VOLATILE, KEY_READ, nullptr, &disposition),
            "create", part);
        if (disposition == REG_CREATED_NEW_KEY) m_made.insert(part);
    });
}

void CPolicyApplication::SetValue(const wstr& key, const wstr& name, const CPolRecord& record) {
    CRegistryKey open;
    Require(open.Open(m_root, Full(key).c_str(), KEY_SET_VALUE), "open", key);
    Require(RegSetValueExW(open.Get(), name.c_str(), 0, record.type, record.data.data(),
                           static_cast<DWORD>(record.data.size())),
            "write a value of", key);
    m_set.push_back({key, name, REG_NONE, {}, 0});
    ++m_counts.valuesSet;
}

bool CPolicyApplication::HasValue(const wstr& key, const wstr& name) const {
    CRegistryKey open;
    if (open.Open(m_root, Full(key).c_str(), KEY_READ)) return false;
    return RegQueryValueExW(open.Get(), name.c_str(), nullptr, nullptr, nullptr, nullptr) == ERROR_SUCCESS;
}

bool CPolicyApplication::DeleteValue(const wstr& key, const wstr& name) const {
    CRegistryKey open;
    LSTATUS error = open.Open(m_root, Full(key).c_str(), KEY_SET_VALUE);
    if (!error) error = RegDeleteValueW(open.Get(), name.c_str());
    if (!IsMissing(error)) Require(error, "delete a value of", key);
    return error == ERROR_SUCCESS;
}

void CPolicyApplication::DeleteAllValues(const wstr& key) {
    CRegistryKey open;
    const LSTATUS error = open.Open(m_root, Full(key).c_str(), KEY_READ);
    if (IsMissing(error)) return;
    Require(error, "open", key);
    CValueWalk walk(open.Get());
    Require(walk.Measure(), "read", key);
    std::vector<wstr> names;
    while (walk.Next()) names.emplace_back(walk.Name());
    for (const wstr& name : names) m_counts.valuesDeleted += DeleteValue(key, name);
}

void CPolicyApplication::RemoveIfEmpty(const wstr& key) const {
    CRegistryKey open;
    DWORD values = 0;
    DWORD subkeys = 0;
    if (open.Open(m_root, Full(key).c_str(), KEY_READ)) return;
    Require(RegQueryInfoKeyW(open.Get(), nullptr, nullptr, nullptr, &subkeys, nullptr, nullptr, &values, nullptr,
                             nullptr, nullptr, nullptr),
            "read", key);
    open.Close();
    if (values == 0 && subkeys == 0) Require(RegDeleteKeyW(m_root, Full(key).c_str()), "delete", key);
}

void CPolicyApplication::Finish() {
    // From the longest path to the shortest: a key below another one is longer.
    std::vector<wstr> leftOver(m_before.begin(), m_before.end());
    std::sort(leftOver.begin(), leftOver.end(), [](const wstr& a, const wstr& b) { return a.size() > b.size(); });
    for (const wstr& key : leftOver) {
        if (!m_touched.contains(key)) RemoveIfEmpty(key);
    }
    std::vector<CPolRecord> record = m_set;
    m_made.insert(m_before.begin(), m_before.end());
    for (const wstr& key : m_made) {
        CRegistryKey open;
        if (!open.Open(m_root, Full(key).c_str(), KEY_READ)) record.push_back({key, {}, REG_NONE, {}, 0});
    }
    const std::string bytes = WritePolFile(record);
    CRegistryKey key;
    const wstr recordKey = Full(kRecordKey);
    Require(key.Create(m_root, recordKey.c_str(), nullptr, REG_OPTION_NON_VOLATILE, KEY_SET_VALUE, nullptr, nullptr),
            "create", recordKey);
    Require(RegSetValueExW(key.Get(), kRecordValue, 0, REG_BINARY, reinterpret_cast<const BYTE*>(bytes.data()),
                           static_cast<DWORD>(bytes.size())),
            "write", recordKey);
}
