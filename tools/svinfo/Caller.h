// Whom the component answers: the user who runs the tool, or, for root, whomever --as and --session name.
#pragma once

#include <optional>
#include <string>

#include "Platform.h"

// Declares the caller for as long as it lives. Where the home has callers of its own, only the default is served.
class CCaller {
  public:
    // Both are for root: throws CCommandFailure (3) when somebody else names them, 2 for a user that nobody is.
    CCaller(const std::optional<std::string>& user, const std::optional<std::string>& session);
    ~CCaller();
    CCaller(const CCaller&) = delete;
    CCaller& operator=(const CCaller&) = delete;

  private:
    bool m_declared;
};

// The SID of the caller of this thread as text; empty when there is none.
wstr CallerSid();

// A user of the command line in a form that the component takes: the name, and how it is written.
struct CUserName {
    wstr name;
    DWORD format;
};
CUserName UserNameArgument(const std::string& argument);
