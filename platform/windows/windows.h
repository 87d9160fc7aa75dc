// The compiler's windows.h, whoever includes it first, in the form that this tree can live with.
#pragma once
#pragma GCC system_header

// Whole, before the word below is taken.
#include <cstddef>
#include <string>

#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#ifndef NOMINMAX
#define NOMINMAX
#endif
// ntstatus.h has all of the codes, windows.h a few of them.
#define WIN32_NO_STATUS
// A global type of the headers for remote calls, in the way of everybody's locals.
#define byte OvRpcByte
#include_next <windows.h>

#include <objbase.h>

#undef byte
#undef WIN32_NO_STATUS
#include <ntstatus.h>
