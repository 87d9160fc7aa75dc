// Which classes the module has.
#include "module/ComFrame.h"
#include "module/ComModule.h"
#include "store/ServerInfo.h"

COVComModule& TheModule() noexcept {
    static COVComModule module;
    return module;
}

ObjectMapEntry* TheObjectMap() noexcept {
    static ObjectMapEntry objects[] = {
        {&CLSID_ServerInfo, &CreateObject<CServerInfo>, nullptr},
        {nullptr, nullptr, nullptr},
    };
    return objects;
}
