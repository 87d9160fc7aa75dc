#include "FileAccess.h"

#include "EffectiveRights.h"
#include "File.h"
#include "win/file.h"
#include "win/security.h"

namespace {

constexpr DWORD kReadData = 1;
constexpr DWORD kWriteData = 2;

mode_t BitsOf(DWORD rights) noexcept {
    return static_cast<mode_t>((rights & kReadData ? 4 : 0) | (rights & kWriteData ? 2 : 0));
}

CIdentity Anybody() {
    CIdentity anybody;
    anybody.groups.push_back({EveryoneSid(), SE_GROUP_ENABLED});
    return anybody;
}

}  // namespace

DWORD ModeOfNewFile(const SECURITY_ATTRIBUTES* security, mode_t& mode) {
    mode = kSharedMode;
    if (!security || !security->lpSecurityDescriptor) return ERROR_SUCCESS;
    const auto& descriptor = *static_cast<const SECURITY_DESCRIPTOR*>(security->lpSecurityDescriptor);
    if (descriptor.Revision != SECURITY_DESCRIPTOR_REVISION) return ERROR_INVALID_SECURITY_DESCR;
    const CIdentityRef self = ProcessIdentity();
    if (descriptor.Owner) {
        const std::optional<CSid> owner = ReadSid(descriptor.Owner);
        if (!owner || !(*owner == self->user)) return ERROR_INVALID_OWNER;
    }
    // No list at all lets everybody; an empty one nobody.
    if (!(descriptor.Control & SE_DACL_PRESENT) || !descriptor.Dacl) return ERROR_SUCCESS;
    const CAclReader list(descriptor.Dacl);
    if (!list.IsWhole()) return ERROR_INVALID_ACL;
    const mode_t others = BitsOf(RightsIn(list, Anybody()));
    mode = static_cast<mode_t>(BitsOf(RightsIn(list, *self)) << 6 | others << 3 | others);
    return ERROR_SUCCESS;
}
