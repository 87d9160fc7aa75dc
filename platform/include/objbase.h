// COM memory and the texts of class ids.
#pragma once

#include "unknwn.h"
#include "win/types.h"

// The C library's own blocks: what CoTaskMemAlloc gave, free takes, so that a client without the layer can release it.
OVLAYER_API LPVOID WINAPI CoTaskMemAlloc(SIZE_T size);
OVLAYER_API LPVOID WINAPI CoTaskMemRealloc(LPVOID block, SIZE_T size);
OVLAYER_API void WINAPI CoTaskMemFree(LPVOID block);

// Apartments, as far as they matter here: a thread that is in one of another kind gets RPC_E_CHANGED_MODE.
#define COINIT_MULTITHREADED 0u
#define COINIT_APARTMENTTHREADED 2u
OVLAYER_API HRESULT WINAPI CoInitializeEx(LPVOID reserved, DWORD model);
OVLAYER_API void WINAPI CoUninitialize();

// Braces, hyphens, upper case: 38 characters. The first gives a CoTaskMemAlloc string; the second counts the NUL and
// gives 0 when the room is less than 39.
OVLAYER_API HRESULT WINAPI StringFromCLSID(REFCLSID id, LPOLESTR* text);
OVLAYER_API int WINAPI StringFromGUID2(REFGUID id, LPOLESTR text, int room);
OVLAYER_API HRESULT WINAPI CLSIDFromString(LPCOLESTR text, LPCLSID id);

// A class is looked for among those that the process has registered, then among the layer's own ("Msxml2.DOMDocument"),
// then in CLSID\{...}\InprocServer32 of HKEY_CLASSES_ROOT, whose default value names a module; that stays loaded.
// Nothing belongs to an apartment, and nothing wants COM to be initialised. 0x800401F3 for a name that is not known, in
// any case of its letters; 0x80040154 for a class that is not.
#define CLSCTX_INPROC_SERVER 1
#define CLSCTX_ALL 23
OVLAYER_API HRESULT WINAPI CLSIDFromProgID(LPCOLESTR name, LPCLSID id);
// Nothing to start: 0 for what is not null.
OVLAYER_API HRESULT WINAPI OleRun(IUnknown* object);
OVLAYER_API HRESULT WINAPI CoCreateInstance(REFCLSID id, IUnknown* outer, DWORD context, REFIID iid, LPVOID* object);

// Registers a class object of this process, for use in it: CLSCTX_INPROC_SERVER and REGCLS_MULTIPLEUSE.
#define REGCLS_MULTIPLEUSE 1
OVLAYER_API HRESULT WINAPI CoRegisterClassObject(REFCLSID id, IUnknown* classObject, DWORD context, DWORD flags,
                                                 DWORD* cookie);
OVLAYER_API HRESULT WINAPI CoRevokeClassObject(DWORD cookie);
