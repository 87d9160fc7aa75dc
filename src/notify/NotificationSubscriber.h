// One registration for changes: a filter, the client's callback, and the cookie that names it.
#pragma once

#include <orvantis/ServerInfo.h>

#include "Platform.h"

class CNotificationSubscriber {
  public:
    // Draws the next cookie of the process; takes a reference on the callback. Raises std::bad_alloc.
    CNotificationSubscriber(LPCWSTR name, IOVInfoChangeCallback* callback);
    CNotificationSubscriber(const CNotificationSubscriber& other);
    CNotificationSubscriber& operator=(const CNotificationSubscriber&) = delete;
    ~CNotificationSubscriber();

    DWORD Id() const noexcept { return m_id; }
    // The empty filter passes every item; another one passes itself, what lies above it and what lies below it.
    bool Passes(LPCWSTR itemName) const noexcept;
    // The one call of OnInfoChanged. Whatever it raises becomes a result.
    HRESULT Notify(DWORD count, const OV_SERVER_INFO_EX* oldInfo, const OV_SERVER_INFO_EX* newInfo) const noexcept;

  private:
    wstr m_name;
    IOVInfoChangeCallback* m_callback;  // counted
    DWORD m_id;                         // never 0
};
