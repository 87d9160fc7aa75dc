// The write operations have their places in the table of IOVServerInfo, and nothing behind them yet: they change
// nothing and say so.
#include "store/ServerInfo.h"

STDMETHODIMP CServerInfo::SetItemLong(LPCWSTR, DWORD) {
    return E_NOTIMPL;
}
STDMETHODIMP CServerInfo::SetItemString(LPCWSTR, LPCWSTR) {
    return E_NOTIMPL;
}
STDMETHODIMP CServerInfo::DeleteItem(LPCWSTR) {
    return E_NOTIMPL;
}
STDMETHODIMP CServerInfo::SetItem(LPCWSTR, const OV_SERVER_VALUE*) {
    return E_NOTIMPL;
}
