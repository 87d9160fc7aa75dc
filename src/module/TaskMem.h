// Texts that a call hands out and this side frees.
#pragma once

#include "Platform.h"
#include "module/Failure.h"

// `Free` is what the blocks of the call go back with.
template <auto Free>
class CHandedText {
  public:
    CHandedText() noexcept = default;
    ~CHandedText() { Free(m_text); }
    CHandedText(const CHandedText&) = delete;
    CHandedText& operator=(const CHandedText&) = delete;

    // For a call that hands one out, once.
    LPWSTR* operator&() noexcept { return &m_text; }
    LPCWSTR Get() const noexcept { return m_text; }

  private:
    LPWSTR m_text = nullptr;
};
using CTaskText = CHandedText<&CoTaskMemFree>;
using CLocalText = CHandedText<&LocalFree>;

// A class id in braces. Raises the failure.
inline wstr ClassIdText(REFCLSID id) {
    CTaskText text;
    RaiseIfFailed(StringFromCLSID(id, &text));
    return text.Get();
}
