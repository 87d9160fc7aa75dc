// The registry form of the nine authentication policies, the same at every place where policies lie.
//
//   list   <root>\Applications\{5ED04F3F-...}, REG_MULTI_SZ <policy>: one 64-bit mask a string, in base 16
//   bits   <root>\AuthenticationPolicies\<policy>: the OR of all REG_DWORD values of that key
//   plain  <root>, REG_DWORD <policy>: how a number is written; read by whoever reads plain values, not here
//
// A list is a value of type 11 with elements of type 10, bits are a value of type 4, a list without an entry is a value
// of type 0. The list wins over the bits, and nothing combines the two.
//
// Threads  the caller's; no lock is taken.
#pragma once

#include <orvantis/ServerInfo.h>

#include <span>

#include "Platform.h"
#include "store/PolicyValue.h"

// `value` is cleared first. 0, or 0x80070002 when the policy has neither form: a damaged list counts as none. Raises
// for want of memory.
HRESULT LoadAuthPolicyGPO(HKEY root, LPCWSTR name, CPolicyValue& value);

// The same for the key `path` below `rootParent`; 0x80070002 too when that cannot be opened.
HRESULT ReadAuthPolicyFromKey(HKEY rootParent, LPCWSTR path, LPCWSTR name, CPolicyValue& value);

// The key in which a value lies that one of the two above has read, with `path` for the root's own path.
wstr AuthPolicyKey(LPCWSTR path, LPCWSTR name, const CPolicyValue& value);

// The strings of the list form, each with its NUL. The one that closes the list is the NUL that c_str() adds. An
// element that is no 64-bit number counts as 0.
wstr AuthPolicyList(std::span<const OV_SERVER_VALUE> elements);

// Writes types 3 and 4 as the plain number and type 11 as a list, and takes the other form away first, so that a policy
// has one of the two after each write. 0x80070057 for every other type; else the Win32 error of the failed step.
HRESULT SaveAuthPolicyGPO(HKEY rootParent, LPCWSTR path, LPCWSTR name, const OV_SERVER_VALUE& value) noexcept;
