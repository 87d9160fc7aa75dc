#include "svinfo/LocalItems.h"

#include <set>

#include "diagnostics/TraceScope.h"
#include "sources/AuthPolicy.h"
#include "store/PolicyKey.h"
#include "store/PolicyNames.h"
#include "svinfo/RegTree.h"

namespace {

constexpr wstr_view kBitPolicies = W("AuthenticationPolicies");

using CNames = std::set<wstr, CNameLess>;

// "A\B" of "A\B\C" under "A"; nothing when `path` is not below `parent`.
wstr_view Below(wstr_view path, wstr_view parent) noexcept {
    const bool below = path.size() > parent.size() && path[parent.size()] == W('\\') &&
                       CompareNames(path.substr(0, parent.size()), parent) == 0;
    return below ? path.substr(parent.size() + 1) : wstr_view();
}

// The item that a value is, or is a part of. `path` is that of its key below the level's.
wstr ItemOf(wstr_view path, const CRegEntry& entry) {
    const wstr policy(Below(path, kBitPolicies));
    if (!policy.empty() && IsAuthPolicyName(policy.c_str())) return policy;
    const bool list = CompareNames(path, AppsPolicyPrefix) == 0 && entry.type == REG_MULTI_SZ;
    if (path.empty() || (list && IsAuthPolicyName(entry.name.c_str()))) return entry.name;
    return wstr(path) + W('\\') + entry.name;
}

void AddItems(CNames& names, wstr_view level, wstr_view except) {
    const CRegPath base = ParseRegPath(W("HKEY_LOCAL_MACHINE\\") + wstr(level), RootNames::Long);
    WalkRegTree(base, [&](CRegBlock& block) {
        const wstr_view path = Below(block.key.below, level);
        if (!except.empty() && CompareNames(block.key.below, except) == 0) return RegWalk::PassOver;
        for (const CRegEntry& entry : block.entries) names.insert(ItemOf(path, entry));
        return RegWalk::GoOn;
    });
}

LocalHolding PolicyHolding(LocalLevel level, const wstr& name) {
    LocalHolding holding{level, LocalLevelKey(level), true, false, false, {}};
    holding.found =
        SUCCEEDED(ReadAuthPolicyFromKey(HKEY_LOCAL_MACHINE, LocalLevelKey(level), name.c_str(), holding.value));
    if (holding.found) holding.key = AuthPolicyKey(LocalLevelKey(level), name.c_str(), holding.value);
    return holding;
}

LocalHolding PlainHolding(LocalLevel level, const wstr& name) {
    OVTraceNS::CTraceScope scope("svinfo", 0);
    LocalHolding holding{level, LocalLevelKey(level), false, false, false, {}};
    const std::size_t last = name.rfind(W('\\'));
    if (last != wstr::npos) holding.key.append(1, W('\\')).append(name, 0, last);
    CRegistryKey key;
    LPCWSTR leaf = name.c_str();
    if (OpenPolicyKey(key, HKEY_LOCAL_MACHINE, LocalLevelKey(level), leaf, true)) return holding;
    OV_SERVER_VALUE read = {};
    holding.found = SUCCEEDED(ReadPlainValue(key, leaf, name.c_str(), read, scope));
    if (holding.found) {
        holding.value.Assign(read);
        OvFreeServerValue(read);
    } else {
        holding.damaged = RegQueryValueExW(key.Get(), leaf, nullptr, nullptr, nullptr, nullptr) == ERROR_SUCCESS;
    }
    return holding;
}

}  // namespace

std::vector<wstr> LocalItemNames(LocalLevel level) {
    CNames names;
    if (level != LocalLevel::Default) AddItems(names, kLocalPolicyKey, kDefaultPolicyKey);
    if (level != LocalLevel::Local) AddItems(names, kDefaultPolicyKey, {});
    return {names.begin(), names.end()};
}

LPCWSTR LocalLevelKey(LocalLevel level) noexcept {
    return level == LocalLevel::Default ? kDefaultPolicyKey : kLocalPolicyKey;
}

std::vector<LocalHolding> LocalHoldingsOf(const wstr& name) {
    std::vector<LocalHolding> holdings;
    if (IsAuthPolicyName(name.c_str())) {
        for (const LocalLevel level : {LocalLevel::Local, LocalLevel::Default})
            holdings.push_back(PolicyHolding(level, name));
    }
    for (const LocalLevel level : {LocalLevel::Local, LocalLevel::Default})
        holdings.push_back(PlainHolding(level, name));
    return holdings;
}

std::optional<CPolicyValue> ReadLocalItem(LocalLevel level, const wstr& name) {
    for (LocalHolding& holding : LocalHoldingsOf(name)) {
        if (holding.level == level && holding.found) return std::move(holding.value);
    }
    return std::nullopt;
}

bool CNameLess::operator()(const wstr& a, const wstr& b) const noexcept {
    return CompareNames(wstr_view(a), wstr_view(b)) < 0;
}
