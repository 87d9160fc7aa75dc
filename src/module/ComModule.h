// The module object: its classes, their class objects, and the count that keeps it loaded.
#pragma once

#include <atomic>

#include "Platform.h"
#include "module/Lock.h"

// Makes an instance and hands out one of its interfaces; `out` is null on failure.
using InstanceCreator = HRESULT (*)(IUnknown* outer, REFIID iid, void** out) noexcept;

// One class of the module.
struct ObjectMapEntry {
    const CLSID* classId;
    HRESULT (*updateRegistry)(bool registers);  // null for a class that is not registered
    InstanceCreator create;
    IUnknown* classObject;  // made at the first request, held until Term; guarded by the module's lock
};

class CComModule {
  public:
    // `objects` ends with an entry without a class id and stays the caller's.
    HRESULT Init(ObjectMapEntry* objects) noexcept;
    // Releases the class objects.
    void Term() noexcept;

    // 0x80040111 for a class that is not in the map; `object` is null then.
    HRESULT GetClassObject(REFCLSID classId, REFIID iid, void** object) noexcept;
    HRESULT CanUnloadNow() const noexcept;

    // What keeps the module loaded: instances, references to class objects, LockServer.
    static void Lock() noexcept { ++s_lockCount; }
    static void Unlock() noexcept { --s_lockCount; }

  protected:
    HRESULT UpdateRegistry(const CLSID* classId, bool registers) noexcept;

  private:
    HRESULT EnsureClassObject(ObjectMapEntry& entry) noexcept;

    CCriticalSection m_lock;  // guards the making of class objects; nothing of the module is taken under it
    ObjectMapEntry* m_objects = nullptr;
    static std::atomic<LONG> s_lockCount;
};

class COVComModule : public CComModule {
  public:
    virtual ~COVComModule() = default;

    // Keeps the map and the module's path. A failure leaves a module that serves, without its path.
    HRESULT Init(ObjectMapEntry* objects, HINSTANCE instance) noexcept;

    // Of the class, of all classes for a null one. The first failure ends it.
    HRESULT RegisterServer(const CLSID* classId) noexcept;
    HRESULT UnRegisterServer(const CLSID* classId) noexcept;

    const wstr& Path() const noexcept { return m_path; }

  private:
    wstr m_path;  // full path of the module; set once by Init
};

// The one instance, and the module's classes.
COVComModule& TheModule() noexcept;
ObjectMapEntry* TheObjectMap() noexcept;
