// Walking keys and values.
#include <algorithm>
#include <cstring>

#include "Hives.h"
#include "KeyUse.h"
#include "RegistryCall.h"
#include "ValueData.h"
#include "win/registry.h"

namespace {

// `length` in characters: the room with the NUL on entry, the name without it on return. ERROR_MORE_DATA (234) leaves
// both as they are.
template <class Unit>
DWORD CopyName(std::basic_string_view<Unit> from, LPWSTR name, LPDWORD length) noexcept {
    if (*length <= from.size()) return ERROR_MORE_DATA;
    *std::copy(from.begin(), from.end(), name) = 0;
    *length = static_cast<DWORD>(from.size());
    return ERROR_SUCCESS;
}

struct CCounts {
    DWORD keys = 0;
    DWORD longestKey = 0;
    DWORD values = 0;
    DWORD longestName = 0;
    DWORD largestValue = 0;
};

DWORD CountUsers(CCounts& counts) {
    std::vector<std::string> sids;
    if (const DWORD error = CHives::Get().List(sids)) return error;
    counts.keys = static_cast<DWORD>(sids.size());
    for (const std::string& sid : sids) counts.longestKey = std::max(counts.longestKey, static_cast<DWORD>(sid.size()));
    return ERROR_SUCCESS;
}

DWORD Count(const CKeyUse& use, CCounts& counts) {
    CKey* key = nullptr;
    const DWORD error = use.Hive().Read([&](CHiveView& view) -> DWORD {
        if (const DWORD missing = use.Find(view, key)) return missing;
        if (const DWORD missing = view.NeedKeys(*key)) return missing;
        return view.NeedValues(*key);
    });
    if (error) return error;
    counts.keys = static_cast<DWORD>(key->keys.Size());
    for (const CKey* below : key->keys) counts.longestKey = std::max(counts.longestKey, below->length);
    counts.values = static_cast<DWORD>(key->values.Size());
    for (const CValue* value : key->values) {
        counts.longestName = std::max(counts.longestName, value->length);
        counts.largestValue = std::max(counts.largestValue, value->size);
    }
    return ERROR_SUCCESS;
}

DWORD EnumUser(DWORD index, LPWSTR name, LPDWORD length) {
    std::vector<std::string> sids;
    if (const DWORD error = CHives::Get().List(sids)) return error;
    if (index >= sids.size()) return ERROR_NO_MORE_ITEMS;
    return CopyName(std::string_view(sids[index]), name, length);
}

// The root of the classes may not exist, but reads as a key like the other predefined ones.
DWORD EmptyIfPredefined(DWORD error, HKEY key) noexcept {
    return error == ERROR_FILE_NOT_FOUND && key == HKEY_CLASSES_ROOT ? static_cast<DWORD>(ERROR_NO_MORE_ITEMS) : error;
}

DWORD EnumKey(HKEY key, DWORD index, LPWSTR name, LPDWORD length) {
    CKeyUse use(key);
    if (use.Error()) return use.Error();
    if (!use.Allows(KEY_ENUMERATE_SUB_KEYS)) return ERROR_ACCESS_DENIED;
    if (use.IsUsers()) {
        use.Unlock();
        return EnumUser(index, name, length);
    }
    CKey* found = nullptr;
    const DWORD error = use.Hive().Read([&](CHiveView& view) -> DWORD {
        if (const DWORD missing = use.Find(view, found)) return missing;
        return view.NeedKeys(*found);
    });
    if (error) return EmptyIfPredefined(error, key);
    if (index >= found->keys.Size()) return ERROR_NO_MORE_ITEMS;
    return CopyName(found->keys.At(index)->Name(), name, length);
}

DWORD EnumValue(HKEY key, DWORD index, LPWSTR name, LPDWORD length, LPDWORD type, LPBYTE data, LPDWORD size) {
    const CKeyUse use(key);
    if (use.Error()) return use.Error();
    if (!use.Allows(KEY_QUERY_VALUE)) return ERROR_ACCESS_DENIED;
    CKey* found = nullptr;
    const DWORD error = use.Hive().Read([&](CHiveView& view) -> DWORD {
        if (const DWORD missing = use.Find(view, found)) return missing;
        return view.NeedValues(*found);
    });
    if (error) return EmptyIfPredefined(error, key);
    if (index >= found->values.Size()) return ERROR_NO_MORE_ITEMS;
    const CValue& value = *found->values.At(index);
    if (type) *type = value.type;
    if (const DWORD tooShort = CopyName(value.Name(), name, length)) {
        if (size) *size = value.size;
        return tooShort;
    }
    return CopyValueData(value, data, size);
}

void Tell(LPDWORD where, DWORD what) noexcept {
    if (where) *where = what;
}

}  // namespace

LSTATUS WINAPI RegEnumKeyExW(HKEY key, DWORD index, LPWSTR name, LPDWORD length, LPDWORD reserved, LPWSTR keyClass,
                             LPDWORD classLength, PFILETIME lastWrite) {
    if (!name || !length || reserved || keyClass || classLength || lastWrite) return ERROR_INVALID_PARAMETER;
    return RegistryCall([&] { return EnumKey(key, index, name, length); });
}

LSTATUS WINAPI RegEnumValueW(HKEY key, DWORD index, LPWSTR name, LPDWORD length, LPDWORD reserved, LPDWORD type,
                             LPBYTE data, LPDWORD size) {
    if (!name || !length || reserved || (data && !size)) return ERROR_INVALID_PARAMETER;
    return RegistryCall([&] { return EnumValue(key, index, name, length, type, data, size); });
}

LSTATUS WINAPI RegQueryInfoKeyW(HKEY key, LPWSTR keyClass, LPDWORD classLength, LPDWORD reserved, LPDWORD subKeys,
                                LPDWORD maxSubKeyLength, LPDWORD maxClassLength, LPDWORD values,
                                LPDWORD maxValueNameLength, LPDWORD maxValueLength, LPDWORD securityDescriptorSize,
                                PFILETIME lastWrite) {
    if (reserved || keyClass || classLength || securityDescriptorSize || lastWrite) return ERROR_INVALID_PARAMETER;
    return RegistryCall([&]() -> DWORD {
        CCounts counts;
        CKeyUse use(key);
        if (use.Error()) return use.Error();
        if (!use.Allows(KEY_QUERY_VALUE)) return ERROR_ACCESS_DENIED;
        DWORD error;
        if (use.IsUsers()) {
            use.Unlock();
            error = CountUsers(counts);
        } else {
            error = EmptyIfPredefined(Count(use, counts), key);
        }
        if (error && error != ERROR_NO_MORE_ITEMS) return error;
        Tell(subKeys, counts.keys);
        Tell(maxSubKeyLength, counts.longestKey);
        Tell(maxClassLength, 0);
        Tell(values, counts.values);
        Tell(maxValueNameLength, counts.longestName);
        Tell(maxValueLength, counts.largestValue);
        return ERROR_SUCCESS;
    });
}
