// What is told of one user.
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "Identity.h"
#include "Nss.h"
#include "RegistryCall.h"
#include "RegistryName.h"
#include "Utf8.h"
#include "lm.h"

namespace {

bool IsThisComputer(LPCWSTR server) {
    if (!server || !*server) return true;
    std::u16string_view name(server);
    if (name.starts_with(u"\\\\")) name.remove_prefix(2);
    char host[256] = {};
    gethostname(host, sizeof host - 1);
    return SameName(name, FromUtf8(host));
}

DWORD GetInfo(const std::string& name, BYTE** buffer) {
    // The system's account has a name of its own where a SID is asked for it.
    const bool system = SameName(FromUtf8(name), std::u16string_view(u"SYSTEM"));
    const std::optional<CNssUser> user = system ? NssUser(0) : NssUserNamed(name);
    if (!user) return NERR_UserNotFound;
    const CIdentityRef identity = IdentityOfUser(user->user, user->group, 0);
    const std::u16string texts[] = {FromUtf8(user->name), FromUtf8(user->fullName), FromUtf8(user->home), u""};
    std::size_t size = sizeof(USER_INFO_11);
    for (const std::u16string& text : texts) size += (text.size() + 1) * sizeof(WCHAR);
    auto* const block = static_cast<BYTE*>(std::calloc(1, size));
    if (!block) return ERROR_NOT_ENOUGH_MEMORY;
    // The texts lie behind the structure; the last, empty one stands for all that are not known.
    LPWSTR at[std::size(texts)];
    auto* next = reinterpret_cast<LPWSTR>(block + sizeof(USER_INFO_11));
    for (std::size_t i = 0; i < std::size(texts); ++i) {
        at[i] = next;
        next = std::copy_n(texts[i].c_str(), texts[i].size() + 1, next);
    }
    USER_INFO_11 info = {};
    info.usri11_name = at[0];
    info.usri11_full_name = at[1];
    info.usri11_home_dir = at[2];
    info.usri11_comment = info.usri11_usr_comment = info.usri11_parms = at[3];
    info.usri11_logon_server = info.usri11_workstation = at[3];
    info.usri11_priv = identity->Holds(AdministratorsSid()) ? USER_PRIV_ADMIN : USER_PRIV_USER;
    std::memcpy(block, &info, sizeof info);
    *buffer = block;
    return NERR_Success;
}

}  // namespace

DWORD WINAPI NetUserGetInfo(LPCWSTR server, LPCWSTR user, DWORD level, BYTE** buffer) {
    if (!user || !buffer) return ERROR_INVALID_PARAMETER;
    *buffer = nullptr;
    return static_cast<DWORD>(RegistryCall([&]() -> DWORD {
        if (level != 11) return ERROR_INVALID_LEVEL;
        if (!IsThisComputer(server)) return ERROR_BAD_NETPATH;
        return GetInfo(ToUtf8(user), buffer);
    }));
}

DWORD WINAPI NetApiBufferFree(LPVOID buffer) {
    std::free(buffer);
    return NERR_Success;
}
