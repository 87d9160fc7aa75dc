// COVSecureObject: an object with a security descriptor of its own.
#pragma once

#include "security/SecurityDescriptor.h"

class COVSecureObject {
  public:
    virtual ~COVSecureObject() = default;

    // Adds the entries of the class to the descriptor.
    virtual HRESULT CreateDefaultSecurityDescriptor() = 0;

  protected:
    // With owner and group of whoever makes the object. Raises the failure.
    COVSecureObject();

    CSecurityDescriptor m_security;
};

// What an entry of the descriptor can allow.
inline constexpr DWORD kReadItems = 1;
inline constexpr DWORD kWriteItems = 2;
