// An object of the tree's own beside that of the module: what no interface tells is read from it. It neither reads nor
// leaves a cache file: its first load tells of everything as created.
#pragma once

#include <memory>

#include "store/ServerInfo.h"
#include "svinfo/Host.h"

class CStoreView {
  public:
    // Made and loaded as any other, with an observer of this one load. Throws CCommandFailure.
    explicit CStoreView(CLoadObserver* observer = nullptr);

    IOVServerInfo& Info() const noexcept { return *m_interface; }
    CServerInfo& Object() const noexcept { return *m_object; }
    CPolicyMap ManagedItems() const { return m_object->ManagedItems(); }
    CLoadReport LastLoad() const noexcept { return m_object->LastLoad(); }

  private:
    CInterface<IOVServerInfo> m_interface;
    CServerInfo* m_object;  // the same object
};
