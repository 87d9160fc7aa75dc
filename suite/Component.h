// What makes a library of one COM class out of it: the two exports.
#pragma once

#include "module/ComFrame.h"

// The class objects go when the library does: it is loaded for a call and let go again.
class CSuiteModule : public CComModule {
  public:
    ~CSuiteModule() { Term(); }
};

template <class Class>
CComModule& SuiteModule() noexcept {
    static ObjectMapEntry objects[] = {
        {&Class::ClassId(), nullptr, &CreateObject<Class>, nullptr},
        {nullptr, nullptr, nullptr, nullptr},
    };
    static CSuiteModule module;
    static const HRESULT made = module.Init(objects);
    static_cast<void>(made);
    return module;
}

#define OV_SUITE_COMPONENT(Class)                                            \
    STDAPI DllGetClassObject(REFCLSID classId, REFIID iid, LPVOID* object) { \
        return SuiteModule<Class>().GetClassObject(classId, iid, object);    \
    }                                                                        \
    STDAPI DllCanUnloadNow() {                                               \
        return SuiteModule<Class>().CanUnloadNow();                          \
    }
