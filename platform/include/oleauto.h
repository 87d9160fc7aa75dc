// Strings and variants of automation, as far as the XML interfaces need them.
#pragma once

#include "win/types.h"

// 16-bit text with its length in front of it and a NUL behind it. May hold NULs; null is a text of length 0.
using BSTR = WCHAR*;

// Null for null, and when there is no memory. Whoever holds a string frees it.
OVLAYER_API BSTR WINAPI SysAllocString(LPCWSTR text);
// `text` null leaves the units as they are.
OVLAYER_API BSTR WINAPI SysAllocStringLen(LPCWSTR text, UINT length);
OVLAYER_API void WINAPI SysFreeString(BSTR text);
OVLAYER_API UINT WINAPI SysStringLen(BSTR text);

using VARTYPE = USHORT;
using VARIANT_BOOL = SHORT;
#define VARIANT_TRUE (static_cast<VARIANT_BOOL>(-1))
#define VARIANT_FALSE (static_cast<VARIANT_BOOL>(0))
#define VT_EMPTY 0
#define VT_I4 3
#define VT_BSTR 8

struct VARIANT {
    VARTYPE vt;
    WORD wReserved1;
    WORD wReserved2;
    WORD wReserved3;
    union {
        LONGLONG llVal;
        LONG lVal;
        BSTR bstrVal;
    };
};

using LCID = DWORD;
#define LOCALE_USER_DEFAULT 0x0400
#define VARCMP_LT 0
#define VARCMP_EQ 1
#define VARCMP_GT 2

// Unit by unit, with regard to case, whatever the locale; null is the empty text. The platform's own comparison knows
// characters that do not count. `flags` must be 0.
OVLAYER_API HRESULT WINAPI VarBstrCmp(BSTR a, BSTR b, LCID locale, ULONG flags);
