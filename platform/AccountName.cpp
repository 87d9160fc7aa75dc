#include "AccountName.h"

#include <unistd.h>

#include <algorithm>
#include <string>

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

std::u16string HostName() {
    char name[256] = {};
    gethostname(name, sizeof name - 1);
    return FromUtf8(name);
}

bool IsThisComputer(std::u16string_view name) noexcept {
    char host[256] = {};
    gethostname(host, sizeof host - 1);
    const std::string_view own(host);
    return name == u"." || SameName(name, std::u16string(own.begin(), own.end()));
}

CNamedAccount FindAccount(std::u16string_view text) {
    const CAccountName account(text);
    if (!account.domain.empty()) {
        const CWellKnown* const known = WellKnownNamed(account.domain, account.name);
        if (known) return {known->sid(), known->use, known->domain};
    }
    const bool own = !account.domain.empty() && IsThisComputer(account.domain);
    for (const std::u16string_view name : {text, own ? account.name : text}) {
        const std::string narrow = ToUtf8(name);
        if (const auto user = NssUserNamed(narrow)) return {SidOfUser(user->user), SidTypeUser, {}};
        if (const auto group = NssGroupNamed(narrow)) return {SidOfGroup(*group), SidTypeGroup, {}};
    }
    const CWellKnown* const anywhere = account.domain.empty() ? WellKnownNamed({}, account.name) : nullptr;
    if (anywhere) return {anywhere->sid(), anywhere->use, anywhere->domain};
    return {};
}
