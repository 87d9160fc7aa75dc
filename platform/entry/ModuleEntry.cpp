// Linked into each module: what the system's loader does on the other home when it loads and unloads one.
#include <dlfcn.h>
#include <link.h>

#include "win/module.h"

extern "C" BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, LPVOID reserved);

namespace {

// The handle that dlopen gives for this object.
HINSTANCE Self() {
    Dl_info info;
    link_map* map = nullptr;
    if (!dladdr1(reinterpret_cast<void*>(&DllMain), &info, reinterpret_cast<void**>(&map), RTLD_DL_LINKMAP)) {
        return nullptr;
    }
    return reinterpret_cast<HINSTANCE>(map);
}

__attribute__((constructor)) void Attach() {
    DllMain(Self(), DLL_PROCESS_ATTACH, nullptr);
}
__attribute__((destructor)) void Detach() {
    DllMain(Self(), DLL_PROCESS_DETACH, nullptr);
}

}  // namespace
