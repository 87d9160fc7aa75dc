// Security descriptors, and the access lists of registry keys.
//
// Of a descriptor only the form with pointers is served.
#include <cstdlib>
#include <cstring>

#include "Acl.h"
#include "BoolCall.h"
#include "KeyUse.h"
#include "RegistryCall.h"
#include "aclapi.h"

namespace {

constexpr WORD kDaclProtected = 0x1000;
constexpr WORD kSelfRelative = 0x8000;

// What both calls must be given. Owner, group and audit list are asked for by bits that are not served.
DWORD CheckTarget(SE_OBJECT_TYPE type, DWORD what) noexcept {
    constexpr DWORD kServed = DACL_SECURITY_INFORMATION | PROTECTED_DACL_SECURITY_INFORMATION;
    const bool isServed = type == SE_REGISTRY_KEY && (what & DACL_SECURITY_INFORMATION) && !(what & ~kServed);
    return isServed ? ERROR_SUCCESS : ERROR_INVALID_PARAMETER;
}

DWORD ReadList(HKEY key, std::vector<BYTE>& list) {
    const CKeyUse use(key);
    if (use.Error()) return use.Error();
    if (!use.Allows(READ_CONTROL)) return ERROR_ACCESS_DENIED;
    return use.Hive().Read([&](CHiveView& view) -> DWORD {
        CKey* found;
        if (const DWORD missing = use.Find(view, found)) return missing;
        std::span<const BYTE> stored;
        if (const DWORD error = view.FindSecurity(*found, stored)) return error;
        list.assign(stored.begin(), stored.end());
        return ERROR_SUCCESS;
    });
}

// A descriptor with its list behind it, in one block. Null without memory.
SECURITY_DESCRIPTOR* NewDescriptor(std::span<const BYTE> list) noexcept {
    void* const block = std::malloc(sizeof(SECURITY_DESCRIPTOR) + list.size());
    if (!block) return nullptr;
    auto* const descriptor = static_cast<SECURITY_DESCRIPTOR*>(block);
    InitializeSecurityDescriptor(descriptor, SECURITY_DESCRIPTOR_REVISION);
    descriptor->Control = SE_DACL_PRESENT | kDaclProtected;
    if (list.empty()) return descriptor;
    descriptor->Dacl = reinterpret_cast<PACL>(descriptor + 1);
    std::memcpy(descriptor->Dacl, list.data(), list.size());
    return descriptor;
}

DWORD GetList(HKEY key, PACL* dacl, PSECURITY_DESCRIPTOR* descriptor) {
    std::vector<BYTE> list;
    if (const DWORD error = ReadList(key, list)) return error;
    if (!list.empty()) {
        const CAclReader check(list.data(), list.size());
        if (!check.IsWhole() || check.Head().AclSize != list.size()) return ERROR_INVALID_ACL;
    }
    SECURITY_DESCRIPTOR* const made = NewDescriptor(list);
    if (!made) return ERROR_NOT_ENOUGH_MEMORY;
    if (dacl) *dacl = made->Dacl;
    *descriptor = made;
    return ERROR_SUCCESS;
}

// Runs a change on a descriptor of the served form.
template <class Change>
BOOL ChangeDescriptor(PSECURITY_DESCRIPTOR descriptor, Change change) noexcept {
    return Succeeds([&]() -> DWORD {
        if (!descriptor) return ERROR_INVALID_PARAMETER;
        auto& to = *static_cast<SECURITY_DESCRIPTOR*>(descriptor);
        if (to.Revision != SECURITY_DESCRIPTOR_REVISION) return ERROR_UNKNOWN_REVISION;
        if (to.Control & kSelfRelative) return ERROR_INVALID_SECURITY_DESCR;
        change(to);
        return ERROR_SUCCESS;
    });
}

void SetFlag(SECURITY_DESCRIPTOR& descriptor, WORD flag, bool on) noexcept {
    descriptor.Control = static_cast<WORD>(on ? descriptor.Control | flag : descriptor.Control & ~flag);
}

}  // namespace

BOOL WINAPI InitializeSecurityDescriptor(PSECURITY_DESCRIPTOR descriptor, DWORD revision) {
    return Succeeds([&]() -> DWORD {
        if (!descriptor) return ERROR_INVALID_PARAMETER;
        if (revision != SECURITY_DESCRIPTOR_REVISION) return ERROR_UNKNOWN_REVISION;
        *static_cast<SECURITY_DESCRIPTOR*>(descriptor) = {
            SECURITY_DESCRIPTOR_REVISION, 0, 0, nullptr, nullptr, nullptr, nullptr};
        return ERROR_SUCCESS;
    });
}

BOOL WINAPI SetSecurityDescriptorOwner(PSECURITY_DESCRIPTOR descriptor, PSID owner, BOOL defaulted) {
    if (owner && !ReadSid(owner)) {
        SetLastError(ERROR_INVALID_SID);
        return FALSE;
    }
    return ChangeDescriptor(descriptor, [&](SECURITY_DESCRIPTOR& to) {
        to.Owner = owner;
        SetFlag(to, SE_OWNER_DEFAULTED, defaulted);
    });
}

BOOL WINAPI SetSecurityDescriptorGroup(PSECURITY_DESCRIPTOR descriptor, PSID group, BOOL defaulted) {
    if (group && !ReadSid(group)) {
        SetLastError(ERROR_INVALID_SID);
        return FALSE;
    }
    return ChangeDescriptor(descriptor, [&](SECURITY_DESCRIPTOR& to) {
        to.Group = group;
        SetFlag(to, SE_GROUP_DEFAULTED, defaulted);
    });
}

BOOL WINAPI SetSecurityDescriptorDacl(PSECURITY_DESCRIPTOR descriptor, BOOL present, PACL dacl, BOOL defaulted) {
    return ChangeDescriptor(descriptor, [&](SECURITY_DESCRIPTOR& to) {
        to.Dacl = present ? dacl : nullptr;
        SetFlag(to, SE_DACL_PRESENT, present);
        SetFlag(to, SE_DACL_DEFAULTED, present && defaulted);
    });
}

DWORD WINAPI SetSecurityInfo(HANDLE object, SE_OBJECT_TYPE type, DWORD what, PSID, PSID, PACL dacl, PACL) {
    if (const DWORD error = CheckTarget(type, what)) return error;
    return static_cast<DWORD>(RegistryCall([&]() -> DWORD {
        std::vector<BYTE> list;
        if (dacl) {
            const CAclReader check(dacl);
            if (!check.IsWhole()) return ERROR_INVALID_ACL;
            // What lies behind the last entry may be anything, and is nobody's business.
            list.resize(check.Head().AclSize);
            std::memcpy(list.data(), dacl, check.Used());
        }
        CKeyUse use(static_cast<HKEY>(object));
        if (use.Error()) return use.Error();
        if (!use.Allows(WRITE_DAC)) return ERROR_ACCESS_DENIED;
        CPutSecurity change(use.ChangeStart(0), list);
        return use.Write(change);
    }));
}

DWORD WINAPI GetSecurityInfo(HANDLE object, SE_OBJECT_TYPE type, DWORD what, PSID*, PSID*, PACL* dacl, PACL*,
                             PSECURITY_DESCRIPTOR* descriptor) {
    if (const DWORD error = CheckTarget(type, what)) return error;
    if (!descriptor) return ERROR_INVALID_PARAMETER;  // whoever frees the list frees this
    if (dacl) *dacl = nullptr;
    *descriptor = nullptr;
    return static_cast<DWORD>(RegistryCall([&] { return GetList(static_cast<HKEY>(object), dacl, descriptor); }));
}
