#include "win/account.h"

#include <pwd.h>

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include "Utf8.h"

namespace {

constexpr BYTE kNtAuthority = 5;
constexpr DWORD kLocalSystem = 18;
constexpr BYTE kUnixAuthority = 22;
constexpr DWORD kUnixUsers = 1;

BOOL Failed(DWORD error) noexcept {
    SetLastError(error);
    return FALSE;
}

std::optional<uid_t> UserNamed(const std::string& name) {
    std::vector<char> room(1024);
    for (;;) {
        passwd entry = {};
        passwd* found = nullptr;
        const int error = getpwnam_r(name.c_str(), &entry, room.data(), room.size(), &found);
        if (error == ERANGE && room.size() < (1u << 20)) {
            room.resize(room.size() * 2);
            continue;
        }
        return found ? std::optional(entry.pw_uid) : std::nullopt;
    }
}

std::vector<DWORD> SubAuthoritiesOf(uid_t user) {
    if (user == 0) return {kLocalSystem};
    return {kUnixUsers, user};
}

DWORD SizeOfSid(std::size_t subAuthorities) noexcept {
    return static_cast<DWORD>(offsetof(SID, SubAuthority) + subAuthorities * sizeof(DWORD));
}

void WriteSid(uid_t user, const std::vector<DWORD>& subAuthorities, PSID out) noexcept {
    auto* sid = static_cast<SID*>(out);
    sid->Revision = SID_REVISION;
    sid->SubAuthorityCount = static_cast<BYTE>(subAuthorities.size());
    sid->IdentifierAuthority = {{0, 0, 0, 0, 0, user == 0 ? kNtAuthority : kUnixAuthority}};
    std::memcpy(sid->SubAuthority, subAuthorities.data(), subAuthorities.size() * sizeof(DWORD));
}

}  // namespace

BOOL WINAPI LookupAccountNameW(LPCWSTR system, LPCWSTR account, PSID sid, DWORD* sidSize, LPWSTR domain,
                               DWORD* domainSize, SID_NAME_USE* use) {
    if ((system && *system) || !account || !sidSize || !domainSize || !use) return Failed(ERROR_INVALID_PARAMETER);
    try {
        const std::optional<uid_t> user = UserNamed(ToUtf8(account));
        if (!user) return Failed(ERROR_NONE_MAPPED);
        const std::vector<DWORD> subAuthorities = SubAuthoritiesOf(*user);
        const DWORD needed = SizeOfSid(subAuthorities.size());
        const bool fits = sid && *sidSize >= needed && domain && *domainSize >= 1;
        *sidSize = needed;
        if (!fits) {
            *domainSize = 1;
            return Failed(ERROR_INSUFFICIENT_BUFFER);
        }
        WriteSid(*user, subAuthorities, sid);
        *domain = 0;
        *domainSize = 0;
        *use = SidTypeUser;
        return TRUE;
    } catch (const std::bad_alloc&) {
        return Failed(ERROR_NOT_ENOUGH_MEMORY);
    }
}

BOOL WINAPI ConvertSidToStringSidW(PSID sid, LPWSTR* text) {
    if (!sid || !text) return Failed(ERROR_INVALID_PARAMETER);
    const auto* from = static_cast<const SID*>(sid);
    if (from->Revision != SID_REVISION || from->SubAuthorityCount > SID_MAX_SUB_AUTHORITIES) {
        return Failed(ERROR_INVALID_SID);
    }
    try {
        std::uint64_t authority = 0;
        for (const BYTE byte : from->IdentifierAuthority.Value) authority = authority << 8 | byte;
        std::string narrow = "S-1-" + std::to_string(authority);
        for (BYTE i = 0; i < from->SubAuthorityCount; ++i) narrow += "-" + std::to_string(from->SubAuthority[i]);
        auto* out = static_cast<WCHAR*>(std::malloc((narrow.size() + 1) * sizeof(WCHAR)));
        if (!out) return Failed(ERROR_NOT_ENOUGH_MEMORY);
        std::copy_n(narrow.c_str(), narrow.size() + 1, out);
        *text = out;
        return TRUE;
    } catch (const std::bad_alloc&) {
        return Failed(ERROR_NOT_ENOUGH_MEMORY);
    }
}

void* WINAPI LocalFree(void* block) {
    std::free(block);
    return nullptr;
}
