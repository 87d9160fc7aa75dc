#include "AccountName.h"

#include <algorithm>

#include "Nss.h"
#include "RegistryName.h"
#include "Utf8.h"

namespace {

const CWellKnown kAccounts[] = {
    {SystemSid, u"NT AUTHORITY", u"SYSTEM", SidTypeWellKnownGroup},
    {AnonymousSid, u"NT AUTHORITY", u"ANONYMOUS LOGON", SidTypeWellKnownGroup},
    {AdministratorsSid, u"BUILTIN", u"Administrators", SidTypeAlias},
    {UsersSid, u"BUILTIN", u"Users", SidTypeAlias},
    {EveryoneSid, u"", u"Everyone", SidTypeWellKnownGroup},
};

}  // namespace

std::span<const CWellKnown> WellKnownAccounts() noexcept {
    return kAccounts;
}

const CWellKnown* WellKnownNamed(std::u16string_view domain, std::u16string_view name) noexcept {
    const auto found = std::find_if(std::begin(kAccounts), std::end(kAccounts), [&](const CWellKnown& account) {
        return SameName(account.name, name) && (domain.empty() || SameName(account.domain, domain));
    });
    return found == std::end(kAccounts) ? nullptr : found;
}

CNamedAccount FindAccount(std::u16string_view text) {
    const CAccountName account(text);
    const CWellKnown* const inItsDomain =
        account.domain.empty() ? nullptr : WellKnownNamed(account.domain, account.name);
    if (inItsDomain) return {inItsDomain->sid(), inItsDomain->use, inItsDomain->domain};
    const std::string name = ToUtf8(account.name);
    if (const auto user = NssUserNamed(name)) return {SidOfUser(user->user), SidTypeUser, {}};
    if (const auto group = NssGroupNamed(name)) return {SidOfGroup(*group), SidTypeGroup, {}};
    const CWellKnown* const anywhere = account.domain.empty() ? WellKnownNamed({}, account.name) : nullptr;
    if (anywhere) return {anywhere->sid(), anywhere->use, anywhere->domain};
    return {};
}
