// CRegBatch: registry writes that happen together or not at all, where the home has transactions; else one by one.
#pragma once

#include "Platform.h"

// From the first call to Commit this thread's writes are one; without Commit they are taken back at the end.
class CRegBatch {
  public:
    CRegBatch() = default;
    ~CRegBatch() {
        if (m_begun) OvEndRegistryBatch(FALSE);
    }
    CRegBatch(const CRegBatch&) = delete;
    CRegBatch& operator=(const CRegBatch&) = delete;

    LSTATUS Begin() noexcept {
        const LSTATUS error = OvBeginRegistryBatch();
        m_begun = error == ERROR_SUCCESS;
        return error;
    }
    // A failed commit has taken everything back.
    LSTATUS Commit() noexcept {
        m_begun = false;
        return OvEndRegistryBatch(TRUE);
    }

  private:
    bool m_begun = false;
};
