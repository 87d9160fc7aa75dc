// CReducedName: lets a record bear the short name of a policy for as long as it is answered; the caller's own pointer
// comes back.
#pragma once

#include "store/PolicyNames.h"
#include "store/PolicyValue.h"

class CReducedName {
  public:
    explicit CReducedName(OV_SERVER_INFO_EX& record) noexcept : m_record(record), m_callers(record.name) {
        m_record.name = ReduceName(m_callers);
    }
    ~CReducedName() { m_record.name = m_callers; }
    CReducedName(const CReducedName&) = delete;
    CReducedName& operator=(const CReducedName&) = delete;

  private:
    OV_SERVER_INFO_EX& m_record;
    LPCWSTR m_callers;
};
