// Modules: the layer's built-in ones ("ntdll.dll", "Advapi32.dll", and more as they are needed), and shared objects.
#pragma once

#include "win/types.h"

#define DLL_PROCESS_DETACH 0
#define DLL_PROCESS_ATTACH 1

// A built-in name, or a file. A file name without an extension, or with ".dll", is looked for as ".so": with a folder
// in its path there, else beside the program and beside the layer. Null and the last error 126 when there is none.
OVLAYER_API HMODULE WINAPI LoadLibraryW(LPCWSTR name);
OVLAYER_API BOOL WINAPI FreeLibrary(HMODULE module);
OVLAYER_API FARPROC WINAPI GetProcAddress(HMODULE module, LPCSTR name);
OVLAYER_API HMODULE WINAPI GetModuleHandleW(LPCWSTR name);

// Full path in POSIX form. Null means the program itself. Cut at `room` units with last error 122, as the platform
// does.
OVLAYER_API DWORD WINAPI GetModuleFileNameW(HMODULE module, LPWSTR path, DWORD room);
OVLAYER_API UINT WINAPI GetSystemDirectoryW(LPWSTR path, UINT room);
OVLAYER_API BOOL WINAPI DisableThreadLibraryCalls(HMODULE module);
