// Users of the command line.
#pragma once

#include <string>

#include "Platform.h"

// The SID text of USER: a name that the system knows, or a SID as it stands. Throws CCommandFailure: wrong usage for a
// user that nobody knows.
wstr UserSidArgument(const std::string& argument);
