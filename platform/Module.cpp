// Shared objects under the names of the platform's loader. A module's handle is the loader's own, its link map.
#include "win/module.h"

#include <dlfcn.h>
#include <link.h>
#include <sys/auxv.h>

#include <algorithm>
#include <filesystem>
#include <new>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "BuiltInModules.h"
#include "StringTable.h"
#include "Utf8.h"
#include "win/resource.h"

namespace fs = std::filesystem;

namespace {

constexpr std::uintptr_t kFirstName = 0x10000;  // smaller addresses are ordinals

HMODULE HandleOf(const link_map* map) noexcept {
    return reinterpret_cast<HMODULE>(const_cast<link_map*>(map));
}

// The object that an address lies in; null if it lies in none. Not by dladdr, which goes through all symbols of the
// object for the one nobody asked for.
const link_map* MapAt(const void* address) noexcept {
    dl_find_object found;
    return _dl_find_object(const_cast<void*>(address), &found) == 0 ? found.dlfo_link_map : nullptr;
}

const link_map* Program() noexcept {
    return MapAt(reinterpret_cast<const void*>(getauxval(AT_PHDR)));
}

// What is loaded at this moment.
std::vector<const link_map*> LoadedObjects() {
    struct Walk {
        std::vector<const link_map*> loaded;
        bool failed = false;
    } walk;
    const auto visit = [](dl_phdr_info* info, std::size_t, void* context) noexcept -> int {
        auto& into = *static_cast<Walk*>(context);
        try {
            if (const link_map* map = MapAt(info->dlpi_phdr)) into.loaded.push_back(map);
        } catch (const std::bad_alloc&) {
            into.failed = true;
        }
        return into.failed;
    };
    dl_iterate_phdr(visit, &walk);
    if (walk.failed) throw std::bad_alloc();
    return std::move(walk.loaded);
}

// Null for a handle that is no loaded object's. A null handle means the program.
const link_map* LoadedObject(HMODULE module) {
    if (!module) return Program();
    const auto loaded = LoadedObjects();
    const auto found =
        std::find_if(loaded.begin(), loaded.end(), [module](const link_map* map) { return HandleOf(map) == module; });
    return found == loaded.end() ? nullptr : *found;
}

fs::path ProgramPath() {
    std::error_code error;
    return fs::read_symlink("/proc/self/exe", error);
}

fs::path PathOf(const link_map& map) {
    if (map.l_name[0] == 0) return ProgramPath();
    std::error_code error;
    const fs::path path = fs::absolute(map.l_name, error);
    return error ? fs::path(map.l_name) : path.lexically_normal();
}

// The folder of the layer: what ships with it lies beside it.
fs::path LayerFolder() {
    static const char mark = 0;
    const link_map* self = MapAt(&mark);
    return self ? PathOf(*self).parent_path() : fs::path();
}

bool HasFolder(std::string_view name) noexcept {
    return name.find('/') != std::string_view::npos;
}

bool SameAscii(std::string_view a, std::string_view b) noexcept {
    const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; };
    return std::equal(a.begin(), a.end(), b.begin(), b.end(), [lower](char x, char y) { return lower(x) == lower(y); });
}

// The name as this system spells it: its separators, and its extension for ".dll" and for none.
std::string FileNameOf(LPCWSTR name) {
    std::string file = ToUtf8(name);
    std::replace(file.begin(), file.end(), '\\', '/');
    if (file.empty() || file.back() == '/') return {};
    const std::size_t leaf = file.rfind('/') + 1;  // npos + 1 is 0
    const std::size_t dot = file.find_last_of('.');
    if (dot == std::string::npos || dot < leaf) return file + ".so";
    if (SameAscii(std::string_view(file).substr(dot), ".dll")) file.replace(dot, std::string::npos, ".so");
    return file;
}

// Where a file of that name may lie, in order. Neither the current folder nor the environment has a say for a bare
// name.
std::vector<fs::path> PlacesOf(const std::string& file) {
    if (file.empty()) return {};
    if (HasFolder(file)) return {fs::absolute(file)};
    const fs::path layer = LayerFolder();
    return {ProgramPath().parent_path() / file, layer / file, layer / "orvantis" / file};
}

template <class Result>
Result Failed(DWORD error, Result result) noexcept {
    SetLastError(error);
    return result;
}

// Runs `body`; what it raises becomes the last error and an empty result.
template <class Body>
auto Guarded(Body&& body) noexcept -> decltype(body()) {
    using Result = decltype(body());
    try {
        return std::forward<Body>(body)();
    } catch (const std::bad_alloc&) {
        return Failed(ERROR_NOT_ENOUGH_MEMORY, Result{});
    } catch (const fs::filesystem_error&) {
        return Failed(ERROR_MOD_NOT_FOUND, Result{});
    }
}

HMODULE Load(LPCWSTR name) {
    for (const fs::path& place : PlacesOf(FileNameOf(name))) {
        std::error_code error;
        if (!fs::exists(place, error)) continue;
        void* loaded = dlopen(place.c_str(), RTLD_NOW | RTLD_LOCAL);
        return loaded ? static_cast<HMODULE>(loaded) : Failed(ERROR_BAD_EXE_FORMAT, HMODULE{});
    }
    return Failed(ERROR_MOD_NOT_FOUND, HMODULE{});
}

// A bare name is that of any loaded object, wherever it lies.
HMODULE FindLoaded(LPCWSTR name) {
    const std::string file = FileNameOf(name);
    const bool bare = !HasFolder(file);
    const fs::path wanted = bare || file.empty() ? fs::path(file) : fs::absolute(file).lexically_normal();
    for (const link_map* map : LoadedObjects()) {
        const fs::path path = PathOf(*map);
        if (bare ? SameAscii(path.filename().native(), file) : path == wanted) return HandleOf(map);
    }
    return Failed(ERROR_MOD_NOT_FOUND, HMODULE{});
}

// A built-in module by its bare name, or by its path in the system's folder.
HMODULE BuiltInNamed(std::u16string_view name) {
    const std::size_t slash = name.find_last_of(u"\\/");
    if (slash == name.npos) return FindBuiltInModule(name);
    std::string folder = ToUtf8(name.substr(0, slash));
    std::replace(folder.begin(), folder.end(), '\\', '/');
    return folder == LayerFolder().native() ? FindBuiltInModule(name.substr(slash + 1)) : nullptr;
}

DWORD CopyPath(const std::u16string& text, LPWSTR path, DWORD room) noexcept {
    if (room == 0) return Failed(ERROR_INSUFFICIENT_BUFFER, DWORD{0});
    const std::size_t length = std::min<std::size_t>(text.size(), room - 1);
    text.copy(path, length);
    path[length] = 0;
    if (length == text.size()) return static_cast<DWORD>(length);
    return Failed(ERROR_INSUFFICIENT_BUFFER, room);
}

}  // namespace

HMODULE WINAPI LoadLibraryW(LPCWSTR name) {
    if (!name) return Failed(ERROR_INVALID_PARAMETER, HMODULE{});
    return Guarded([name] {
        const HMODULE builtIn = BuiltInNamed(name);
        return builtIn ? builtIn : Load(name);
    });
}

HMODULE WINAPI LoadLibraryExW(LPCWSTR name, HANDLE file, DWORD flags) {
    if (!name || file || flags != LOAD_LIBRARY_AS_DATAFILE) return Failed(ERROR_INVALID_PARAMETER, HMODULE{});
    return Guarded([name] {
        for (const fs::path& place : PlacesOf(FileNameOf(name))) {
            std::error_code error;
            if (!fs::exists(place, error)) continue;
            HMODULE module = nullptr;
            const DWORD failed = LoadStringTable(place.native(), module);
            return failed ? Failed(failed, HMODULE{}) : module;
        }
        return Failed(ERROR_MOD_NOT_FOUND, HMODULE{});
    });
}

BOOL WINAPI FreeLibrary(HMODULE module) {
    if (!module) return Failed(ERROR_INVALID_HANDLE, FALSE);
    if (IsBuiltInModule(module) || FreeStringTable(module)) return TRUE;
    return Guarded([module]() -> BOOL {
        if (LoadedObject(module) && dlclose(module) == 0) return TRUE;
        return Failed(ERROR_MOD_NOT_FOUND, FALSE);
    });
}

FARPROC WINAPI GetProcAddress(HMODULE module, LPCSTR name) {
    if (reinterpret_cast<std::uintptr_t>(name) < kFirstName) return Failed(ERROR_PROC_NOT_FOUND, FARPROC{});
    if (IsBuiltInModule(module)) {
        FARPROC found = FindBuiltInExport(module, name);
        return found ? found : Failed(ERROR_PROC_NOT_FOUND, FARPROC{});
    }
    return Guarded([module, name]() -> FARPROC {
        const link_map* map = LoadedObject(module);
        if (!map) return Failed(ERROR_MOD_NOT_FOUND, FARPROC{});
        void* found = dlsym(HandleOf(map), name);
        // The loader looks through what the object depends on as well; that is not the object's own export.
        if (!found || MapAt(found) != map) return Failed(ERROR_PROC_NOT_FOUND, FARPROC{});
        return reinterpret_cast<FARPROC>(found);
    });
}

HMODULE WINAPI GetModuleHandleW(LPCWSTR name) {
    if (!name) return HandleOf(Program());
    return Guarded([name] {
        const HMODULE builtIn = BuiltInNamed(name);
        return builtIn ? builtIn : FindLoaded(name);
    });
}

DWORD WINAPI GetModuleFileNameW(HMODULE module, LPWSTR path, DWORD room) {
    if (!path && room != 0) return Failed(ERROR_INVALID_PARAMETER, DWORD{0});
    return Guarded([=]() -> DWORD {
        if (IsBuiltInModule(module)) {
            const std::u16string folder = FromUtf8(LayerFolder().native());
            return CopyPath(folder + u"/" + std::u16string(BuiltInModuleName(module)), path, room);
        }
        const link_map* map = LoadedObject(module);
        if (!map) return Failed(ERROR_MOD_NOT_FOUND, DWORD{0});
        return CopyPath(FromUtf8(PathOf(*map).native()), path, room);
    });
}

// The folder of the layer. A room that is too small gives what is needed with the NUL, and no text.
UINT WINAPI GetSystemDirectoryW(LPWSTR path, UINT room) {
    return Guarded([=]() -> UINT {
        const std::u16string folder = FromUtf8(LayerFolder().native());
        if (!path || room <= folder.size()) return static_cast<UINT>(folder.size() + 1);
        return CopyPath(folder, path, room);
    });
}

// No module is told of threads here.
BOOL WINAPI DisableThreadLibraryCalls(HMODULE module) {
    if (module && IsBuiltInModule(module)) return TRUE;
    return Guarded(
        [module]() -> BOOL { return module && LoadedObject(module) ? TRUE : Failed(ERROR_MOD_NOT_FOUND, FALSE); });
}
