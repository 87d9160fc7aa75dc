// Reading and writing values.
#include <cstring>
#include <string>

#include "KeyUse.h"
#include "RegistryCall.h"
#include "ValueData.h"
#include "win/registry.h"

namespace {

// A null name is the empty one: the key's default value.
std::u16string_view NameOf(LPCWSTR name) noexcept {
    return name ? NameAt(name) : std::u16string_view();
}

DWORD Query(HKEY key, LPCWSTR name, LPDWORD type, LPBYTE data, LPDWORD size) {
    const CSoughtName sought(NameOf(name));
    CKeyUse use(key);
    if (use.Error()) return use.Error();
    // Who asks for the size alone and gets none is told 0.
    const auto refuse = [&](DWORD error) {
        if (!data && size) *size = 0;
        return error;
    };
    if (!use.Allows(KEY_QUERY_VALUE)) return refuse(ERROR_ACCESS_DENIED);
    CValue* value = nullptr;
    const DWORD error = use.Hive().Read([&](CHiveView& view) -> DWORD {
        CKey* found;
        if (const DWORD missing = use.Find(view, found)) return missing;
        return view.FindValue(*found, sought, value);
    });
    if (error) return refuse(error);
    if (type) *type = value->type;
    return CopyValueData(*value, data, size);
}

}  // namespace

LSTATUS WINAPI RegQueryValueExW(HKEY key, LPCWSTR name, LPDWORD reserved, LPDWORD type, LPBYTE data, LPDWORD size) {
    if (reserved || (data && !size)) return ERROR_INVALID_PARAMETER;
    return RegistryCall([&] { return Query(key, name, type, data, size); });
}

LSTATUS WINAPI RegSetValueExW(HKEY key, LPCWSTR name, DWORD reserved, DWORD type, const BYTE* data, DWORD size) {
    if (reserved) return ERROR_INVALID_PARAMETER;
    if (size && !data) return ERROR_NOACCESS;
    return RegistryCall([&]() -> DWORD {
        CKeyUse use(key);
        if (use.Error()) return use.Error();
        if (NameOf(name).size() > kMaxValueName) return ERROR_INVALID_PARAMETER;
        if (!use.Allows(KEY_SET_VALUE)) return ERROR_ACCESS_DENIED;
        CPutValue change(use.ChangeStart(0), NameOf(name), type, {data, size});
        return use.Write(change);
    });
}

LSTATUS WINAPI RegDeleteValueW(HKEY key, LPCWSTR name) {
    return RegistryCall([&]() -> DWORD {
        CKeyUse use(key);
        if (use.Error()) return use.Error();
        if (!use.Allows(KEY_SET_VALUE)) return ERROR_ACCESS_DENIED;
        CRemoveValue change(use.ChangeStart(0), NameOf(name));
        return use.Write(change);
    });
}
