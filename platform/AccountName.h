// Accounts that every computer has.
#pragma once

#include <span>
#include <string>
#include <string_view>

#include "Sid.h"

struct CWellKnown {
    CSid (*sid)() noexcept;
    std::u16string_view domain;
    std::u16string_view name;
    SID_NAME_USE use;
};

std::span<const CWellKnown> WellKnownAccounts() noexcept;

// By its name in any case of its letters, in its domain or, when that is empty, in any. Null when there is none.
const CWellKnown* WellKnownNamed(std::u16string_view domain, std::u16string_view name) noexcept;

// A name of an account, at its last backslash; the domain is empty when there is none in front.
struct CAccountName {
    explicit CAccountName(std::u16string_view text) noexcept {
        const std::size_t end = text.rfind(u'\\');
        if (end != text.npos) domain = text.substr(0, end);
        name = end == text.npos ? text : text.substr(end + 1);
    }

    std::u16string_view domain;
    std::u16string_view name;
};

// The name of this computer. Raises std::bad_alloc.
std::u16string HostName();
// Whether that is the name of this computer, or the dot that stands for it.
bool IsThisComputer(std::u16string_view name) noexcept;

// An account by its name: as the name service has it, domain and all, then without this computer's name in front; a
// user, a group, then those above, in their own domain alone where one is named. Another domain's name is never taken
// for one of this computer. The use is SidTypeUnknown for nobody's name. Raises std::bad_alloc.
struct CNamedAccount {
    CSid sid;
    SID_NAME_USE use = SidTypeUnknown;
    std::u16string_view domain;  // of those above
};
CNamedAccount FindAccount(std::u16string_view text);
