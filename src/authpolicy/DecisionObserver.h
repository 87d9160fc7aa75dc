// Who looks on while a credential list is decided: the tools of this tree, which tell the road that was taken. The
// module has none, and a decision without one pays a test of a pointer for each step.
#pragma once

#include "Platform.h"

enum class DecisionStep {
    kLockAgent,     // result: what the agent said; 0 is a locked computer
    kRecovery,      // number: 1 for the recovery account
    kKiosk,         // number: 1 for a kiosk; the name says whether a session or the product was asked
    kItem,          // name: the item that was read; result: its hr
    kUserItem,      // the same, in the caller's own policy
    kLocalAccount,  // name: the account that this computer was asked for; result of the question; number: its privilege
    kRememberedAs,  // number: 1 for an administrator, as it was found earlier
    kDomainAccount,  // name: the account; number: its rights on the list of administrators
    kAdministrator,  // number: 1 for an administrator
    kSpareKey,       // result: of its reading; number: 1 when it is allowed
    kAdded,          // number: an entry that was added
    kRemoved,        // number: and one that was taken out
};

class CDecisionObserver {
  public:
    virtual void Step(DecisionStep step, LPCWSTR name, HRESULT result, ULONGLONG number) = 0;

  protected:
    ~CDecisionObserver() = default;
};
