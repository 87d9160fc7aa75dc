// The registry copy of the store, left at the end of an object for readers outside this component.
//
// A copy that says what the store holds stays as it is: most objects end as they began, and a write would make every
// process read the hive anew.
#include <string>
#include <unordered_map>
#include <vector>

#include "module/Failure.h"
#include "module/RegBatch.h"
#include "module/ValueWalk.h"
#include "sources/AuthPolicy.h"
#include "sources/PolicySave.h"
#include "store/PolicyNames.h"
#include "store/ServerInfo.h"

namespace {

constexpr DWORD kIsKey = 0xFFFFFFFF;  // in place of a type

// What a tree holds, by folded path: its values, and its keys, whose paths end with a backslash.
class CPicture {
  public:
    void AddKey(wstr_view path) { m_parts.try_emplace('k' + Folded(path), CRegistryForm{kIsKey, {}}); }
    void AddValue(wstr_view path, CRegistryForm form) {
        for (std::size_t at = path.find(W('\\')); at != path.npos; at = path.find(W('\\'), at + 1)) {
            AddKey(path.substr(0, at + 1));
        }
        AddKey({});
        m_parts.insert_or_assign('v' + Folded(path), std::move(form));
    }

    // Crosses a part off; false for one that is not in it like that.
    bool TakeKey(wstr_view path) { return Take('k' + Folded(path), {kIsKey, {}}); }
    bool TakeValue(wstr_view path, const CRegistryForm& form) { return Take('v' + Folded(path), form); }
    bool IsEmpty() const noexcept { return m_parts.empty(); }

  private:
    bool Take(const std::string& key, const CRegistryForm& form) {
        const auto found = m_parts.find(key);
        if (found == m_parts.end() || found->second != form) return false;
        m_parts.erase(found);
        return true;
    }
    static std::string Folded(wstr_view path) { return std::string(CFoldedName(path).Key()); }

    std::unordered_map<std::string, CRegistryForm> m_parts;
};

void AddItem(CPicture& picture, const CPolicyItem& item) {
    const wstr& name = item.name;
    const bool isPolicy = IsAuthPolicyName(name.c_str());
    if (IsNeverSaved(name.c_str())) return;
    if (isPolicy && item.value.Type() == OV_TYPE_ARRAY) {
        const OV_SERVER_VALUE& list = item.value.Raw();
        const wstr text = AuthPolicyList({list.items, static_cast<DWORD>(list.data)}) + WCHAR{0};
        picture.AddValue(
            wstr(AppsPolicyPrefix).append(1, W('\\')).append(name),
            {REG_MULTI_SZ, std::string(reinterpret_cast<const char*>(text.data()), text.size() * sizeof(WCHAR))});
        return;
    }
    CRegistryForm form;
    if (SUCCEEDED(RegistryFormOf(item.value, form)) && (!isPolicy || form.type == REG_DWORD)) {
        picture.AddValue(name, std::move(form));
    }
}

// Whether the tree is as the picture has it, with nothing more. A tree that is not there holds nothing.
bool IsLike(LPCWSTR root, CPicture picture) {
    std::vector<wstr> paths = {wstr()};
    while (!paths.empty()) {
        const wstr path = std::move(paths.back());
        paths.pop_back();
        CRegistryKey key;
        wstr full(root);
        if (!path.empty()) full.append(1, W('\\')).append(path, 0, path.size() - 1);
        if (const LONG error = key.Open(HKEY_LOCAL_MACHINE, full.c_str(), KEY_READ)) {
            return error == ERROR_FILE_NOT_FOUND && picture.IsEmpty();
        }
        CValueWalk walk(key.Get());
        if (!picture.TakeKey(path) || walk.Measure()) return false;
        while (walk.Next()) {
            const auto* bytes = reinterpret_cast<const char*>(walk.Data().data());
            const CRegistryForm form = {walk.Type(), std::string(bytes, walk.Data().size())};
            if (!picture.TakeValue(path + walk.Name(), form)) return false;
        }
        WCHAR child[kLongestKeyName + 1];
        for (DWORD index = 0, length = kLongestKeyName + 1;
             !RegEnumKeyExW(key.Get(), index, child, &length, nullptr, nullptr, nullptr, nullptr);
             ++index, length = kLongestKeyName + 1) {
            paths.push_back(path + child + W('\\'));
        }
    }
    return picture.IsEmpty();
}

bool Holds(LPCWSTR root, const CPolicyMap& map) {
    CPicture wanted;
    for (std::size_t rank = 0; rank < map.Size(); ++rank) AddItem(wanted, map.At(rank));
    return IsLike(root, std::move(wanted));
}

}  // namespace

// One batch, so that a reader finds the old copy or the new one, and 10,000 items do not take 10,000 transactions.
// Where there is none, the writes stand for themselves; where it cannot be committed, the old copy stands.
void CServerInfo::SaveCachedInfo() {
    if (Holds(kCachedInfoKey, m_machineItems)) return;
    CRegBatch batch;
    const bool begun = batch.Begin() == ERROR_SUCCESS;
    CRegistryKey logon;
    constexpr LPCWSTR kLogon = W("SOFTWARE\\Orvantis\\Applications\\Logon");
    constexpr REGSAM kAccess = KEY_READ | KEY_WRITE;
    LONG error = logon.Open(HKEY_LOCAL_MACHINE, kLogon, kAccess);
    if (error == ERROR_FILE_NOT_FOUND && !m_machineItems.IsEmpty()) {
        error = logon.Create(HKEY_LOCAL_MACHINE, kLogon, nullptr, REG_OPTION_NON_VOLATILE, kAccess, nullptr, nullptr);
    }
    // Who may not write here would be refused once for each item.
    if (error == ERROR_ACCESS_DENIED) RaiseIfRegistryFailed(error);
    if (!error) logon.DeleteTree(W("CachedInfo"));
    SavePolicies(m_machineItems, HKEY_LOCAL_MACHINE, kCachedInfoKey);
    if (begun) RaiseIfRegistryFailed(batch.Commit());
}
