// The module's door: what a host's loader and a host call by name.
#include "diagnostics/TraceConfig.h"
#include "module/ComModule.h"
#include "module/Registration.h"

extern "C" BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, LPVOID) {
    if (reason == DLL_PROCESS_ATTACH) {
        // Before the trace engine knows its module, so that the diagnostic library sees the module's first allocations.
        OVTraceNS::OfferHeapDetection(instance);
        OVTraceNS::SetTraceModule(instance);
        TheModule().Init(TheObjectMap(), instance);  // a load that half succeeds serves better than none
        DisableThreadLibraryCalls(instance);
    } else if (reason == DLL_PROCESS_DETACH) {
        TheModule().Term();
    }
    return TRUE;
}

STDAPI DllGetClassObject(REFCLSID classId, REFIID iid, LPVOID* object) {
    return TheModule().GetClassObject(classId, iid, object);
}

STDAPI DllCanUnloadNow() {
    return TheModule().CanUnloadNow();
}

STDAPI DllRegisterServer() {
    return RegisterModule();
}

STDAPI DllUnregisterServer() {
    return UnregisterModule();
}
