// What an access list allows an account.
#include <cstring>

#include "AccountName.h"
#include "Acl.h"
#include "EffectiveRights.h"
#include "Identity.h"
#include "RegistryCall.h"
#include "aclapi.h"

namespace {

constexpr BYTE kDeniedType = 1;
constexpr BYTE kInheritOnly = 8;

// A group's, or one of the accounts that every computer has: what its members have in common.
CIdentityRef IdentityOfGroup(const CSid& sid) {
    auto identity = std::make_shared<CIdentity>();
    identity->user = sid;
    identity->groups.push_back({EveryoneSid(), 0});
    return identity;
}

CIdentityRef IdentityOf(const CSid& sid) {
    const std::optional<uid_t> user = UserOf(sid);
    return user ? IdentityOfUser(*user, std::nullopt, 0) : IdentityOfGroup(sid);
}

DWORD WhoIs(const TRUSTEE_W& trustee, CIdentityRef& who) {
    if (trustee.MultipleTrusteeOperation != NO_MULTIPLE_TRUSTEE || !trustee.ptstrName) return ERROR_INVALID_PARAMETER;
    if (trustee.TrusteeForm == TRUSTEE_IS_SID) {
        const std::optional<CSid> sid = ReadSid(trustee.ptstrName);
        if (!sid) return ERROR_INVALID_SID;
        who = IdentityOf(*sid);
        return ERROR_SUCCESS;
    }
    if (trustee.TrusteeForm != TRUSTEE_IS_NAME) return ERROR_INVALID_PARAMETER;
    const CNamedAccount account = FindAccount(trustee.ptstrName);
    if (account.use == SidTypeUnknown) return ERROR_NONE_MAPPED;
    who = IdentityOf(account.sid);
    return ERROR_SUCCESS;
}

}  // namespace

DWORD RightsIn(const CAclReader& list, const CIdentity& who) noexcept {
    DWORD allowed = 0;
    DWORD denied = 0;
    std::size_t size;
    for (std::span<const BYTE> rest = list.Entries(); !rest.empty(); rest = rest.subspan(size)) {
        size = SizeOfAce(rest);
        const std::span<const BYTE> entry = rest.first(size);
        constexpr std::size_t kSidAt = offsetof(ACCESS_ALLOWED_ACE, SidStart);
        if (entry.size() <= kSidAt) continue;
        ACCESS_ALLOWED_ACE ace;
        std::memcpy(&ace, entry.data(), sizeof ace);
        const bool denies = ace.Header.AceType == kDeniedType;
        if ((!denies && ace.Header.AceType != ACCESS_ALLOWED_ACE_TYPE) || (ace.Header.AceFlags & kInheritOnly))
            continue;
        const std::optional<CSid> sid = ReadSid(entry.data() + kSidAt, entry.size() - kSidAt);
        if (!sid || !who.Holds(*sid)) continue;
        (denies ? denied : allowed) |= ace.Mask & ~(denies ? allowed : denied);
    }
    return allowed;
}

void WINAPI BuildTrusteeWithNameW(TRUSTEE_W* trustee, LPWSTR name) {
    *trustee = {nullptr, NO_MULTIPLE_TRUSTEE, TRUSTEE_IS_NAME, TRUSTEE_IS_UNKNOWN, name};
}

DWORD WINAPI GetEffectiveRightsFromAclW(PACL acl, TRUSTEE_W* trustee, DWORD* rights) {
    if (!acl || !trustee || !rights) return ERROR_INVALID_PARAMETER;
    return static_cast<DWORD>(RegistryCall([&]() -> DWORD {
        const CAclReader list(acl);
        if (!list.IsWhole()) return ERROR_INVALID_ACL;
        CIdentityRef who;
        if (const DWORD error = WhoIs(*trustee, who)) return error;
        *rights = RightsIn(list, *who);
        return ERROR_SUCCESS;
    }));
}
