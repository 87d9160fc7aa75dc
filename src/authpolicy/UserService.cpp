#include "authpolicy/UserService.h"

COVNameResult::~COVNameResult() {
    if (!m_block) return;
    for (DWORD i = 0; i < m_block->count; ++i) CoTaskMemFree(m_block->entries[i].name);
    CoTaskMemFree(m_block);
}

const OV_NAME_ENTRY* COVNameResult::Find(DWORD format) const noexcept {
    for (DWORD i = 0; m_block && i < m_block->count; ++i) {
        const OV_NAME_ENTRY& entry = m_block->entries[i];
        if (entry.format != format) continue;
        return entry.name && *entry.name && SUCCEEDED(entry.hr) ? &entry : nullptr;
    }
    return nullptr;
}

HRESULT OpenUserService(REFIID iid, void** found) noexcept {
    CComPtr<IUnknown> service;
    HRESULT hr =
        CoCreateInstance(CLSID_UserService, nullptr, CLSCTX_ALL, IID_IUnknown, reinterpret_cast<void**>(&service));
    if (SUCCEEDED(hr)) hr = OleRun(service.Get());
    return SUCCEEDED(hr) ? service->QueryInterface(iid, found) : hr;
}

HRESULT TranslateUserName(LPCWSTR userName, DWORD nameFormat, DWORD wanted, COVNameResult& result) {
    CComPtr<IOVUserNames> names;
    const HRESULT opened = OpenUserService(IID_IOVUserNames, names);
    if (opened != E_NOINTERFACE) RaiseIfFailed(opened);
    if (!names) throw _com_error(E_POINTER);
    const HRESULT hr = names->TranslateName(userName, nameFormat, 1, &wanted, &result);
    RaiseIfFailed(hr);
    return hr;
}
