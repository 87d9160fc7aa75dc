// A door into an object's store: tests put items there beside those of the sources.
#pragma once

#include "module/ComFrame.h"
#include "store/ServerInfo.h"

struct StoreDoor {
    static CPolicyMap& Items(CServerInfo& object) noexcept { return object.m_machineItems; }
    static HRESULT Load(CServerInfo& object) noexcept { return object.Load(); }
    static HRESULT Save(CServerInfo& object) noexcept { return object.Save(); }
    // Another check of access, where the system has none.
    template <class Check>
    static void StandIn(CServerInfo& object, Check check) {
        if (!object.m_accessCheck) object.m_accessCheck = check;
    }
    // A load as a policy change brings it about, on this thread.
    static void LoadAndNotify(CServerInfo& object) { CServerInfo::GPOThreadProc(&object); }
};

// One counted instance, made as the class object makes it.
class CTestInstance {
  public:
    CTestInstance() : m_object(new CComObject<CServerInfo>) {
        m_object->Construct();
        m_object->AddRef();
    }
    ~CTestInstance() { m_object->Release(); }
    CTestInstance(const CTestInstance&) = delete;
    CTestInstance& operator=(const CTestInstance&) = delete;

    CServerInfo* operator->() const noexcept { return m_object; }
    CServerInfo& operator*() const noexcept { return *m_object; }
    // Of a store that is loaded: the first query would clear what a test put there before.
    CPolicyMap& Items() const noexcept {
        m_object->GetInfo(0, nullptr);
        return StoreDoor::Items(*m_object);
    }

  private:
    CComObject<CServerInfo>* m_object;
};
