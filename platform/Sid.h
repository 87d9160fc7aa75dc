// Security identifiers inside the layer: values of their own, laid out as the platform has them.
#pragma once

#include <sys/types.h>

#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>

#include "win/account.h"

// What a SID of so many sub-authorities takes, in bytes.
inline constexpr DWORD SidSize(std::size_t subAuthorities) noexcept {
    return static_cast<DWORD>(offsetof(SID, SubAuthority) + subAuthorities * sizeof(DWORD));
}

// Room for any SID. The parts behind the last one are 0.
struct CSid {
    BYTE revision = SID_REVISION;
    BYTE count = 0;
    SID_IDENTIFIER_AUTHORITY authority = {};
    DWORD parts[SID_MAX_SUB_AUTHORITIES] = {};

    CSid() = default;
    CSid(BYTE lastOfAuthority, std::initializer_list<DWORD> subAuthorities) noexcept;

    DWORD Size() const noexcept { return SidSize(count); }
    bool operator==(const CSid& other) const noexcept;
};
static_assert(sizeof(CSid) == SECURITY_MAX_SID_SIZE);

CSid EveryoneSid() noexcept;
CSid AnonymousSid() noexcept;
CSid SystemSid() noexcept;
CSid AdministratorsSid() noexcept;
CSid UsersSid() noexcept;
CSid IntegritySid(DWORD level) noexcept;
CSid SidOfUser(uid_t user) noexcept;
CSid SidOfGroup(gid_t group) noexcept;

// Nothing for the SID of no user, or no group, of this system; whether there is one by that number is not asked.
std::optional<uid_t> UserOf(const CSid& sid) noexcept;
std::optional<gid_t> GroupOf(const CSid& sid) noexcept;

// A copy of a caller's SID; nothing for null and for what is none.
std::optional<CSid> ReadSid(const void* sid) noexcept;
// The same where only so many bytes may be looked at, at any alignment.
std::optional<CSid> ReadSid(const void* sid, std::size_t room) noexcept;

// As ConvertStringSidToSidW takes it.
std::optional<CSid> ParseSid(std::u16string_view text) noexcept;
std::string SidText(const CSid& sid);
