#include "Nss.h"

#include <grp.h>
#include <pwd.h>

#include <algorithm>
#include <cerrno>

namespace {

// A group of very many members fills this.
constexpr std::size_t kMostRoom = std::size_t{1} << 24;

// Asks with ever more room, by ask(Entry*, char*, size_t, Entry**), and hands an entry that was found to `read`.
template <class Entry, class Ask, class Read>
auto Find(Ask ask, Read read) -> std::optional<decltype(read(std::declval<const Entry&>()))> {
    std::vector<char> room(1024);
    for (;;) {
        Entry entry = {};
        Entry* found = nullptr;
        const int error = ask(&entry, room.data(), room.size(), &found);
        if (error == EINTR) continue;
        if (error == ERANGE && room.size() < kMostRoom) {
            room.resize(room.size() * 4);
            continue;
        }
        if (!found) return std::nullopt;
        return read(*found);
    }
}

CNssUser ReadUser(const passwd& entry) {
    const auto text = [](const char* from) { return std::string(from ? from : ""); };
    const std::string about = text(entry.pw_gecos);
    return {entry.pw_uid, entry.pw_gid, text(entry.pw_name), about.substr(0, about.find(',')), text(entry.pw_dir)};
}

}  // namespace

std::optional<CNssUser> NssUserNamed(const std::string& name) {
    return Find<passwd>([&](passwd* entry, char* room, std::size_t size,
                            passwd** found) { return getpwnam_r(name.c_str(), entry, room, size, found); },
                        ReadUser);
}

std::optional<CNssUser> NssUser(uid_t user) {
    return Find<passwd>([&](passwd* entry, char* room, std::size_t size,
                            passwd** found) { return getpwuid_r(user, entry, room, size, found); },
                        ReadUser);
}

std::optional<gid_t> NssGroupNamed(const std::string& name) {
    return Find<group>([&](group* entry, char* room, std::size_t size,
                           group** found) { return getgrnam_r(name.c_str(), entry, room, size, found); },
                       [](const group& entry) { return entry.gr_gid; });
}

std::optional<std::string> NssGroupName(gid_t id) {
    return Find<group>([&](group* entry, char* room, std::size_t size,
                           group** found) { return getgrgid_r(id, entry, room, size, found); },
                       [](const group& entry) { return std::string(entry.gr_name); });
}

std::vector<gid_t> NssGroupsOf(const std::string& userName, gid_t primary) {
    std::vector<gid_t> groups(32);
    for (;;) {
        int count = static_cast<int>(groups.size());
        const bool fits = getgrouplist(userName.c_str(), primary, groups.data(), &count) >= 0;
        const std::size_t wanted = static_cast<std::size_t>(std::max(count, 0));
        // Some sources tell the needed size, and others only that it was more.
        groups.resize(fits ? wanted : std::max(wanted, groups.size() * 2));
        if (fits) return groups;
    }
}
