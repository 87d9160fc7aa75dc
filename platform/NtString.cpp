#include <algorithm>

#include "Upcase.h"
#include "winternl.h"

LONG WINAPI RtlCompareUnicodeString(PCUNICODE_STRING a, PCUNICODE_STRING b, BOOLEAN ignoreCase) {
    const std::size_t lengthA = a->Length / sizeof(WCHAR);
    const std::size_t lengthB = b->Length / sizeof(WCHAR);
    const std::size_t common = std::min(lengthA, lengthB);
    for (std::size_t i = 0; i < common; ++i) {
        WCHAR x = a->Buffer[i];
        WCHAR y = b->Buffer[i];
        if (x == y) continue;
        if (ignoreCase) {
            x = OvUpcase(x);
            y = OvUpcase(y);
            if (x == y) continue;
        }
        return static_cast<LONG>(x) - static_cast<LONG>(y);
    }
    return static_cast<LONG>(lengthA) - static_cast<LONG>(lengthB);
}

NTSTATUS WINAPI RtlUpcaseUnicodeString(PUNICODE_STRING out, PCUNICODE_STRING in, BOOLEAN allocate) {
    if (allocate) return STATUS_INVALID_PARAMETER;
    if (in->Length > out->MaximumLength) return STATUS_BUFFER_OVERFLOW;
    std::transform(in->Buffer, in->Buffer + in->Length / sizeof(WCHAR), out->Buffer, OvUpcase);
    out->Length = in->Length;
    return STATUS_SUCCESS;
}
