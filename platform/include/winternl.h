// Counted strings, as ntdll.dll takes them.
#pragma once

#include "win/types.h"

struct UNICODE_STRING {
    USHORT Length;         // bytes in use
    USHORT MaximumLength;  // bytes of room
    PWSTR Buffer;
};
using PUNICODE_STRING = UNICODE_STRING*;
using PCUNICODE_STRING = const UNICODE_STRING*;

#define STATUS_SUCCESS (static_cast<NTSTATUS>(0))
#define STATUS_BUFFER_OVERFLOW (static_cast<NTSTATUS>(0x80000005u))
#define STATUS_INVALID_PARAMETER (static_cast<NTSTATUS>(0xC000000Du))

// Upcases each 16-bit unit by one frozen table, compares the first pair that differs, then the lengths.
OVLAYER_API LONG WINAPI RtlCompareUnicodeString(PCUNICODE_STRING a, PCUNICODE_STRING b, BOOLEAN ignoreCase);

// `allocate` TRUE is not served (STATUS_INVALID_PARAMETER); in place, with one buffer for both, is.
OVLAYER_API NTSTATUS WINAPI RtlUpcaseUnicodeString(PUNICODE_STRING out, PCUNICODE_STRING in, BOOLEAN allocate);
