// The one door to the system, opened on the real Win32. Its twin in platform/include/ opens on the layer.
//
// Nothing is invented here: what this header adds are names that the compiler's headers lack, and the spelling of
// 16-bit text.
#pragma once

#include <string>

#include <windows.h>

#include <aclapi.h>
#include <comdef.h>
#include <lm.h>
#include <msxml.h>
#include <objbase.h>
#include <oleauto.h>
#include <sddl.h>
#include <shlwapi.h>
#include <unknwn.h>
#include <wincrypt.h>
#include <winternl.h>
#include <winver.h>

#include "Home.h"

// Literals of 16-bit text. The other home spells this u"...".
#define OV_W2(text) L##text
#define W(text) OV_W2(text)

using wstr = std::basic_string<WCHAR>;
using wstr_view = std::basic_string_view<WCHAR>;

static_assert(sizeof(WCHAR) == 2 && sizeof(LONG) == 4 && sizeof(DWORD) == 4 && sizeof(HRESULT) == 4);

// Exported by ntdll.dll, and missing from the compiler's winternl.h.
extern "C" {
NTSYSAPI LONG NTAPI RtlCompareUnicodeString(PCUNICODE_STRING a, PCUNICODE_STRING b, BOOLEAN ignoreCase);
NTSYSAPI NTSTATUS NTAPI RtlUpcaseUnicodeString(PUNICODE_STRING out, PCUNICODE_STRING in, BOOLEAN allocate);
}
