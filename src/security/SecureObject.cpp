#include "security/SecureObject.h"

#include "module/Failure.h"

COVSecureObject::COVSecureObject() {
    RaiseIfFailed(m_security.InitializeFromThreadToken(false, true));
}
