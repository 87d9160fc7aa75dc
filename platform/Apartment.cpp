// COM apartments, as far as they matter to a free-threaded component: a count for each thread and one kind at a time.
#include "objbase.h"

namespace {

struct Apartment {
    ULONG count = 0;
    DWORD model = 0;
};
thread_local Apartment apartment;

}  // namespace

HRESULT WINAPI CoInitializeEx(LPVOID reserved, DWORD model) {
    if (reserved || (model != COINIT_MULTITHREADED && model != COINIT_APARTMENTTHREADED)) return E_INVALIDARG;
    if (apartment.count != 0 && apartment.model != model) return RPC_E_CHANGED_MODE;
    apartment.model = model;
    return apartment.count++ == 0 ? S_OK : S_FALSE;
}

void WINAPI CoUninitialize() {
    if (apartment.count != 0) --apartment.count;
}
