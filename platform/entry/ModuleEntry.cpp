// Linked into each module: what the system's loader does on the other home when it loads and unloads one.
#include <dlfcn.h>
#include <link.h>

#include <cstdlib>

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

void Detach() {
    DllMain(Self(), DLL_PROCESS_DETACH, nullptr);
}

// At the end, of the process or of the module, what is registered here runs among the destructors of the module's
// static objects, the last one first: before those of all that the attaching made, which the detaching still needs.
__attribute__((constructor)) void Attach() {
    if (DllMain(Self(), DLL_PROCESS_ATTACH, nullptr)) std::atexit(Detach);
}

}  // namespace
