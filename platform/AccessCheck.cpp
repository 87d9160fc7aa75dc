// Whether a token has rights on an object.
#include <cstring>

#include "BoolCall.h"
#include "EffectiveRights.h"
#include "TokenObject.h"
#include "win/security.h"

namespace {

// An object without a label of its own is of medium integrity, and whoever stands below it may not write up: what only
// writing needs is refused.
DWORD WithoutWritingUp(DWORD rights, const CToken& token, const GENERIC_MAPPING& mapping) noexcept {
    if (token.Integrity() >= kMediumIntegrity) return rights;
    return rights & ~(mapping.GenericWrite & ~(mapping.GenericRead | mapping.GenericExecute));
}

// What the descriptor grants to the token of what is wanted.
DWORD GrantedBy(const SECURITY_DESCRIPTOR& descriptor, const CToken& token, DWORD wanted,
                const GENERIC_MAPPING& mapping, DWORD& granted) {
    DWORD rights = MAXDWORD;  // without a list everybody may do everything
    if ((descriptor.Control & SE_DACL_PRESENT) && descriptor.Dacl) {
        const CAclReader list(descriptor.Dacl);
        if (!list.IsWhole()) return ERROR_INVALID_ACL;
        rights = RightsIn(list, token.Who());
    }
    granted = WithoutWritingUp(rights, token, mapping) & wanted;
    return ERROR_SUCCESS;
}

}  // namespace

void WINAPI MapGenericMask(DWORD* mask, GENERIC_MAPPING* mapping) {
    constexpr DWORD kGeneric = GENERIC_READ | GENERIC_WRITE | GENERIC_EXECUTE | GENERIC_ALL;
    const DWORD asked = *mask;
    if (asked & GENERIC_READ) *mask |= mapping->GenericRead;
    if (asked & GENERIC_WRITE) *mask |= mapping->GenericWrite;
    if (asked & GENERIC_EXECUTE) *mask |= mapping->GenericExecute;
    if (asked & GENERIC_ALL) *mask |= mapping->GenericAll;
    *mask &= ~kGeneric;
}

BOOL WINAPI AccessCheckByTypeResultList(PSECURITY_DESCRIPTOR security, PSID self, HANDLE token, DWORD wanted,
                                        OBJECT_TYPE_LIST* types, DWORD typeCount, GENERIC_MAPPING* mapping,
                                        PRIVILEGE_SET* privileges, DWORD* privilegesSize, DWORD* granted,
                                        DWORD* status) {
    return Succeeds([&]() -> DWORD {
        if (!security || self || !types || typeCount != 1 || types[0].Level != 0 || !mapping || !granted || !status) {
            return ERROR_INVALID_PARAMETER;
        }
        if (!privileges || !privilegesSize || *privilegesSize < sizeof(PRIVILEGE_SET)) {
            return ERROR_INSUFFICIENT_BUFFER;
        }
        const std::shared_ptr<CToken> object = ObjectOf<CToken>(token);
        if (!object) return ERROR_INVALID_HANDLE;
        if (!object->Allows(TOKEN_QUERY)) return ERROR_ACCESS_DENIED;
        if (!object->Level()) return ERROR_NO_IMPERSONATION_TOKEN;
        if (*object->Level() < SecurityIdentification) return ERROR_BAD_IMPERSONATION_LEVEL;
        const auto& descriptor = *static_cast<const SECURITY_DESCRIPTOR*>(security);
        if (descriptor.Revision != SECURITY_DESCRIPTOR_REVISION) return ERROR_UNKNOWN_REVISION;
        if (!descriptor.Owner || !descriptor.Group) return ERROR_INVALID_SECURITY_DESCR;
        if (wanted & (GENERIC_READ | GENERIC_WRITE | GENERIC_EXECUTE | GENERIC_ALL)) return ERROR_GENERIC_NOT_MAPPED;
        DWORD rights = 0;
        if (const DWORD error = GrantedBy(descriptor, *object, wanted, *mapping, rights)) return error;
        privileges->PrivilegeCount = 0;
        *granted = rights == wanted ? rights : 0;
        *status = rights == wanted ? ERROR_SUCCESS : ERROR_ACCESS_DENIED;
        return ERROR_SUCCESS;
    });
}
