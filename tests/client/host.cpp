// A host that has nothing of this project but its public header: it loads the module with the system's own loader, goes
// through a whole life with it, and frees what it is given with free.
//
//   host MODULE          0 when everything was as it should be; else the number of the line that was not
#include <dlfcn.h>
#include <orvantis/ServerInfo.h>
#include <stdlib.h>
#include <string.h>

#include <string>

#define CHECK(holds) \
    if (!(holds)) return __LINE__ % 256

namespace {

struct Watch : IOVInfoChangeCallback {
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void** object) override {
        *object = this;
        return S_OK;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return ++references; }
    ULONG STDMETHODCALLTYPE Release() override { return --references; }
    HRESULT STDMETHODCALLTYPE OnInfoChanged(DWORD count, const OV_SERVER_INFO_EX*,
                                            const OV_SERVER_INFO_EX* now) override {
        for (DWORD i = 0; i < count; ++i) {
            if (std::u16string(now[i].name) == u"LockTimeout") heard = static_cast<DWORD>(now[i].value.data);
        }
        return S_OK;
    }
    ULONG references = 1;
    DWORD heard = 0;
};

template <class Function>
Function Find(void* library, const char* name) {
    return reinterpret_cast<Function>(dlsym(library, name));
}

template <class Interface>
Interface* As(IUnknown* object, REFIID iid) {
    void* found = nullptr;
    return object->QueryInterface(iid, &found) == S_OK ? static_cast<Interface*>(found) : nullptr;
}

}  // namespace

int main(int argc, char** argv) {
    CHECK(argc == 2);
    void* module = dlopen(argv[1], RTLD_NOW);
    CHECK(module);
    const auto registerServer = Find<HRESULT (*)()>(module, "DllRegisterServer");
    const auto unregisterServer = Find<HRESULT (*)()>(module, "DllUnregisterServer");
    const auto getClassObject = Find<LPFNGETCLASSOBJECT>(module, "DllGetClassObject");
    const auto canUnload = Find<HRESULT (*)()>(module, "DllCanUnloadNow");
    // Of the layer, which came with the module.
    const auto impersonateSelf = Find<BOOL (*)(int)>(module, "ImpersonateSelf");
    const auto revertToSelf = Find<BOOL (*)()>(module, "RevertToSelf");
    CHECK(registerServer && unregisterServer && getClassObject && canUnload && impersonateSelf && revertToSelf);
    CHECK(registerServer() == S_OK && canUnload() == S_OK);

    void* found = nullptr;
    CHECK(getClassObject(CLSID_ServerInfo, IID_IClassFactory, &found) == S_OK);
    auto* factory = static_cast<IClassFactory*>(found);
    CHECK(factory->CreateInstance(nullptr, IID_IOVServerInfo2, &found) == S_OK);
    auto* server = static_cast<IOVServerInfo2*>(found);
    CHECK(factory->Release() >= 1 && canUnload() == S_FALSE);

    auto* init = As<IOVComponentInit>(server, IID_IOVComponentInit);
    auto* notify = As<IOVServerInfoNotify>(server, IID_IOVServerInfoNotify);
    auto* policies = As<IOVAuthenticationPolicyEx>(server, IID_IOVAuthenticationPolicyEx);
    auto* workgroup = As<IOVServerInfoExt>(server, IID_IOVServerInfoExt);
    CHECK(init && notify && policies && workgroup && init->Init() == S_OK);

    Watch watch;
    DWORD cookie = 0, number = 1;
    CHECK(notify->RegisterNotification(u"", &watch, &cookie) == S_OK && cookie != 0 && watch.references == 2);
    CHECK(server->GetItemLong(u"LockTimeout", &number) == static_cast<HRESULT>(0x80070002) && number == 0);
    CHECK(server->GetItemLong(reinterpret_cast<LPCWSTR>(8), &number) == static_cast<HRESULT>(0x8000FFFF));

    CHECK(impersonateSelf(2));
    CHECK(server->SetItemLong(u"LockTimeout", 450) == S_OK && watch.heard == 450);
    CHECK(server->SetItemString(u"Text\\Deep", u"said") == S_OK);
    revertToSelf();
    CHECK(workgroup->SetWorkgroupPolicies() == S_OK);
    ULONGLONG* list = nullptr;
    CHECK(policies->GetSessionPolicyList(&number, &list) < 0 && !list);

    OV_SERVER_INFO_EX records[] = {
        {u"locktimeout", OV_QUERY, {}}, {u"Text\\Deep", OV_QUERY, {}}, {u"none", OV_QUERY, {}}};
    CHECK(server->GetInfo(3, records) == S_OK);
    CHECK(records[0].hr == S_FALSE && records[0].value.type == OV_TYPE_DWORD && records[0].value.data == 450);
    CHECK(records[1].hr == S_FALSE && std::u16string(OvServerValueText(records[1].value)) == u"said");
    CHECK(records[2].hr == static_cast<HRESULT>(0x80070002));
    free(const_cast<WCHAR*>(OvServerValueText(records[1].value)));

    CHECK(init->Term() == S_OK && watch.references == 1);
    CHECK(notify->RegisterNotification(u"", &watch, &cookie) == static_cast<HRESULT>(0x80010001));
    init->Release();
    notify->Release();
    policies->Release();
    workgroup->Release();
    CHECK(server->Release() == 0 && canUnload() == S_OK);
    CHECK(unregisterServer() == S_OK);
    CHECK(dlclose(module) == 0 && !dlopen(argv[1], RTLD_NOW | RTLD_NOLOAD));
    return 0;
}
