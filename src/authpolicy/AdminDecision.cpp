// Who is an administrator of this computer: a named user, or the caller of the current call.
#include <algorithm>
#include <memory>

#include "authpolicy/UserIdentity.h"
#include "authpolicy/UserService.h"
#include "module/ClientPointer.h"
#include "module/RegistryKey.h"
#include "security/AccessToken.h"
#include "security/ClientImpersonation.h"
#include "store/ServerInfo.h"

namespace {

constexpr REGSAM kRightsAccess = KEY_READ | KEY_WRITE;
constexpr LPCWSTR kUserRights = W("UserRights");

struct FreeNetBuffer {
    void operator()(BYTE* buffer) const noexcept { NetApiBufferFree(buffer); }
};

// The account of a SAM name: a name with an at sign is whole, otherwise it is what follows the first backslash.
wstr AccountOf(const wstr& samName) {
    if (samName.find(W('@')) != wstr::npos) return samName;
    const std::size_t backslash = samName.find(W('\\'));
    return backslash == wstr::npos ? wstr() : samName.substr(backslash + 1);
}

// The key of what the suite remembers of a user. This module opens it and never makes it.
CRegistryKey OpenUserKey(LPCWSTR userName, DWORD nameFormat, OVTraceNS::CTraceScope& scope) {
    wstr sid;
    RaiseIfFailed(TranslateToSID(userName, nameFormat, sid));
    scope.Print("%ls", sid.c_str());
    CRegistryKey key;
    RaiseIfRegistryFailed(
        key.Open(HKEY_LOCAL_MACHINE, (W("SOFTWARE\\Orvantis\\DB\\Users\\") + sid).c_str(), kRightsAccess));
    return key;
}

}  // namespace

STDMETHODIMP CServerInfo::IsAdmin(LPCWSTR userName, DWORD nameFormat) {
    OVTraceNS::CTraceScope scope("CServerInfo::IsAdmin", 0);
    bool isAdmin = false;
    const HRESULT hr = Guarded([&]() -> HRESULT {
        if (userName) CheckText(userName);
        COVNameResult names;
        const bool local = TranslateUserName(userName, nameFormat, kNameSam, names) == S_FALSE;
        const OV_NAME_ENTRY* const entry = names.Find(kNameSam);
        if (!entry) {
            scope.Print("Cannot get some of users names. SAM = 0x%X", 0u);
            return kNoSuchUser;
        }
        scope.Print("User is %ls", entry->name);
        isAdmin = local ? IsLocalAdmin(entry->name, scope) : IsDomainAdmin(userName, nameFormat, entry->name, scope);
        return S_OK;
    });
    scope.Result("", hr);
    NoteStep(DecisionStep::kAdministrator, userName, hr, isAdmin ? 1 : 0);
    return SUCCEEDED(hr) && isAdmin ? S_OK : S_FALSE;
}

bool CServerInfo::IsLocalAdmin(LPCWSTR samName, OVTraceNS::CTraceScope& scope) {
    scope.Print("Local user...");
    const wstr account = AccountOf(samName);
    BYTE* answer = nullptr;
    const DWORD error = NetUserGetInfo(nullptr, account.c_str(), 11, &answer);
    const std::unique_ptr<BYTE, FreeNetBuffer> buffer(answer);
    const DWORD privilege = !error && answer ? reinterpret_cast<const USER_INFO_11*>(answer)->usri11_priv : 0;
    NoteStep(DecisionStep::kLocalAccount, account.c_str(), HRESULT_FROM_WIN32(error), privilege);
    return (privilege & USER_PRIV_ADMIN) != 0;
}

// As it was found once; asked anew, and remembered, where nothing was.
bool CServerInfo::IsDomainAdmin(LPCWSTR userName, DWORD nameFormat, LPWSTR samName, OVTraceNS::CTraceScope& scope) {
    scope.Print("Domain user ...");
    DWORD isAdmin = 0;
    if (SUCCEEDED(GetAdminResultFromCache(userName, nameFormat, &isAdmin))) {
        NoteStep(DecisionStep::kRememberedAs, samName, S_OK, isAdmin);
        return isAdmin != 0;
    }
    TRUSTEE_W trustee;
    BuildTrusteeWithNameW(&trustee, samName);
    trustee.TrusteeType = TRUSTEE_IS_USER;
    DWORD rights = 0;
    const DWORD error = GetEffectiveRightsFromAclW(m_adminAcl.Dacl(), &trustee, &rights);
    RaiseIfFailed(HRESULT_FROM_WIN32(error));
    NoteStep(DecisionStep::kDomainAccount, samName, S_OK, rights);
    isAdmin = rights != 0 ? 1 : 0;
    if (isAdmin != 0) {
        scope.Print("User is Administrator.");
    } else {
        scope.Print("User is NOT Administrator.");
    }
    CacheAdminResult(userName, nameFormat, isAdmin);
    return isAdmin != 0;
}

HRESULT CServerInfo::GetAdminResultFromCache(LPCWSTR userName, DWORD nameFormat, DWORD* isAdmin) noexcept {
    OVTraceNS::CTraceScope scope("CServerInfo::GetAdminResultFromCache", 0);
    return AtBoundary(scope, [&]() -> HRESULT {
        const CRegistryKey key = OpenUserKey(userName, nameFormat, scope);
        DWORD type = REG_NONE, rights = 0, size = sizeof rights;
        RaiseIfRegistryFailed(
            RegQueryValueExW(key.Get(), kUserRights, nullptr, &type, reinterpret_cast<BYTE*>(&rights), &size));
        if (type != REG_DWORD) throw _com_error(HRESULT_FROM_WIN32(ERROR_INVALID_DATA));
        *isAdmin = rights > 0 ? 1 : 0;
        return S_OK;
    });
}

HRESULT CServerInfo::CacheAdminResult(LPCWSTR userName, DWORD nameFormat, DWORD isAdmin) noexcept {
    OVTraceNS::CTraceScope scope("CServerInfo::CacheAdminResult", 0);
    return AtBoundary(scope, [&]() -> HRESULT {
        CRegistryKey key = OpenUserKey(userName, nameFormat, scope);
        RaiseIfRegistryFailed(key.SetDword(kUserRights, isAdmin));
        return S_OK;
    });
}

bool CServerInfo::IsCallerAdministrator() {
    CAccessToken token;
    {
        const CClientImpersonation caller;
        if (const DWORD error = token.OpenThread(TOKEN_QUERY, TRUE)) {
            NoteStep(DecisionStep::kAdministrator, W(""), HRESULT_FROM_WIN32(error), 0);
            throw _com_error(HRESULT_FROM_WIN32(error));
        }
    }
    // A group that is only there to deny, or is disabled, counts as well.
    std::vector<CSid> groups;
    if (token.ReadGroups(groups)) groups.clear();
    const bool isAdmin = std::find(groups.begin(), groups.end(), AdministratorsSid()) != groups.end();
    NoteStep(DecisionStep::kAdministrator, W(""), S_OK, isAdmin ? 1 : 0);
    return isAdmin;
}
