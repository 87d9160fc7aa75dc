// The exception that carries a result.
#pragma once

#include "win/types.h"

class _com_error {
  public:
    explicit _com_error(HRESULT hr) noexcept : m_hr(hr) {}
    HRESULT Error() const noexcept { return m_hr; }

  private:
    HRESULT m_hr;
};
