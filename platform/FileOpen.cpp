// A file is this process's own while it holds the lock on it and the name still leads there: a name that was deleted or
// replaced between the opening and the locking leads to another file, and everything begins again.
//
// Of links only those are followed that root or the user of this process put there: a link in a folder that others may
// write to could lead anywhere.
#include "FileOpen.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/xattr.h>

#include <climits>

#include "FileAccess.h"
#include "win/file.h"

namespace {

constexpr char kHidden[] = "user.orvantis.hidden";

DWORD LastError() noexcept {
    return FileErrorOf(errno);
}

// Puts what its own links lead to in the place of the path. The last part of the result is no link now, and whoever
// opens it with O_NOFOLLOW learns when it has become one.
DWORD FollowLinks(std::string& path) {
    constexpr int kMostLinks = 8;
    for (int links = 0; links < kMostLinks; ++links) {
        const CFile named(open(path.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
        struct stat info;
        // What is not there, or cannot be seen, is the business of the opening.
        if (!named || fstat(named.Get(), &info) != 0 || !S_ISLNK(info.st_mode)) return ERROR_SUCCESS;
        if (info.st_uid != 0 && info.st_uid != geteuid()) return ERROR_ACCESS_DENIED;
        char target[PATH_MAX];
        const ssize_t length = readlinkat(named.Get(), "", target, sizeof target);
        if (length <= 0) return LastError();
        const std::string to(target, static_cast<std::size_t>(length));
        path = to.front() == '/' ? to : path.substr(0, path.rfind('/') + 1) + to;  // npos + 1 is 0
    }
    return ERROR_CANT_RESOLVE_FILENAME;
}

// What is appended would be its to read and to change.
bool IsStrangers(const CFile& file) noexcept {
    struct stat info;
    return fstat(file.Get(), &info) != 0 || (info.st_uid != 0 && info.st_uid != geteuid());
}

enum class Found { kIs, kIsNot, kChanged };

// Whether the name leads to this open file, and it is a plain one.
Found Lookup(const std::string& path, int file, DWORD& error) noexcept {
    struct stat held, named;
    if (fstat(file, &held) != 0) return error = LastError(), Found::kIsNot;
    if (!S_ISREG(held.st_mode)) return error = ERROR_ACCESS_DENIED, Found::kIsNot;
    const bool same = lstat(path.c_str(), &named) == 0 && named.st_ino == held.st_ino && named.st_dev == held.st_dev;
    return same ? Found::kIs : Found::kChanged;
}

DWORD LockNow(int file, int lock) noexcept {
    while (flock(file, lock | LOCK_NB) != 0) {
        if (errno != EINTR) return LastError();
    }
    return ERROR_SUCCESS;
}

// Not every file system has such attributes.
void Hide(int file) noexcept {
    fsetxattr(file, kHidden, "1", 1, 0);
}

// Opens and locks; `changed` when the name leads elsewhere by now.
DWORD OpenOnce(const CFileRequest& request, int flags, CFile& file, bool& changed) {
    // Nothing here waits: a pipe without a partner would.
    const int always = O_CLOEXEC | O_NONBLOCK | O_NOCTTY | O_NOFOLLOW;
    file.Reset(open(request.path.c_str(), request.flags | flags | always, S_IRUSR | S_IWUSR));
    if (!file) return LastError();
    if (flags & O_CREAT) {
        mode_t mode;
        if (const DWORD error = ModeOfNewFile(request.security, mode)) return error;
        if (request.hidden) Hide(file.Get());
        if (fchmod(file.Get(), mode) != 0) return LastError();
    }
    DWORD error = LockNow(file.Get(), request.lock);
    if (error) return error;
    const Found found = Lookup(request.path, file.Get(), error);
    changed = found == Found::kChanged;
    return found == Found::kIsNot ? error : static_cast<DWORD>(ERROR_SUCCESS);
}

DWORD OpenPresent(const CFileRequest& request, CFile& file) {
    for (bool changed = true; changed;) {
        if (const DWORD error = OpenOnce(request, 0, file, changed)) return error;
    }
    return ERROR_SUCCESS;
}

// Cut only when the lock is held: whoever holds it may be writing.
DWORD Cut(const CFileRequest& request, const CFile& file) {
    const bool anew = request.disposition == CREATE_ALWAYS;
    if (anew && !request.hidden && IsHiddenFile(request.path)) return ERROR_ACCESS_DENIED;
    if (ftruncate(file.Get(), 0) != 0) return LastError();
    if (anew && request.hidden) Hide(file.Get());
    return ERROR_SUCCESS;
}

// A new file where there is none, else the one that is there.
DWORD OpenOrMake(const CFileRequest& request, CFile& file, bool& existed) {
    constexpr int kTries = 100;  // each time somebody else makes the file or takes it away in between
    for (int tries = 0; tries < kTries; ++tries) {
        bool changed = false;
        const DWORD made = OpenOnce(request, O_CREAT | O_EXCL, file, changed);
        if (!made && !changed) return ERROR_SUCCESS;
        if (made == ERROR_FILE_NOT_FOUND) return ERROR_PATH_NOT_FOUND;
        if (made && made != ERROR_FILE_EXISTS) return made;
        const DWORD opened = OpenPresent(request, file);
        existed = opened == ERROR_SUCCESS;
        if (opened != ERROR_FILE_NOT_FOUND) return opened;
    }
    return ERROR_SHARING_VIOLATION;
}

}  // namespace

DWORD FileErrorOf(int error) noexcept {
    switch (error) {
        case ENOENT:
            return ERROR_FILE_NOT_FOUND;
        case ENOTDIR:
            return ERROR_PATH_NOT_FOUND;
        case EMFILE:
        case ENFILE:
            return ERROR_TOO_MANY_OPEN_FILES;
        case EACCES:
        case EPERM:
        case EISDIR:
        case ENXIO:  // a socket, a pipe without a partner
        case ENODEV:
            return ERROR_ACCESS_DENIED;
        case ENOMEM:
            return ERROR_NOT_ENOUGH_MEMORY;
        case EROFS:
            return ERROR_WRITE_PROTECT;
        case EWOULDBLOCK:
        case ETXTBSY:
            return ERROR_SHARING_VIOLATION;
        case EEXIST:
            return ERROR_FILE_EXISTS;
        case ENOSPC:
        case EDQUOT:
        case EFBIG:
            return ERROR_DISK_FULL;
        case ENAMETOOLONG:
            return ERROR_FILENAME_EXCED_RANGE;
        case ELOOP:  // what was a file has become a link
            return ERROR_CANT_RESOLVE_FILENAME;
        case EINVAL:
            return ERROR_INVALID_NAME;
        case EIO:
            return ERROR_IO_DEVICE;
        default:
            return ERROR_GEN_FAILURE;
    }
}

DWORD MissingFileError(const std::string& path) {
    const std::size_t slash = path.find_last_of('/');
    struct stat info;
    if (slash == std::string::npos || slash == 0 || stat(path.substr(0, slash).c_str(), &info) == 0) {
        return ERROR_FILE_NOT_FOUND;
    }
    return ERROR_PATH_NOT_FOUND;
}

bool IsHiddenFile(const std::string& path) noexcept {
    return getxattr(path.c_str(), kHidden, nullptr, 0) >= 0;
}

DWORD OpenFile(CFileRequest request, CFile& file, bool& existed) {
    existed = false;
    if (request.path.empty()) return ERROR_PATH_NOT_FOUND;
    if (const DWORD error = FollowLinks(request.path)) return error;
    DWORD error;
    if (request.disposition == CREATE_ALWAYS || request.disposition == OPEN_ALWAYS) {
        error = OpenOrMake(request, file, existed);
    } else {
        error = OpenPresent(request, file);
        existed = error == ERROR_SUCCESS;
    }
    if (error == ERROR_FILE_NOT_FOUND) return MissingFileError(request.path);
    if (error) return error;
    const bool sharedWrite = request.lock == LOCK_SH && (request.flags & O_ACCMODE) != O_RDONLY;
    if (sharedWrite && existed && IsStrangers(file)) return ERROR_ACCESS_DENIED;
    const bool cuts = request.disposition == CREATE_ALWAYS || request.disposition == TRUNCATE_EXISTING;
    return cuts && existed ? Cut(request, file) : ERROR_SUCCESS;
}

// What OpenFile would open.
DWORD DeleteFile(std::string path) {
    if (path.empty()) return ERROR_PATH_NOT_FOUND;
    if (const DWORD error = FollowLinks(path)) return error;
    struct stat info;
    if (lstat(path.c_str(), &info) != 0) return errno == ENOENT ? MissingFileError(path) : LastError();
    if (S_ISDIR(info.st_mode)) return ERROR_ACCESS_DENIED;
    CFile file;
    if (S_ISREG(info.st_mode)) {
        const CFileRequest request = {path, O_RDWR, LOCK_EX, OPEN_EXISTING, false, nullptr};
        if (const DWORD error = OpenPresent(request, file)) return error;
    }
    return unlink(path.c_str()) == 0 ? ERROR_SUCCESS : LastError();
}
