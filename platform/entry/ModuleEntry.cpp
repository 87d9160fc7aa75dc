// Linked into each module: what the system's loader does on the other home when it loads and unloads one.
#include <dlfcn.h>
#include <link.h>

#include "win/module.h"

extern "C" BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, LPVOID reserved);

namespace {

// The handle that dlopen gives for this object.
HINSTANCE Self() {
    dl_find_object found;
    if (_dl_find_object(reinterpret_cast<void*>(&DllMain), &found) != 0) return nullptr;
    return reinterpret_cast<HINSTANCE>(found.dlfo_link_map);
}

// Attaches when the module is loaded. At the end, of the process or of the module, it detaches before the static
// objects go that the attaching made, which the detaching still needs: they were complete before this one.
class CAttachment {
  public:
    CAttachment() noexcept : m_attached(DllMain(Self(), DLL_PROCESS_ATTACH, nullptr)) {}
    ~CAttachment() {
        if (m_attached) DllMain(Self(), DLL_PROCESS_DETACH, nullptr);
    }
    CAttachment(const CAttachment&) = delete;
    CAttachment& operator=(const CAttachment&) = delete;

  private:
    const BOOL m_attached;
};

const CAttachment attachment;

}  // namespace
