// Names of accounts and their SIDs.
#include "win/account.h"

#include <algorithm>
#include <cstring>

#include "AccountName.h"
#include "BoolCall.h"
#include "Nss.h"
#include "Utf8.h"
#include "win/security.h"

namespace {

struct CAccountText {
    std::u16string name;
    std::u16string domain;
    SID_NAME_USE use = SidTypeUnknown;
};

// The use stays unknown for a SID that nobody has.
CAccountText TextOf(const CSid& sid) {
    // Of uid 0 the platform's name is asked for more often than root's.
    for (const CWellKnown& account : WellKnownAccounts()) {
        if (account.sid() == sid) return {std::u16string(account.name), std::u16string(account.domain), account.use};
    }
    if (const auto user = UserOf(sid)) {
        if (const auto known = NssUser(*user)) return {FromUtf8(known->name), HostName(), SidTypeUser};
    } else if (const auto group = GroupOf(sid)) {
        if (const auto known = NssGroupName(*group)) return {FromUtf8(*known), HostName(), SidTypeGroup};
    }
    return {};
}

// Who gave no room at all is told what is needed, with the NUL; else the length comes back without it.
bool PutText(const std::u16string& text, LPWSTR out, DWORD& room) noexcept {
    const bool fits = out && text.size() < room;
    if (fits) std::copy_n(text.c_str(), text.size() + 1, out);
    room = static_cast<DWORD>(text.size() + (room == 0 ? 1 : 0));
    return fits;
}

}  // namespace

BOOL WINAPI LookupAccountNameW(LPCWSTR system, LPCWSTR account, PSID sid, DWORD* sidSize, LPWSTR domain,
                               DWORD* domainSize, SID_NAME_USE* use) {
    return Succeeds([&]() -> DWORD {
        if ((system && *system) || !account || !sidSize || !domainSize || !use) return ERROR_INVALID_PARAMETER;
        const CNamedAccount found = FindAccount(account);
        if (found.use == SidTypeUnknown) return ERROR_NONE_MAPPED;
        const std::u16string text(found.domain);
        const bool fits = sid && *sidSize >= found.sid.Size() && domain && *domainSize > text.size();
        *sidSize = found.sid.Size();
        *domainSize = static_cast<DWORD>(text.size() + (fits ? 0 : 1));
        if (!fits) return ERROR_INSUFFICIENT_BUFFER;
        std::memcpy(sid, &found.sid, found.sid.Size());
        std::copy_n(text.c_str(), text.size() + 1, domain);
        *use = found.use;
        return ERROR_SUCCESS;
    });
}

BOOL WINAPI LookupAccountSidW(LPCWSTR system, PSID sid, LPWSTR name, DWORD* nameRoom, LPWSTR domain, DWORD* domainRoom,
                              SID_NAME_USE* use) {
    return Succeeds([&]() -> DWORD {
        if ((system && *system) || !nameRoom || !domainRoom || !use) return ERROR_INVALID_PARAMETER;
        const std::optional<CSid> read = ReadSid(sid);
        if (!read) return ERROR_INVALID_SID;
        const CAccountText text = TextOf(*read);
        if (text.use == SidTypeUnknown) return ERROR_NONE_MAPPED;
        const bool nameFits = PutText(text.name, name, *nameRoom);
        const bool domainFits = PutText(text.domain, domain, *domainRoom);
        if (!nameFits || !domainFits) return ERROR_INSUFFICIENT_BUFFER;
        *use = text.use;
        return ERROR_SUCCESS;
    });
}
