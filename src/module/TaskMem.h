// Texts in CoTaskMem blocks that this side frees.
#pragma once

#include <utility>

#include "Platform.h"
#include "module/Failure.h"

class CTaskText {
  public:
    CTaskText() noexcept = default;
    ~CTaskText() { CoTaskMemFree(m_text); }
    CTaskText(const CTaskText&) = delete;
    CTaskText& operator=(const CTaskText&) = delete;

    // For a call that hands one out, once.
    LPWSTR* operator&() noexcept { return &m_text; }
    LPCWSTR Get() const noexcept { return m_text; }

  private:
    LPWSTR m_text = nullptr;
};

// A class id in braces. Raises the failure.
inline wstr ClassIdText(REFCLSID id) {
    CTaskText text;
    RaiseIfFailed(StringFromCLSID(id, &text));
    return text.Get();
}
