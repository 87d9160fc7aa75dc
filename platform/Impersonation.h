// Whom a thread acts for.
//
// Threads  the state belongs to its thread, and goes with it. What it refers to is never changed, so that the calls
//          below but the declaring ones look nothing up and take no lock.
#pragma once

#include "Identity.h"
#include "win/security.h"

// Whom the thread impersonates; null when it is nobody.
struct CImpersonation {
    CIdentityRef who;
    SECURITY_IMPERSONATION_LEVEL level = SecurityImpersonation;
};

// Good until the thread changes it.
const CImpersonation& ThreadImpersonation() noexcept;
