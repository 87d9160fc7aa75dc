// How a failure travels inside, and how it becomes a result at the boundary.
//
// Inside, a failure is an exception: _com_error with its HRESULT, or CAtlException from string and conversion code. At
// the boundary AtBoundary turns it into the operation's result. Nothing else in the module maps one to the other.
#pragma once

#include <utility>

#include "Platform.h"
#include "diagnostics/TraceScope.h"

// Raised by string and conversion code, mostly for want of memory. At the boundary it carries no code.
class CAtlException {
  public:
    explicit CAtlException(HRESULT hr = E_OUTOFMEMORY) noexcept : m_hr(hr) {}
    HRESULT Error() const noexcept { return m_hr; }

  private:
    HRESULT m_hr;
};

// The result for a Windows error: positive ones get the Win32 facility, 0 and negative numbers pass.
constexpr HRESULT ResultFromError(LONG error) noexcept {
    return error > 0 ? static_cast<HRESULT>(0x80070000u | (static_cast<DWORD>(error) & 0xFFFFu))
                     : static_cast<HRESULT>(error);
}

// The result for a call that failed and left its reason in the last error; never a success, also without a reason.
inline HRESULT ResultOfLastError() noexcept {
    const DWORD error = GetLastError();
    return error ? HRESULT_FROM_WIN32(error) : E_FAIL;
}

// A registry call's code: one with bits in the facility field is a result already and fails if negative.
constexpr bool RegistryFailed(LONG code) noexcept {
    return (code & 0x1FFF0000) != 0 ? code < 0 : code != 0;
}
constexpr HRESULT ResultFromRegistry(LONG code) noexcept {
    return (code & 0x1FFF0000) != 0 ? static_cast<HRESULT>(code) : ResultFromError(code);
}

// There is no such item, key or value.
inline constexpr HRESULT kNotFound = static_cast<HRESULT>(0x80070002u);

// Raise what failed; pass what succeeded.
inline void RaiseIfFailed(HRESULT hr) {
    if (FAILED(hr)) throw _com_error(hr);
}
inline void RaiseIfRegistryFailed(LONG code) {
    if (RegistryFailed(code)) throw _com_error(ResultFromRegistry(code));
}

// What the handlers of a boundary make of the exception in flight. Call it from a catch (...) only.
inline HRESULT ResultOfCaught() noexcept {
    try {
        throw;
    } catch (const _com_error& failure) {
        return failure.Error();
    } catch (...) {
        return E_UNEXPECTED;  // out of memory as well: clients know no other code
    }
}

// Runs `body`, which returns an HRESULT, and turns whatever it raises into one.
template <class Body>
HRESULT Guarded(Body&& body) noexcept {
    try {
        return std::forward<Body>(body)();
    } catch (...) {
        return ResultOfCaught();
    }
}

// The fixed shape of an operation at the boundary: body, handlers, the result to the trace, return.
template <class Body>
HRESULT AtBoundary(OVTraceNS::CTraceScope& scope, Body&& body) noexcept {
    const HRESULT hr = Guarded(std::forward<Body>(body));
    scope.Result("", hr);
    return hr;
}
