// CHost: the tool as a host of the module, in the way of every other one.
#pragma once

#include <memory>

#include "Platform.h"
#include "orvantis/ServerInfo.h"

struct FreeModule {
    void operator()(HMODULE module) const noexcept { FreeLibrary(module); }
};
using CModuleHandle = std::unique_ptr<std::remove_pointer_t<HMODULE>, FreeModule>;

struct ReleaseInterface {
    void operator()(IUnknown* object) const noexcept { object->Release(); }
};
template <class Interface>
using CInterface = std::unique_ptr<Interface, ReleaseInterface>;

// This thread as one of COM's, as hosts of components have it.
class CApartment {
  public:
    CApartment() noexcept : m_result(CoInitializeEx(nullptr, COINIT_MULTITHREADED)) {}
    ~CApartment() {
        if (SUCCEEDED(m_result)) CoUninitialize();
    }
    CApartment(const CApartment&) = delete;
    CApartment& operator=(const CApartment&) = delete;

  private:
    HRESULT m_result;
};

// Loads the module from beside the program. Throws CCommandFailure.
CModuleHandle LoadServerInfoModule();

// The module's file, as the system tells it.
wstr ModulePath(HMODULE module);

// Loads the module and makes one object; both go with it, the object first. Throws CCommandFailure.
class CHost {
  public:
    CHost();
    IOVServerInfo& Info() const noexcept { return *m_info; }
    // Another interface of the same object. Throws CCommandFailure.
    template <class Interface>
    CInterface<Interface> Query(REFIID iid) const {
        return CInterface<Interface>(static_cast<Interface*>(QueryAny(iid)));
    }

  private:
    void* QueryAny(REFIID iid) const;

    CModuleHandle m_module;
    CInterface<IOVServerInfo> m_info;
};
