// Which classes the module has.
#include "module/ComFrame.h"
#include "module/ComModule.h"
#include "module/Failure.h"
#include "module/Registration.h"
#include "store/ServerInfo.h"

namespace {

HRESULT UpdateRegistry(bool registers) {
    OVTraceNS::CTraceScope scope("Updateregistry - SYS", 0);
    return AtBoundary(scope, [&]() -> HRESULT {
        constexpr LPCWSTR kName = W("CServerInfo");
        const CComponentRegistrar registrar(TheModule().Path().c_str());
        return registers ? registrar.RegisterComponent(kComponentsKey, kName, CLSID_ServerInfo)
                         : registrar.UnregisterComponent(kComponentsKey, kName);
    });
}

}  // namespace

COVComModule& TheModule() noexcept {
    static COVComModule module;
    return module;
}

ObjectMapEntry* TheObjectMap() noexcept {
    static ObjectMapEntry objects[] = {
        {&CLSID_ServerInfo, &UpdateRegistry, &CreateObject<CServerInfo>, nullptr},
        {nullptr, nullptr, nullptr, nullptr},
    };
    return objects;
}
