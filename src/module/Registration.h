// What registering the module means: one value in the suite's own list of components. Taking it away again also notes,
// in the list Cleanup.txt of the installation, what the module leaves behind for somebody else to remove.
#pragma once

#include "Platform.h"

// The suite's list: HKEY_LOCAL_MACHINE\SOFTWARE\Orvantis\Core\SysComponents, a value "{class id}:path" for each
// component.
inline constexpr LPCWSTR kComponentsKey = W("SOFTWARE\\Orvantis\\Core\\SysComponents");

class CComponentRegistrar {
  public:
    explicit CComponentRegistrar(LPCWSTR modulePath) noexcept : m_modulePath(modulePath) {}

    HRESULT RegisterComponent(LPCWSTR key, LPCWSTR name, REFCLSID classId) const noexcept;
    // The last component takes the key with it. A key that is not there is a failure, a value that is not there is
    // none.
    HRESULT UnregisterComponent(LPCWSTR key, LPCWSTR name) const noexcept;

  private:
    LPCWSTR m_modulePath;
};

// One more line of Cleanup.txt in the installation directory (OrvantisPath of SOFTWARE\Orvantis): UTF-16 with a byte
// order mark, fields with tabs between them, CR LF. `extra` may be null. 0x80070057 for a null or empty kind or target;
// 0x8007000D for a file that has something else in it, which stays as it is; else what kept the line from being
// written.
HRESULT AddCleanupLine(LPCWSTR kind, LPCWSTR target, DWORD number, LPCWSTR extra) noexcept;

// The work of the two exports.
HRESULT RegisterModule() noexcept;
HRESULT UnregisterModule() noexcept;
