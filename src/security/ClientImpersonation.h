// CClientImpersonation: this thread acts for the caller of the current call as long as the guard lives.
//
//   kind  when                                                          undone by
//   1     CoImpersonateClient succeeded                                 CoRevertToSelf
//   3     there is no COM call (0x80010117): RpcImpersonateClient,      RpcRevertToSelf
//         whatever it says; without a remote call the thread has no
//         token of its own then
//   2     every other failure: nobody, by ImpersonateAnonymousToken     RevertToSelf
#pragma once

#include "Platform.h"

class CClientImpersonation {
  public:
    // Raises the last error when not even the anonymous identity can be had.
    CClientImpersonation();
    ~CClientImpersonation();
    CClientImpersonation(const CClientImpersonation&) = delete;
    CClientImpersonation& operator=(const CClientImpersonation&) = delete;

  private:
    HRESULT m_result;
    DWORD m_kind;
};
