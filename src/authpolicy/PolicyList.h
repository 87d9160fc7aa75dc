// Credential lists: what a policy value stands for, and how a list crosses the interface.
#pragma once

#include <orvantis/ServerInfo.h>

#include <vector>

#include "Platform.h"
#include "diagnostics/TraceScope.h"

using CPolicyList = std::vector<ULONGLONG>;

// Appends the alternatives of a policy value: type 4, a mask in the lower half and its selector (0: each bit is one, 1:
// all of it is one) in the upper; or type 11, whose elements of type 10 are one each. Releases what the value owns.
// Raises 0x8000FFFF for another type or selector.
void ExpandPolicyValue(const OV_SERVER_VALUE& value, CPolicyList& entries);

// As a block that is the client's. An empty list is a null pointer. Raises 0x8007000E, the count being written then.
void HandOut(const CPolicyList& entries, DWORD* count, ULONGLONG** list);

// The list that a policy value stands for, in the same way.
void HandOutValue(const OV_SERVER_VALUE& value, DWORD* count, ULONGLONG** list);

// The item of administrators or of all others, and a word on it in the trace.
LPCWSTR ItemByRole(bool isAdmin, LPCWSTR forAdmins, LPCWSTR forOthers, OVTraceNS::CTraceScope& scope) noexcept;
