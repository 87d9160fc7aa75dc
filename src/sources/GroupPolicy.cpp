// The machine's Group Policy: a registry tree without a schema, walked into the store.
//
// Every value becomes an item named by its key's path below the root, a backslash and its own name. The nine
// authentication policies come first and are asked for by name; the two subtrees in which they lie are not walked.
#include <deque>

#include "module/Failure.h"
#include "module/RegistryKey.h"
#include "module/ValueWalk.h"
#include "sources/AuthPolicy.h"
#include "store/PolicyNames.h"
#include "store/ServerInfo.h"

namespace {

bool IsExcluded(LPCWSTR path) noexcept {
    return CompareNames(path, AppsPolicyPrefix.data()) == 0 || CompareNames(path, W("AuthenticationPolicies")) == 0;
}

// `path` is relative to the root and empty for the root itself.
wstr NameBelow(const wstr& path, LPCWSTR leaf) {
    if (path.empty()) return leaf;
    wstr name;
    name.reserve(path.size() + 1 + wcslen(leaf));
    return name.append(path).append(1, W('\\')).append(leaf);
}

// A key that is being walked, and its subkeys within it, in the trace as well. The levels lie on the heap: a tree may
// be deeper than the stack.
struct CLevel {
    explicit CLevel(wstr relative) noexcept : path(std::move(relative)) {}

    OVTraceNS::CTraceScope scope{"CServerInfo::InsertGPOValues", 0};
    CRegistryKey key;
    wstr path;  // relative to the root, empty for the root itself
    DWORD next = 0;
};

}  // namespace

// Takes one value over, unless a stronger one is there. The trace line is written all the same.
void CServerInfo::InsertGPOValue(const CValueWalk& walk, const wstr& path, LPCWSTR key, OVTraceNS::CTraceScope& scope) {
    CPolicyItem item{NameBelow(path, walk.Name()), {}};
    const LPCWSTR name = item.name.c_str();
    DWORD number = 0;
    ULONGLONG large = 0;
    if (walk.AsDword(number)) {
        scope.Print("%ls = %ld", name, number);
        item.value.SetNumber(OV_TYPE_DWORD, number);
    } else if (walk.Type() == REG_SZ || walk.Type() == REG_EXPAND_SZ) {
        const wstr text = walk.AsText();
        scope.Print("%ls = '%ls'", name, text.c_str());
        item.value.SetString(text.c_str(), text.size());
    } else if (walk.AsQword(large)) {
        scope.Print("%ls = '0x%016I64X'", name, large);
        item.value.SetNumber(OV_TYPE_QWORD, large);
    } else {
        scope.Print("%ls - unexpected type (%ld)", name, walk.Type());
        if (m_observer) m_observer->PassedOver(Oddity::kRegistryType, name, {nullptr, key});
        return;
    }
    InsertFromKey(std::move(item), key);
}

void CServerInfo::InsertFromKey(CPolicyItem item, LPCWSTR key) {
    if (!m_observer) {
        m_machineItems.Insert(std::move(item));
        return;
    }
    const bool kept = m_machineItems.Insert(item);
    m_observer->Delivered(item, kept, {nullptr, key});
}

void CServerInfo::InsertGPOValues(LPCWSTR szSubKey) {
    std::deque<CLevel> levels;
    const auto enter = [&](wstr path) {
        CLevel& level = levels.emplace_back(std::move(path));
        if (!InsertGPOKey(level.path, level.key, level.scope)) levels.pop_back();
    };
    enter(szSubKey ? szSubKey : W(""));
    while (!levels.empty()) {
        CLevel& level = levels.back();
        WCHAR subkey[kLongestKeyName + 1];
        DWORD length = kLongestKeyName + 1;
        if (RegEnumKeyExW(level.key.Get(), level.next++, subkey, &length, nullptr, nullptr, nullptr, nullptr)) {
            levels.pop_back();
        } else {
            enter(NameBelow(level.path, subkey));
        }
    }
}

// The values of one key. False when there is nothing to be walked beneath it.
bool CServerInfo::InsertGPOKey(const wstr& path, CRegistryKey& key, OVTraceNS::CTraceScope& scope) {
    if (!path.empty()) {
        scope.Print("szSubKey = %ls", path.c_str());
        if (IsExcluded(path.c_str())) return false;
    }
    const wstr fullPath = path.empty() ? kGroupPolicyKey : NameBelow(kGroupPolicyKey, path.c_str());
    if (key.Open(HKEY_LOCAL_MACHINE, fullPath.c_str(), KEY_READ)) {
        scope.Print("Failed opening GPO key");
        return false;
    }
    // Before every value of the tree, so that a plain value of one of these names only counts where the policy has
    // neither of its own forms.
    if (path.empty()) {
        for (const AuthPolicyName& policy : kAuthPolicyNames) InsertAuthPolicyGPO(key.Get(), policy.name);
    }
    CValueWalk walk(key.Get());
    if (walk.Measure()) {
        scope.Print("Failed enumerating values in GPO key");
        return false;
    }
    scope.Print("dwMaxSubKeyLen=%ld dwMaxValNameLen=%ld dwMaxValLen=%ld", walk.LongestSubkey(), walk.LongestName(),
                walk.LongestData());
    while (walk.Next()) InsertGPOValue(walk, path, fullPath.c_str(), scope);
    return true;
}

void CServerInfo::InsertAuthPolicyGPO(HKEY hKey, LPCWSTR name) {
    CPolicyItem item{name, {}};
    if (FAILED(LoadAuthPolicyGPO(hKey, name, item.value))) return;
    const wstr key = m_observer ? AuthPolicyKey(kGroupPolicyKey, name, item.value) : wstr();
    InsertFromKey(std::move(item), key.c_str());
}
