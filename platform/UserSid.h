// The users of this computer by their SID texts: S-1-5-18 is uid 0, S-1-22-1-<uid> everybody else.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <string_view>

// Whom the calling thread acts for: whom it impersonates, else the process.
std::string EffectiveUserSid();
std::string ProcessUserSid();

// Nothing for the SID of no user of this system.
std::optional<uid_t> UserOfSid(std::string_view sid) noexcept;

// Whether the text has the form of a SID, letters in upper case, so that it is good for the name of a file.
bool IsSidText(std::string_view text) noexcept;
