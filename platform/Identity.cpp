#include "Identity.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <mutex>
#include <utility>

#include "File.h"
#include "Hive.h"
#include "KeyUse.h"
#include "Nss.h"
#include "ProcessObject.h"
#include "Utf8.h"
#include "win/security.h"

namespace {

constexpr DWORD kOrdinary = SE_GROUP_MANDATORY | SE_GROUP_ENABLED_BY_DEFAULT | SE_GROUP_ENABLED;

// How long the process's own identity is taken for true, milliseconds.
constexpr std::int64_t kProcessIdentityAge = 1000;

// The texts of a REG_MULTI_SZ.
std::vector<std::string> ReadList(const CValue& value) {
    std::u16string text(value.size / sizeof(char16_t), u'\0');
    std::copy_n(value.data, text.size() * sizeof(char16_t), reinterpret_cast<BYTE*>(text.data()));
    std::vector<std::string> list;
    for (std::size_t at = 0; at < text.size() && text[at] != 0;) {
        const std::size_t end = std::min(text.find(u'\0', at), text.size());
        list.push_back(ToUtf8(std::u16string_view(text).substr(at, end - at)));
        at = end + 1;
    }
    return list;
}

// While the machine's hive cannot be read, nobody is an administrator but uid 0.
std::vector<std::string> AdministratorGroups() {
    std::vector<std::string> groups;
    const CKeyUse use(HKEY_LOCAL_MACHINE);
    const DWORD error = use.Hive().Read([&](CHiveView& view) -> DWORD {
        CKeyPath path(use.Start(KEY_WOW64_64KEY), u"SOFTWARE\\Orvantis\\Platform");
        CKey* key;
        if (const DWORD missing = use.Find(view, path, key)) return missing;
        CValue* value;
        if (const DWORD missing = view.FindValue(*key, CSoughtName(u"AdministratorGroups"), value)) return missing;
        if (value->type == REG_MULTI_SZ) groups = ReadList(*value);  // what is no list names nobody
        return ERROR_SUCCESS;
    });
    if (error == ERROR_FILE_NOT_FOUND) return {"sudo", "wheel", "admin"};
    return groups;
}

bool IsAdministrator(uid_t user, const std::vector<gid_t>& groups,
                     const std::vector<std::string>& administratorGroups) {
    if (user == 0) return true;
    return std::any_of(administratorGroups.begin(), administratorGroups.end(), [&](const std::string& name) {
        const std::optional<gid_t> group = NssGroupNamed(name);
        return group && std::find(groups.begin(), groups.end(), *group) != groups.end();
    });
}

void AddGroup(CIdentity& identity, const CSid& sid) {
    if (identity.Holds(sid)) return;
    const bool owns = sid == AdministratorsSid();
    if (owns) identity.integrity = kHighIntegrity;
    identity.groups.push_back({sid, owns ? kOrdinary | SE_GROUP_OWNER : kOrdinary});
}

std::shared_ptr<CIdentity> NewIdentity(const CSid& user, DWORD session) {
    auto identity = std::make_shared<CIdentity>();
    identity->user = user;
    identity->userText = SidText(user);
    identity->session = session;
    return identity;
}

CIdentityRef MakeIdentity(uid_t user, std::optional<gid_t> primaryGroup, DWORD session,
                          const std::vector<std::string>& administratorGroups) {
    auto identity = NewIdentity(SidOfUser(user), session);
    identity->integrity = kMediumIntegrity;
    const std::optional<CNssUser> known = NssUser(user);
    if (!primaryGroup && known) primaryGroup = known->group;
    std::vector<gid_t> groups;
    if (primaryGroup) groups.push_back(*primaryGroup);
    if (known) groups = NssGroupsOf(known->name, *primaryGroup);
    identity->primaryGroup = primaryGroup ? SidOfGroup(*primaryGroup) : UsersSid();
    for (const gid_t group : groups) AddGroup(*identity, SidOfGroup(group));
    AddGroup(*identity, EveryoneSid());
    AddGroup(*identity, UsersSid());
    if (IsAdministrator(user, groups, administratorGroups)) AddGroup(*identity, AdministratorsSid());
    return identity;
}

class CProcessIdentity {
  public:
    CIdentityRef Get() {
        const uid_t user = geteuid();
        const gid_t group = getegid();
        // Changes with the root and with the registry, and is cheaply read.
        std::vector<std::string> administratorGroups = AdministratorGroups();
        const std::lock_guard lock(m_lock);
        const std::int64_t now = CoarseMilliseconds();
        const bool isSame = m_identity && user == m_user && group == m_group;
        if (isSame && now - m_made < kProcessIdentityAge && administratorGroups == m_administratorGroups) {
            return m_identity;
        }
        m_identity = MakeIdentity(user, group, SessionOf(getpid()).value_or(0), administratorGroups);
        m_user = user;
        m_group = group;
        m_administratorGroups = std::move(administratorGroups);
        m_made = now;
        return m_identity;
    }

  private:
    std::mutex m_lock;
    CIdentityRef m_identity;
    uid_t m_user = 0;
    gid_t m_group = 0;
    std::vector<std::string> m_administratorGroups;
    std::int64_t m_made = 0;  // milliseconds of the coarse clock
};

}  // namespace

bool CIdentity::Holds(const CSid& sid) const noexcept {
    return user == sid ||
           std::any_of(groups.begin(), groups.end(), [&](const CGroup& group) { return group.sid == sid; });
}

CIdentityRef IdentityOfUser(uid_t user, std::optional<gid_t> primaryGroup, DWORD session) {
    return MakeIdentity(user, primaryGroup, session, AdministratorGroups());
}

CIdentityRef ProcessIdentity() {
    return CProcessObject<CProcessIdentity>::Get().Get();
}

CIdentityRef AnonymousIdentity() {
    auto identity = NewIdentity(AnonymousSid(), 0);
    identity->primaryGroup = EveryoneSid();
    AddGroup(*identity, EveryoneSid());
    return identity;
}

CIdentityRef IdentityOfSids(std::span<const CSid> sids, DWORD session) {
    auto identity = NewIdentity(sids[0], session);
    const bool isAnonymous = sids[0] == AnonymousSid();
    if (!isAnonymous) identity->integrity = kMediumIntegrity;
    for (const CSid& group : sids.subspan(1)) {
        if (group != IntegritySid(group.parts[0])) AddGroup(*identity, group);
    }
    AddGroup(*identity, EveryoneSid());
    if (!isAnonymous) AddGroup(*identity, UsersSid());
    if (sids[0] == SystemSid()) AddGroup(*identity, AdministratorsSid());
    identity->primaryGroup = sids.size() > 1 ? sids[1] : isAnonymous ? EveryoneSid() : UsersSid();
    // A level that is declared stands over that of the groups.
    for (const CSid& sid : sids.subspan(1)) {
        if (sid == IntegritySid(sid.parts[0])) identity->integrity = sid.parts[0];
    }
    return identity;
}

std::optional<DWORD> SessionOf(pid_t process) noexcept {
    char path[40];
    std::snprintf(path, sizeof path, "/proc/%d", process);
    struct stat info;
    if (process <= 0 || stat(path, &info) != 0) return std::nullopt;
    std::snprintf(path, sizeof path, "/proc/%d/sessionid", process);
    const CFile file(open(path, O_RDONLY | O_CLOEXEC));
    char text[16];
    const ssize_t size = file ? read(file.Get(), text, sizeof text) : 0;
    DWORD session = 0;
    if (size > 0 && std::from_chars(text, text + size, session).ec != std::errc()) return 0;
    constexpr DWORD kNone = 0xFFFFFFFF;
    return session == kNone ? 0 : session;
}
