#include "HiveFiles.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <ctime>

#include "File.h"
#include "HiveDatabase.h"
#include "HiveError.h"
#include "HiveGeneration.h"

namespace {

constexpr mode_t kPrivateMode = 0600;

DWORD Failed() noexcept {
    return HiveErrorFromErrno(errno);
}

// The access list as the kernel takes it: owner reads and writes, one more user reads, nobody else.
struct CAclEntry {
    std::uint16_t tag;
    std::uint16_t permissions;
    std::uint32_t id;
};
struct CAcl {
    std::uint32_t version;
    CAclEntry owner, user, group, mask, others;
};
static_assert(sizeof(CAcl) == 4 + 5 * 8);

constexpr std::uint16_t kRead = 4;
constexpr std::uint16_t kReadWrite = 6;
constexpr std::uint32_t kNoId = 0xFFFFFFFF;

CAcl ReadableBy(uid_t user) noexcept {
    return {
        2, {0x01, kReadWrite, kNoId}, {0x02, kRead, user}, {0x04, 0, kNoId}, {0x10, kRead, kNoId}, {0x20, 0, kNoId}};
}

bool NeedsAcl(const CHiveFiles& files) noexcept {
    return files.isPrivate && files.reader && *files.reader != geteuid() && geteuid() == 0;
}

DWORD SetAccess(const CHiveFiles& files, int file) noexcept {
    if (fchmod(file, files.isPrivate ? kPrivateMode : kSharedMode) != 0) return Failed();
    if (!NeedsAcl(files)) return ERROR_SUCCESS;
    const CAcl acl = ReadableBy(*files.reader);
    if (fsetxattr(file, "system.posix_acl_access", &acl, sizeof acl, 0) == 0 || errno == ENOTSUP) return ERROR_SUCCESS;
    return Failed();
}

DWORD WriteAll(int file, const void* content, std::size_t size) noexcept {
    const char* at = static_cast<const char*>(content);
    while (size > 0) {
        const ssize_t written = write(file, at, size);
        if (written < 0 && errno == EINTR) continue;
        if (written < 0) return Failed();
        at += written;
        size -= static_cast<std::size_t>(written);
    }
    return ERROR_SUCCESS;
}

// What a removed hive left behind belongs to no new one: a log would be played back into it. It is unlinked and not
// cut, since processes may still have it mapped.
DWORD PutEmpty(const CHiveFiles& files, const std::string& path) {
    if (unlink(path.c_str()) != 0 && errno != ENOENT) return Failed();
    const CFile file(open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, kPrivateMode));
    return file ? SetAccess(files, file.Get()) : Failed();
}

// Waits for whoever else makes the same hive, but not for ever: the lock goes with its process.
DWORD LockExclusively(int file) noexcept {
    constexpr int kTries = 2000;
    constexpr timespec kPause = {0, 5'000'000};
    for (int tries = 0; flock(file, LOCK_EX | LOCK_NB) != 0; ++tries) {
        if (errno != EWOULDBLOCK && errno != EINTR) return Failed();
        if (tries == kTries) return ERROR_BUSY;
        nanosleep(&kPause, nullptr);
    }
    return ERROR_SUCCESS;
}

// An empty file under the temporary name, locked. One that was put in place, or replaced, while this process waited is
// not the one that others will lock. One with content was left by a process that died; it may be the hive itself under
// its second name, so that it is never cut.
DWORD LockNewFile(const std::string& path, CFile& file) {
    for (;;) {
        file.Reset(open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, kPrivateMode));
        if (!file) return Failed();
        if (const DWORD error = LockExclusively(file.Get())) return error;
        struct stat held, named;
        if (fstat(file.Get(), &held) != 0) return Failed();
        if (stat(path.c_str(), &named) != 0 || held.st_ino != named.st_ino || held.st_dev != named.st_dev) continue;
        if (held.st_size == 0) return ERROR_SUCCESS;
        if (unlink(path.c_str()) != 0 && errno != ENOENT) return Failed();
    }
}

// Not every file system can; the hive is whole either way.
void SyncFolder(const std::string& folder) noexcept {
    const CFile file(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (file) fsync(file.Get());
}

DWORD MakeLocked(const CHiveFiles& files, const std::string& path, int file) {
    if (const DWORD error = CHiveDatabase::Build(path)) return error;
    if (const DWORD error = SetAccess(files, file)) return error;
    // A power failure must not leave the name without the content.
    if (fsync(file) != 0) return Failed();
    for (const std::string* companion : {&files.log, &files.index}) {
        if (const DWORD error = PutEmpty(files, *companion)) return error;
    }
    if (const DWORD error = CHiveGeneration::Put(files)) return error;
    if (link(path.c_str(), files.database.c_str()) != 0 && errno != EEXIST) return Failed();
    SyncFolder(files.folder);
    return ERROR_SUCCESS;
}

}  // namespace

DWORD IdentifyFile(const std::string& path, CFileIdentity& identity) noexcept {
    identity = {};
    struct stat status;
    if (stat(path.c_str(), &status) != 0) return Failed();
    identity = {status.st_dev, status.st_ino};
    return ERROR_SUCCESS;
}

DWORD MakeHive(const CHiveFiles& files) {
    if (const DWORD error = MakeFolders(files.folder)) return error;
    const std::string path = files.database + "-new";
    CFile file;
    if (const DWORD error = LockNewFile(path, file)) return error;
    CFileIdentity present;
    DWORD error = IdentifyFile(files.database, present);
    if (error == ERROR_PATH_NOT_FOUND) error = MakeLocked(files, path, file.Get());
    unlink(path.c_str());
    return error;
}

DWORD PutHiveFile(const CHiveFiles& files, const std::string& path, const void* content, std::size_t size) {
    const std::string draft = path + "-new";
    unlink(draft.c_str());
    const CFile file(open(draft.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, kPrivateMode));
    if (!file) return Failed();
    DWORD error = WriteAll(file.Get(), content, size);
    if (!error) error = SetAccess(files, file.Get());
    if (!error && rename(draft.c_str(), path.c_str()) != 0) error = Failed();
    if (error) unlink(draft.c_str());
    return error;
}

void RepairAccess(const CHiveFiles& files) noexcept {
    if (!NeedsAcl(files)) return;
    const CAcl acl = ReadableBy(*files.reader);
    for (const std::string* path : {&files.log, &files.index}) {
        setxattr(path->c_str(), "system.posix_acl_access", &acl, sizeof acl, 0);
    }
}

bool MayWrite(const CHiveFiles& files) noexcept {
    return faccessat(AT_FDCWD, files.database.c_str(), W_OK, AT_EACCESS) == 0 || errno == ENOENT;
}
