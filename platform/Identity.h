// Who somebody is: found out once, and then only read.
#pragma once

#include <sys/types.h>

#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "Sid.h"

inline constexpr DWORD kMediumIntegrity = 8192;
inline constexpr DWORD kHighIntegrity = 12288;

struct CGroup {
    CSid sid;
    DWORD attributes = 0;
};

// Never changed once it is made, so that any thread may read it.
struct CIdentity {
    CSid user;
    std::string userText;
    CSid primaryGroup;
    std::vector<CGroup> groups;
    DWORD session = 0;
    DWORD integrity = 0;

    // Whether it is the user, or one of the groups.
    bool Holds(const CSid& sid) const noexcept;
};
using CIdentityRef = std::shared_ptr<const CIdentity>;

// All of these raise std::bad_alloc. Users whom the name service does not know are in no group but that which is given.
CIdentityRef IdentityOfUser(uid_t user, std::optional<gid_t> primaryGroup, DWORD session);
// Of the effective ids of this process. May be as old as a second.
CIdentityRef ProcessIdentity();
CIdentityRef AnonymousIdentity();
// At least the user's; the groups' behind it, the primary one first. S-1-16-<level> among them declares the integrity.
CIdentityRef IdentityOfSids(std::span<const CSid> sids, DWORD session);

// Nothing when there is no such process; 0 for one outside of all sessions.
std::optional<DWORD> SessionOf(pid_t process) noexcept;
