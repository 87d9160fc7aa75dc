#include "Sid.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "BoolCall.h"
#include "win/security.h"

namespace {

constexpr BYTE kWorldAuthority = 1;
constexpr BYTE kNtAuthority = 5;
constexpr BYTE kLabelAuthority = 16;
constexpr BYTE kUnixAuthority = 22;
constexpr DWORD kUnixUsers = 1;
constexpr DWORD kUnixGroups = 2;
constexpr DWORD kBuiltIn = 32;

const struct {
    std::u16string_view letters;
    CSid (*sid)() noexcept;
} kAliases[] = {
    {u"SY", SystemSid}, {u"BA", AdministratorsSid}, {u"BU", UsersSid}, {u"WD", EveryoneSid}, {u"AN", AnonymousSid},
};

// A decimal number at the front of the text, which it is taken from. Nothing when there is none, or a larger one.
std::optional<std::uint64_t> TakeNumber(std::u16string_view& text, std::uint64_t largest) noexcept {
    std::uint64_t number = 0;
    std::size_t digits = 0;
    for (; digits < text.size() && text[digits] >= u'0' && text[digits] <= u'9'; ++digits) {
        number = number * 10 + (text[digits] - u'0');
        if (number > largest) return std::nullopt;
    }
    if (digits == 0) return std::nullopt;
    text.remove_prefix(digits);
    return number;
}

bool TakeHyphen(std::u16string_view& text) noexcept {
    if (!text.starts_with(u'-')) return false;
    text.remove_prefix(1);
    return true;
}

std::optional<DWORD> UnixId(const CSid& sid, DWORD kind) noexcept {
    const bool is = sid == CSid(kUnixAuthority, {kind, sid.parts[1]});
    return is ? std::optional(sid.parts[1]) : std::nullopt;
}

}  // namespace

CSid::CSid(BYTE lastOfAuthority, std::initializer_list<DWORD> subAuthorities) noexcept
    : count(static_cast<BYTE>(subAuthorities.size())), authority{{0, 0, 0, 0, 0, lastOfAuthority}} {
    std::copy(subAuthorities.begin(), subAuthorities.end(), parts);
}

bool CSid::operator==(const CSid& other) const noexcept {
    return count == other.count && std::memcmp(this, &other, Size()) == 0;
}

CSid EveryoneSid() noexcept {
    return {kWorldAuthority, {0}};
}
CSid AnonymousSid() noexcept {
    return {kNtAuthority, {7}};
}
CSid SystemSid() noexcept {
    return {kNtAuthority, {18}};
}
CSid AdministratorsSid() noexcept {
    return {kNtAuthority, {kBuiltIn, 544}};
}
CSid UsersSid() noexcept {
    return {kNtAuthority, {kBuiltIn, 545}};
}
CSid IntegritySid(DWORD level) noexcept {
    return {kLabelAuthority, {level}};
}

CSid SidOfUser(uid_t user) noexcept {
    return user == 0 ? SystemSid() : CSid(kUnixAuthority, {kUnixUsers, user});
}
CSid SidOfGroup(gid_t group) noexcept {
    return {kUnixAuthority, {kUnixGroups, group}};
}

std::optional<uid_t> UserOf(const CSid& sid) noexcept {
    return sid == SystemSid() ? std::optional<uid_t>(0) : UnixId(sid, kUnixUsers);
}
std::optional<gid_t> GroupOf(const CSid& sid) noexcept {
    return UnixId(sid, kUnixGroups);
}

std::optional<CSid> ReadSid(const void* sid) noexcept {
    return ReadSid(sid, SECURITY_MAX_SID_SIZE);
}

std::optional<CSid> ReadSid(const void* sid, std::size_t room) noexcept {
    if (!sid || room < SidSize(0)) return std::nullopt;
    CSid out;
    std::memcpy(static_cast<void*>(&out), sid, SidSize(0));
    if (out.revision != SID_REVISION || out.count > SID_MAX_SUB_AUTHORITIES || out.Size() > room) return std::nullopt;
    std::memcpy(static_cast<void*>(&out), sid, out.Size());
    return out;
}

std::optional<CSid> ParseSid(std::u16string_view text) noexcept {
    for (const auto& alias : kAliases) {
        if (text == alias.letters) return alias.sid();
    }
    if (!text.starts_with(u"S-1-") && !text.starts_with(u"s-1-")) return std::nullopt;
    text.remove_prefix(4);
    const auto authority = TakeNumber(text, 0xFFFF'FFFF'FFFF);
    if (!authority) return std::nullopt;
    CSid sid;
    for (int i = 0; i < 6; ++i) sid.authority.Value[i] = static_cast<BYTE>(*authority >> (40 - 8 * i));
    while (TakeHyphen(text)) {
        const auto part = TakeNumber(text, 0xFFFF'FFFF);
        if (!part || sid.count == SID_MAX_SUB_AUTHORITIES) return std::nullopt;
        sid.parts[sid.count++] = static_cast<DWORD>(*part);
    }
    return text.empty() && sid.count > 0 ? std::optional(sid) : std::nullopt;
}

std::string SidText(const CSid& sid) {
    std::uint64_t authority = 0;
    for (const BYTE byte : sid.authority.Value) authority = authority << 8 | byte;
    std::string text = "S-1-" + std::to_string(authority);
    for (BYTE i = 0; i < sid.count; ++i) text += "-" + std::to_string(sid.parts[i]);
    return text;
}

BOOL WINAPI IsValidSid(PSID sid) {
    return ReadSid(sid).has_value();
}

BOOL WINAPI EqualSid(PSID a, PSID b) {
    const std::optional<CSid> first = ReadSid(a);
    return first && first == ReadSid(b);
}

DWORD WINAPI GetLengthSid(PSID sid) {
    return sid ? SidSize(static_cast<const SID*>(sid)->SubAuthorityCount) : 0;
}

BOOL WINAPI CopySid(DWORD size, PSID to, PSID from) {
    return Succeeds([&]() -> DWORD {
        if (!to) return ERROR_INVALID_PARAMETER;
        const std::optional<CSid> sid = ReadSid(from);
        if (!sid) return ERROR_INVALID_SID;
        if (size < sid->Size()) return ERROR_INSUFFICIENT_BUFFER;
        std::memcpy(to, &*sid, sid->Size());
        return ERROR_SUCCESS;
    });
}

BOOL WINAPI InitializeSid(PSID sid, SID_IDENTIFIER_AUTHORITY* authority, BYTE subAuthorities) {
    return Succeeds([&]() -> DWORD {
        if (!sid || !authority || subAuthorities > SID_MAX_SUB_AUTHORITIES) return ERROR_INVALID_PARAMETER;
        CSid made;
        made.count = subAuthorities;
        made.authority = *authority;
        std::memcpy(sid, &made, made.Size());
        return ERROR_SUCCESS;
    });
}

DWORD* WINAPI GetSidSubAuthority(PSID sid, DWORD index) {
    return static_cast<SID*>(sid)->SubAuthority + index;
}

BYTE* WINAPI GetSidSubAuthorityCount(PSID sid) {
    return &static_cast<SID*>(sid)->SubAuthorityCount;
}

BOOL WINAPI ConvertStringSidToSidW(LPCWSTR text, PSID* sid) {
    return Succeeds([&]() -> DWORD {
        if (!text || !sid) return ERROR_INVALID_PARAMETER;
        const std::optional<CSid> parsed = ParseSid(text);
        if (!parsed) return ERROR_INVALID_SID;
        void* block = std::malloc(parsed->Size());
        if (!block) return ERROR_NOT_ENOUGH_MEMORY;
        std::memcpy(block, &*parsed, parsed->Size());
        *sid = block;
        return ERROR_SUCCESS;
    });
}

BOOL WINAPI ConvertSidToStringSidW(PSID sid, LPWSTR* text) {
    return Succeeds([&]() -> DWORD {
        if (!sid || !text) return ERROR_INVALID_PARAMETER;
        const std::optional<CSid> read = ReadSid(sid);
        if (!read) return ERROR_INVALID_SID;
        const std::string narrow = SidText(*read);
        auto* out = static_cast<WCHAR*>(std::malloc((narrow.size() + 1) * sizeof(WCHAR)));
        if (!out) return ERROR_NOT_ENOUGH_MEMORY;
        std::copy_n(narrow.c_str(), narrow.size() + 1, out);
        *text = out;
        return ERROR_SUCCESS;
    });
}

void* WINAPI LocalAlloc(UINT flags, SIZE_T size) {
    void* const block = flags == LMEM_FIXED ? std::malloc(size ? size : 1) : nullptr;
    if (!block) SetLastError(flags == LMEM_FIXED ? ERROR_NOT_ENOUGH_MEMORY : ERROR_INVALID_PARAMETER);
    return block;
}

void* WINAPI LocalFree(void* block) {
    std::free(block);
    return nullptr;
}
