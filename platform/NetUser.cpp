// What is told of one user.
#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "AccountName.h"
#include "Identity.h"
#include "Nss.h"
#include "RegistryCall.h"
#include "RegistryName.h"
#include "Utf8.h"
#include "lm.h"

namespace {

bool IsServedHere(LPCWSTR server) {
    if (!server || !*server) return true;
    std::u16string_view name(server);
    if (name.starts_with(u"\\\\")) name.remove_prefix(2);
    return IsThisComputer(name);
}

DWORD GetInfo(const std::string& name, BYTE** buffer) {
    // The system's own account is uid 0, unless somebody really bears that name.
    std::optional<CNssUser> user = NssUserNamed(name);
    if (!user && name == "SYSTEM") user = NssUser(0);
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
        if (!IsServedHere(server)) return ERROR_BAD_NETPATH;
        return GetInfo(ToUtf8(user), buffer);
    }));
}

DWORD WINAPI NetApiBufferFree(LPVOID buffer) {
    std::free(buffer);
    return NERR_Success;
}
