// Users and groups as the name service of the system knows them. Each question may go to a server: nothing here is
// for a path that must be quick. What cannot be found out is answered as what does not exist.
//
// Fails    with std::bad_alloc.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

struct CNssUser {
    uid_t user = 0;
    gid_t group = 0;
    std::string name;
    std::string fullName;
    std::string home;
};

std::optional<CNssUser> NssUserNamed(const std::string& name);
std::optional<CNssUser> NssUser(uid_t user);
std::optional<gid_t> NssGroupNamed(const std::string& name);
std::optional<std::string> NssGroupName(gid_t group);

// All that the user is in, `primary` among them.
std::vector<gid_t> NssGroupsOf(const std::string& userName, gid_t primary);
