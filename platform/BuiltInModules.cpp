#include "BuiltInModules.h"

#include <algorithm>
#include <atomic>
#include <span>

#include "Home.h"
#include "userenv.h"
#include "win/registry.h"
#include "win/security.h"
#include "winternl.h"
#include "winver.h"

namespace {

struct Export {
    template <class Function>
    Export(const char* exportName, Function* function) noexcept
        : name(exportName), address(reinterpret_cast<FARPROC>(reinterpret_cast<void*>(function))) {}

    std::string_view name;
    FARPROC address;
    std::atomic<bool> hidden{false};
};

struct Module {
    std::u16string_view name;
    std::span<Export> exports;
    std::atomic<bool> hidden{false};
};

#define OV_EXPORT(function) \
    { #function, &function }

Export ntdllExports[] = {
    OV_EXPORT(RtlCompareUnicodeString),
    OV_EXPORT(RtlUpcaseUnicodeString),
};

Export advapi32Exports[] = {
    OV_EXPORT(RegCloseKey),
    OV_EXPORT(RegCreateKeyExW),
    OV_EXPORT(RegDeleteKeyExW),
    OV_EXPORT(RegDeleteKeyW),
    OV_EXPORT(RegDeleteValueW),
    OV_EXPORT(RegEnumKeyExW),
    OV_EXPORT(RegEnumValueW),
    OV_EXPORT(RegOpenCurrentUser),
    OV_EXPORT(RegOpenKeyExW),
    OV_EXPORT(RegQueryInfoKeyW),
    OV_EXPORT(RegQueryValueExW),
    OV_EXPORT(RegSetValueExW),
    OV_EXPORT(AccessCheckByTypeResultList),
};

Export userenvExports[] = {
    OV_EXPORT(RegisterGPNotification),     OV_EXPORT(UnregisterGPNotification), OV_EXPORT(EnterCriticalPolicySection),
    OV_EXPORT(LeaveCriticalPolicySection), OV_EXPORT(RefreshPolicyEx),
};

Export versionExports[] = {
    OV_EXPORT(GetFileVersionInfoA),
    OV_EXPORT(GetFileVersionInfoSizeA),
    OV_EXPORT(VerQueryValueA),
};

#undef OV_EXPORT

Module modules[] = {
    {u"ntdll.dll", ntdllExports},
    {u"Advapi32.dll", advapi32Exports},
    {u"Userenv.dll", userenvExports},
    {u"Version.dll", versionExports},
};

template <class Text>
bool SameName(Text a, std::u16string_view b) noexcept {
    const auto lower = [](char32_t unit) { return unit >= U'A' && unit <= U'Z' ? unit + 32 : unit; };
    return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                      [lower](auto x, char16_t y) { return lower(static_cast<char32_t>(x)) == lower(y); });
}

template <class Text>
Module* ModuleNamed(Text name) noexcept {
    for (Module& module : modules) {
        const std::u16string_view stem = module.name.substr(0, module.name.rfind(u'.'));
        if (SameName(name, module.name) || SameName(name, stem)) return &module;
    }
    return nullptr;
}

Export* ExportNamed(Module& module, std::string_view name) noexcept {
    const auto found = std::find_if(module.exports.begin(), module.exports.end(),
                                    [name](const Export& item) { return item.name == name; });
    return found == module.exports.end() ? nullptr : &*found;
}

Module* ModuleOf(HMODULE handle) noexcept {
    for (Module& module : modules) {
        if (reinterpret_cast<HMODULE>(&module) == handle) return &module;
    }
    return nullptr;
}

}  // namespace

HMODULE FindBuiltInModule(std::u16string_view name) noexcept {
    Module* module = ModuleNamed(name);
    return module && !module->hidden ? reinterpret_cast<HMODULE>(module) : nullptr;
}

bool IsBuiltInModule(HMODULE module) noexcept {
    return ModuleOf(module) != nullptr;
}

std::u16string_view BuiltInModuleName(HMODULE module) noexcept {
    return ModuleOf(module)->name;
}

FARPROC FindBuiltInExport(HMODULE module, std::string_view name) noexcept {
    const Export* found = ExportNamed(*ModuleOf(module), name);
    return found && !found->hidden ? found->address : nullptr;
}

void WINAPI OvHideExport(const char* module, const char* name, BOOL hide) {
    if (!module) return;
    Module* found = ModuleNamed(std::string_view(module));
    if (!found) return;
    if (!name) {
        found->hidden = hide != FALSE;
    } else if (Export* item = ExportNamed(*found, name)) {
        item->hidden = hide != FALSE;
    }
}
