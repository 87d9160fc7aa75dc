#include "security/CoreKey.h"

#include <algorithm>

#include "module/Failure.h"
#include "security/AccessToken.h"
#include "security/SecurityDescriptor.h"

namespace {

constexpr DWORD kInherited = OBJECT_INHERIT_ACE | CONTAINER_INHERIT_ACE;

bool MaySecureKeys() {
    // Of the process itself, whomever this thread acts for; and it goes on doing so.
    CAccessToken token;
    CSid user;
    if (token.OpenProcess(TOKEN_QUERY) || token.ReadUser(user)) return false;
    if (user == LocalSystemSid()) return true;
    std::vector<CSid> groups;
    if (token.ReadGroups(groups)) return false;
    return std::find(groups.begin(), groups.end(), AdministratorsSid()) != groups.end();
}

}  // namespace

HRESULT SetCoreKeySecurity(const CRegistryKey& key, DWORD usersMask) noexcept {
    return Guarded([&]() -> HRESULT {
        if (!MaySecureKeys()) return S_FALSE;
        CSecurityDescriptor security;
        RaiseIfFailed(security.AddAllowedAce(LocalSystemSid(), KEY_ALL_ACCESS, kInherited));
        RaiseIfFailed(security.AddAllowedAce(AdministratorsSid(), KEY_ALL_ACCESS, kInherited));
        if (usersMask != 0) RaiseIfFailed(security.AddAllowedAce(UsersSid(), usersMask, kInherited));
        return HRESULT_FROM_WIN32(SetSecurityInfo(key.Get(), SE_REGISTRY_KEY,
                                                  DACL_SECURITY_INFORMATION | PROTECTED_DACL_SECURITY_INFORMATION,
                                                  nullptr, nullptr, security.Dacl(), nullptr));
    });
}

CRegistryKey OpenCoreKey(REGSAM access) {
    CRegistryKey key;
    if (key.Open(HKEY_LOCAL_MACHINE, kCoreKey, access) == ERROR_SUCCESS) return key;
    RaiseIfRegistryFailed(
        key.Create(HKEY_LOCAL_MACHINE, kCoreKey, nullptr, REG_OPTION_NON_VOLATILE, MAXIMUM_ALLOWED, nullptr, nullptr));
    SetCoreKeySecurity(key, KEY_READ);  // a key that cannot be secured stays in use
    return key;
}
