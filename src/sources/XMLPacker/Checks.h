// How the walks test the calls of the document model. A test that fails is reported with the expression it stands for
// and raised as an unsigned number; the end of the same walk turns it into the walk's result.
#pragma once

#include "Platform.h"

namespace OVXMLCheck {

[[noreturn]] void Fail(const char* expression, ULONG code, int line);

// Of a call: 1 (reported as 0x80004005) and what is negative are failures.
inline void Call(HRESULT result, const char* expression, int line = __builtin_LINE()) {
    if (result == S_FALSE || FAILED(result)) {
        Fail(expression, static_cast<ULONG>(result == S_FALSE ? E_FAIL : result), line);
    }
}
// Of a call that must give exactly 0 and a node or list. The code is 1.
inline void Present(HRESULT result, const void* found, const char* expression, int line = __builtin_LINE()) {
    if (result != S_OK || !found) Fail(expression, 1, line);
}
// Of a state or of an inner walk: what is negative is a failure.
inline void Result(HRESULT result, const char* expression, int line = __builtin_LINE()) {
    if (FAILED(result)) Fail(expression, static_cast<ULONG>(result), line);
}

// The end of a walk: its result, the code that a check raised, or 0x8000FFFF for every other failure.
template <class Walk>
HRESULT Caught(Walk walk) noexcept {
    try {
        return walk();
    } catch (const ULONG code) {
        return static_cast<HRESULT>(code);
    } catch (...) {
        return E_UNEXPECTED;
    }
}

}  // namespace OVXMLCheck
