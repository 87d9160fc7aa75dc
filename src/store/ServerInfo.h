// CServerInfo: the object that answers what policy holds on this computer.
//
// It is declared here once, with its bases, its fields and its operations; each folder implements the members of its
// own concern.
//
//   new --FinalConstruct--> constructed --first query--> answering --last Release--> FinalRelease, gone
//
// Locks    m_lock is the object's one lock, recursive. It guards every map and flag below; an operation that needs it
//          takes it for its whole length, and those that expect it held say so. TraceLock may be taken under it.
#pragma once

#include <orvantis/ServerInfo.h>

#include <span>

#include "Platform.h"
#include "module/ComFrame.h"
#include "store/PolicyMap.h"

class CServerInfo : public CComObjectRootEx<CComMultiThreadModel>,
                    public CComCoClass<CServerInfo, &CLSID_ServerInfo>,
                    public IOVServerInfo2 {
  public:
    static std::span<const InterfaceEntry<CServerInfo>> InterfaceMap() noexcept;

    // Queries: store/ItemQueries.cpp. Described in the public header.
    STDMETHOD(GetInfo)(DWORD count, OV_SERVER_INFO_EX* records) override;
    STDMETHOD(GetItemLong)(LPCWSTR name, DWORD* value) override;
    STDMETHOD(GetItemString)(LPCWSTR name, LPWSTR* value) override;

    // Writes: store/ItemWrites.cpp. Not served yet.
    STDMETHOD(SetItemLong)(LPCWSTR name, DWORD value) override;
    STDMETHOD(SetItemString)(LPCWSTR name, LPCWSTR value) override;
    STDMETHOD(DeleteItem)(LPCWSTR name) override;
    STDMETHOD(SetItem)(LPCWSTR name, const OV_SERVER_VALUE* value) override;

  protected:
    // Machine values: store/MachineValues.cpp. Both put the outcome into record.hr and return it: 0 from the store, 1
    // from a local key, else a failure. They raise nothing. The caller holds m_lock.
    HRESULT GetMachineValue(OV_SERVER_INFO_EX& record) noexcept;
    HRESULT GetRegistryValue(LPCWSTR basePath, OV_SERVER_INFO_EX& record) noexcept;

    // Guarded by m_lock.
    CPolicyMap m_machineItems;  // the store: what is managed, as of the last load

  private:
    friend struct StoreDoor;  // tests and benchmarks put items into the store through it

    void AnswerRecord(OV_SERVER_INFO_EX& record) noexcept;
    HRESULT GetItemOfType(LPCWSTR name, DWORD type, OV_SERVER_VALUE& value);
    void FindMachineValue(OV_SERVER_INFO_EX& record, bool defaultOnly, OVTraceNS::CTraceScope& scope);
    bool ReadLocalPolicy(OV_SERVER_INFO_EX& record, std::span<const LPCWSTR> keys);
};
