// Opening, making and deleting keys.
#include "win/registry.h"

#include "Hives.h"
#include "KeyUse.h"
#include "RegistryCall.h"
#include "UserSid.h"

namespace {

constexpr REGSAM kKnownAccess = kAllAccess | MAXIMUM_ALLOWED | KEY_WOW64_RES;

// What a handle on a key of the hive is granted.
DWORD Grant(const CHive& hive, REGSAM access, REGSAM& granted) noexcept {
    granted = access & kAllAccess;
    if (access & MAXIMUM_ALLOWED) {
        granted |= hive.IsWritable() ? kAllAccess : static_cast<REGSAM>(KEY_READ);
    } else if ((access & kWriteAccess) && !hive.IsWritable()) {
        return ERROR_ACCESS_DENIED;
    }
    return ERROR_SUCCESS;
}

CKeySlot& NewHandle(CHive& hive, std::uint32_t incarnation, std::int64_t id, REGSAM granted, const CPathStart& start,
                    HKEY& result) {
    CKeySlot& slot = hive.Slots().Take();
    slot.incarnation = incarnation;
    slot.id = id;
    slot.access = granted;
    slot.start = start;
    result = CKeySlots::Handle(slot);
    return slot;
}

DWORD Open(const CKeyUse& use, LPCWSTR path, REGSAM access, HKEY& result) {
    const CPathStart start = use.Start(access);
    CHive& hive = use.Hive();
    CKey* key = nullptr;
    std::uint64_t view = 0;
    Spot end = Spot::Elsewhere;
    const auto find = [&](CHiveView& from) -> DWORD {
        CKeyPath components(start, path);
        if (const DWORD error = use.Find(from, components, key)) return error;
        view = from.Number();
        end = components.End();
        return ERROR_SUCCESS;
    };
    if (const DWORD error = hive.Read(find)) return error;
    REGSAM granted;
    if (const DWORD error = Grant(hive, access, granted)) return error;
    CKeySlot& slot = NewHandle(hive, hive.Incarnation(), key->id, granted, {end, start.is32BitView, false}, result);
    slot.key = key;
    slot.view = view;
    return ERROR_SUCCESS;
}

DWORD Create(CKeyUse& use, LPCWSTR path, bool isVolatile, REGSAM access, HKEY& result, DWORD& disposition) {
    bool isMissing = false;
    if (use.IsUsers()) {
        const DWORD error = use.EnterUserHive(path);
        isMissing = error == ERROR_FILE_NOT_FOUND && !use.IsUsers();
        if (error && !isMissing) return error == ERROR_FILE_NOT_FOUND ? ERROR_INVALID_PARAMETER : error;
    }
    disposition = REG_OPENED_EXISTING_KEY;
    if (!isMissing) {
        const DWORD opened = Open(use, path, access, result);
        if (opened != ERROR_FILE_NOT_FOUND) return opened;
    }
    const CChangeStart start = use.ChangeStart(access);
    CCreateKey change(start, path, isVolatile);
    if (const DWORD error = use.Write(change)) return error;
    if (isMissing || change.IsNew()) disposition = REG_CREATED_NEW_KEY;
    use.Lock();
    REGSAM granted;
    if (const DWORD error = Grant(use.Hive(), access, granted)) return error;
    NewHandle(use.Hive(), use.Incarnation(), change.Id(), granted, {change.End(), start.path.is32BitView, false},
              result);
    return ERROR_SUCCESS;
}

DWORD Delete(HKEY key, LPCWSTR path, REGSAM view) {
    CKeyUse use(key);
    if (use.Error()) return use.Error();
    if (use.IsUsers()) {
        if (const DWORD error = use.EnterUserHive(path)) return error;
    }
    CRemoveKey change(use.ChangeStart(view), path);
    return use.Write(change);
}

}  // namespace

LSTATUS WINAPI RegOpenKeyExW(HKEY key, LPCWSTR path, DWORD options, REGSAM access, PHKEY result) {
    if (!result) return ERROR_INVALID_PARAMETER;
    *result = nullptr;
    if (options > REG_OPTION_VOLATILE || (access & ~kKnownAccess)) return ERROR_INVALID_PARAMETER;
    return RegistryCall([&]() -> DWORD {
        CKeyUse use(key);
        if (use.Error()) return use.Error();
        if (use.IsUsers()) {
            if (const DWORD error = use.EnterUserHive(path)) return error;
        }
        return Open(use, path, access, *result);
    });
}

LSTATUS WINAPI RegOpenCurrentUser(REGSAM access, PHKEY result) {
    if (!result) return ERROR_INVALID_PARAMETER;
    *result = nullptr;
    if (access & ~kKnownAccess) return ERROR_INVALID_PARAMETER;
    return RegistryCall([&]() -> DWORD {
        const std::string user = EffectiveUserSid();
        const CKeyUse use(CHives::Get().User(user), kAllAccess);
        // A process always has a hive of its own, though it may be empty; others have one when it exists.
        const DWORD missing = use.HasHive();
        if (missing && user != ProcessUserSid()) return missing;
        return Open(use, nullptr, access, *result);
    });
}

LSTATUS WINAPI RegCreateKeyExW(HKEY key, LPCWSTR path, DWORD reserved, LPWSTR keyClass, DWORD options, REGSAM access,
                               const LPSECURITY_ATTRIBUTES security, PHKEY result, LPDWORD disposition) {
    if (!result) return ERROR_INVALID_PARAMETER;
    *result = nullptr;
    if (reserved || keyClass || security || options > REG_OPTION_VOLATILE || (access & ~kKnownAccess)) {
        return ERROR_INVALID_PARAMETER;
    }
    return RegistryCall([&]() -> DWORD {
        CKeyUse use(key);
        if (use.Error()) return use.Error();
        DWORD made = 0;
        const DWORD error = Create(use, path, options == REG_OPTION_VOLATILE, access, *result, made);
        if (!error && disposition) *disposition = made;
        return error;
    });
}

LSTATUS WINAPI RegCloseKey(HKEY key) {
    return RegistryCall([key] { return CKeyUse::Close(key); });
}

LSTATUS WINAPI RegDeleteKeyW(HKEY key, LPCWSTR path) {
    return RegDeleteKeyExW(key, path, 0, 0);
}

LSTATUS WINAPI RegDeleteKeyExW(HKEY key, LPCWSTR path, REGSAM view, DWORD reserved) {
    if (!path || reserved || (view & ~static_cast<REGSAM>(KEY_WOW64_RES))) return ERROR_INVALID_PARAMETER;
    return RegistryCall([&] { return Delete(key, path, view); });
}
