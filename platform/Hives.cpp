#include "Hives.h"

#include <dirent.h>
#include <pthread.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <filesystem>

#include "Batch.h"
#include "HiveError.h"
#include "Home.h"
#include "RegistryCall.h"
#include "UserSid.h"

namespace {

constexpr const char* kDefaultRoot = "/var/lib/orvantis";
constexpr std::string_view kSuffix = ".db";
// Each of them has up to three files open.
constexpr int kManyConnections = 64;

std::string FirstRoot() {
    const char* root = secure_getenv("OV_ROOT");
    return root && *root ? std::filesystem::absolute(root).string() : kDefaultRoot;
}

CHiveFiles MachineFiles(const std::string& root) {
    return {root, "machine"};
}

}  // namespace

CHives& CHives::Get() {
    static CHives& hives = *new CHives;
    return hives;
}

CHives::CHives()
    : m_root(FirstRoot()),
      m_machine(CHive::Kind::Machine, MachineFiles(m_root)),
      m_users(CHive::Kind::Users, CHiveFiles()) {
    pthread_atfork(PrepareFork, EndForkInParent, EndForkInChild);
}

CHiveFiles CHives::UserFiles(std::string_view sid) const {
    CHiveFiles files(m_root + "/users", std::string(sid));
    files.isPrivate = true;
    files.reader = UserOfSid(sid);
    return files;
}

// A host may serve more users than it may have files open; what was read of the others stays in memory.
bool CHives::RestOldest() noexcept {
    CHive* oldest = nullptr;
    std::int64_t oldestUse = CHive::kNever;
    for (const auto& [sid, hive] : m_userHives) {
        const std::int64_t use = hive->LastUse();
        if (use >= oldestUse) continue;
        oldest = hive.get();
        oldestUse = use;
    }
    return oldest && oldest->Rest();
}

CHive& CHives::User(std::string_view sid) {
    const std::lock_guard lock(m_lock);
    while (CHiveDatabase::Count() > kManyConnections && RestOldest()) {
    }
    const auto found = m_userHives.find(sid);
    if (found != m_userHives.end()) return *found->second;
    auto hive = std::make_unique<CHive>(CHive::Kind::User, UserFiles(sid));
    return *m_userHives.emplace(sid, std::move(hive)).first->second;
}

DWORD CHives::List(std::vector<std::string>& sids) {
    sids.clear();
    std::string folder;
    {
        const std::lock_guard lock(m_lock);
        folder = m_root + "/users";
    }
    const std::unique_ptr<DIR, int (*)(DIR*)> entries(opendir(folder.c_str()), closedir);
    if (!entries) return errno == ENOENT || errno == ENOTDIR ? ERROR_SUCCESS : HiveErrorFromErrno(errno);
    while (const dirent* entry = readdir(entries.get())) {
        std::string_view name = entry->d_name;
        if (!name.ends_with(kSuffix)) continue;
        name.remove_suffix(kSuffix.size());
        if (IsSidText(name)) sids.emplace_back(name);
    }
    std::sort(sids.begin(), sids.end());
    return ERROR_SUCCESS;
}

template <class Visit>
void CHives::ForEach(Visit visit) {
    visit(m_machine, [this] { return MachineFiles(m_root); });
    visit(m_users, [] { return CHiveFiles(); });
    for (const auto& [sid, hive] : m_userHives) {
        visit(*hive, [this, &sid = sid] { return UserFiles(sid); });
    }
}

DWORD CHives::SetRoot(std::string path) {
    path = std::filesystem::absolute(path).lexically_normal().string();
    if (path.size() > 1 && path.ends_with('/')) path.pop_back();
    const std::lock_guard lock(m_lock);
    if (m_batches != 0) return ERROR_BUSY;
    // All that can fail comes first, so that it happens to all hives or to none.
    m_root.swap(path);
    std::vector<CHiveFiles> files;
    try {
        ForEach([&](CHive&, auto filesOf) { files.push_back(filesOf()); });
    } catch (...) {
        m_root.swap(path);
        throw;
    }
    std::size_t next = 0;
    ForEach([&](CHive& hive, auto) { hive.MoveTo(std::move(files[next++])); });
    return ERROR_SUCCESS;
}

void CHives::EnterBatch() {
    const std::lock_guard lock(m_lock);
    ++m_batches;
}

void CHives::LeaveBatch() noexcept {
    const std::lock_guard lock(m_lock);
    --m_batches;
}

const char* CHives::Root() {
    const std::lock_guard lock(m_lock);
    return m_root.c_str();
}

void CHives::PrepareFork() {
    CHives& hives = Get();
    hives.m_lock.lock();
    hives.ForEach([](CHive& hive, auto) { hive.PrepareFork(); });
}

void CHives::EndForkInParent() {
    CHives& hives = Get();
    hives.ForEach([](CHive& hive, auto) { hive.EndForkInParent(); });
    hives.m_lock.unlock();
}

void CHives::EndForkInChild() {
    CHives& hives = Get();
    hives.ForEach([](CHive& hive, auto) { hive.EndForkInChild(); });
    hives.m_batches = 0;
    hives.m_lock.unlock();
    CBatch::ForgetInChild();
}

DWORD WINAPI OvSetRoot(const char* path) {
    if (!path || !*path) return ERROR_INVALID_PARAMETER;
    return static_cast<DWORD>(RegistryCall([path] { return CHives::Get().SetRoot(path); }));
}

const char* WINAPI OvRoot() {
    try {
        return CHives::Get().Root();
    } catch (...) {
        return kDefaultRoot;
    }
}
