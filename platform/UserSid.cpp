#include "UserSid.h"

#include <unistd.h>

#include <algorithm>
#include <charconv>

namespace {

constexpr std::string_view kSystem = "S-1-5-18";
constexpr std::string_view kUnixUser = "S-1-22-1-";
// 15 sub-authorities of ten digits.
constexpr std::size_t kLongestSid = 184;

}  // namespace

std::string ProcessUserSid() {
    const uid_t user = geteuid();
    return user == 0 ? std::string(kSystem) : std::string(kUnixUser) + std::to_string(user);
}

std::optional<uid_t> UserOfSid(std::string_view sid) noexcept {
    if (sid == kSystem) return 0;
    if (!sid.starts_with(kUnixUser)) return std::nullopt;
    sid.remove_prefix(kUnixUser.size());
    uid_t user = 0;
    const auto [end, error] = std::from_chars(sid.data(), sid.data() + sid.size(), user);
    if (error != std::errc() || end != sid.data() + sid.size()) return std::nullopt;
    return user;
}

bool IsSidText(std::string_view text) noexcept {
    constexpr std::string_view kStart = "S-1-";
    if (!text.starts_with(kStart) || text.size() == kStart.size() || text.size() > kLongestSid) return false;
    return text.find_first_not_of("0123456789-", kStart.size()) == std::string_view::npos;
}
