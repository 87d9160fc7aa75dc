// A door into an object's store: until something loads it, tests put items there themselves.
#pragma once

#include "module/ComFrame.h"
#include "store/ServerInfo.h"

struct StoreDoor {
    static CPolicyMap& Items(CServerInfo& object) noexcept { return object.m_machineItems; }
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

    IOVServerInfo* operator->() const noexcept { return m_object; }
    CPolicyMap& Items() const noexcept { return StoreDoor::Items(*m_object); }

  private:
    CComObject<CServerInfo>* m_object;
};
