// Files: opened for one handle alone, read, written, deleted.
//
// A file is this process's own while it holds the lock on it and the name still leads there: a name that was deleted or
// replaced between the opening and the locking leads to another file, and everything begins again.
#include "win/file.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/xattr.h>

#include <algorithm>
#include <mutex>

#include "BoolCall.h"
#include "File.h"
#include "FileAccess.h"
#include "Handles.h"
#include "HiveError.h"
#include "Paths.h"
#include "win/security.h"
#include "win/sync.h"

namespace {

constexpr char kHidden[] = "user.orvantis.hidden";

class COpenFile : public CKernelObject {
  public:
    explicit COpenFile(CFile file) noexcept : m_file(std::move(file)) {}
    int Get() const noexcept { return m_file.Get(); }

  private:
    CFile m_file;
};

DWORD ErrorOf(int error) noexcept {
    switch (error) {
        case ENOENT:
            return ERROR_FILE_NOT_FOUND;
        case EISDIR:
            return ERROR_ACCESS_DENIED;
        case EWOULDBLOCK:
        case ETXTBSY:
            return ERROR_SHARING_VIOLATION;
        case EEXIST:
            return ERROR_FILE_EXISTS;
        case EROFS:
            return ERROR_WRITE_PROTECT;
        case ENAMETOOLONG:
            return ERROR_FILENAME_EXCED_RANGE;
        case EIO:
            return ERROR_IO_DEVICE;
        default:
            return HiveErrorFromErrno(error);
    }
}

DWORD LastError() noexcept {
    return ErrorOf(errno);
}

// The folder of a file that is not there may be missing as well.
DWORD MissingError(const std::string& path) {
    const std::size_t slash = path.find_last_of('/');
    struct stat info;
    if (slash == std::string::npos || slash == 0 || stat(path.substr(0, slash).c_str(), &info) == 0) {
        return ERROR_FILE_NOT_FOUND;
    }
    return ERROR_PATH_NOT_FOUND;
}

bool IsHidden(const std::string& path) noexcept {
    return getxattr(path.c_str(), kHidden, nullptr, 0) >= 0;
}

// A link in a folder that others may write to could lead anywhere.
bool IsStrangersLink(const std::string& path) noexcept {
    struct stat info;
    return lstat(path.c_str(), &info) == 0 && S_ISLNK(info.st_mode) && info.st_uid != 0 && info.st_uid != geteuid();
}

enum class Found { kIs, kIsNot, kChanged };

// Whether the name leads to this open file, and it is a plain one.
Found Lookup(const std::string& path, int file, DWORD& error) noexcept {
    struct stat held, named;
    if (fstat(file, &held) != 0) return error = LastError(), Found::kIsNot;
    if (!S_ISREG(held.st_mode)) return error = ERROR_ACCESS_DENIED, Found::kIsNot;
    const bool same = stat(path.c_str(), &named) == 0 && named.st_ino == held.st_ino && named.st_dev == held.st_dev;
    return same ? Found::kIs : Found::kChanged;
}

struct CRequest {
    std::string path;
    int flags;
    int lock;  // of whoever shares the file, or of one alone
    DWORD disposition;
    bool hidden;
    const SECURITY_ATTRIBUTES* security;
};

DWORD CheckRequest(DWORD access, DWORD share, DWORD disposition, DWORD attributes, HANDLE templateFile) noexcept {
    constexpr DWORD kReadWrite = GENERIC_READ | GENERIC_WRITE;
    constexpr DWORD kShared = FILE_SHARE_READ | FILE_SHARE_WRITE;
    const bool cuts = disposition == CREATE_ALWAYS || disposition == TRUNCATE_EXISTING;
    const bool alone = (access == kReadWrite || (access == GENERIC_READ && !cuts)) && share == 0 &&
                       (cuts || disposition == OPEN_EXISTING);
    const bool appends = access == FILE_APPEND_DATA && share == kShared && disposition == OPEN_ALWAYS;
    const bool served =
        (alone || appends) && !templateFile && !(attributes & ~(FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_NORMAL));
    return served ? ERROR_SUCCESS : ERROR_INVALID_PARAMETER;
}

DWORD LockNow(int file, int lock) noexcept {
    while (flock(file, lock | LOCK_NB) != 0) {
        if (errno != EINTR) return LastError();
    }
    return ERROR_SUCCESS;
}

DWORD OpenPresent(const CRequest& request, CFile& file) {
    for (;;) {
        if (IsStrangersLink(request.path)) return ERROR_ACCESS_DENIED;
        // Nothing here waits: a pipe without a partner would.
        file.Reset(open(request.path.c_str(), request.flags | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
        if (!file) return errno == ENOENT ? MissingError(request.path) : LastError();
        if (const DWORD error = LockNow(file.Get(), request.lock)) return error;
        DWORD error = ERROR_SUCCESS;
        const Found found = Lookup(request.path, file.Get(), error);
        if (found == Found::kIsNot) return error;
        if (found == Found::kIs) return ERROR_SUCCESS;
    }
}

DWORD MakeNew(const CRequest& request, CFile& file) {
    mode_t mode;
    if (const DWORD error = ModeOfNewFile(request.security, mode)) return error;
    file.Reset(open(request.path.c_str(), request.flags | O_CREAT | O_EXCL | O_CLOEXEC, S_IRUSR | S_IWUSR));
    if (!file) return errno == ENOENT ? static_cast<DWORD>(ERROR_PATH_NOT_FOUND) : LastError();
    if (const DWORD error = LockNow(file.Get(), request.lock)) return error;
    if (request.hidden) fsetxattr(file.Get(), kHidden, "1", 1, 0);  // not every file system has such attributes
    return fchmod(file.Get(), mode) == 0 ? ERROR_SUCCESS : LastError();
}

// A file that is there, cut if that is asked for, and only when the lock is held: whoever holds it may be writing.
DWORD OpenFor(const CRequest& request, CFile& file) {
    if (const DWORD error = OpenPresent(request, file)) return error;
    if (request.disposition == OPEN_ALWAYS) return ERROR_SUCCESS;
    const bool anew = request.disposition == CREATE_ALWAYS;
    if (anew && !request.hidden && IsHidden(request.path)) return ERROR_ACCESS_DENIED;
    if (ftruncate(file.Get(), 0) != 0) return LastError();
    return ERROR_SUCCESS;
}

// `existed`: success is told with an error code.
DWORD OpenAs(const CRequest& request, CFile& file, bool& existed) {
    if (request.path.empty()) return ERROR_PATH_NOT_FOUND;
    if (request.disposition == OPEN_EXISTING) return OpenPresent(request, file);
    if (request.disposition == TRUNCATE_EXISTING) return OpenFor(request, file);
    for (;;) {
        const DWORD made = MakeNew(request, file);
        if (made != ERROR_FILE_EXISTS) return made;
        const DWORD opened = OpenFor(request, file);
        existed = opened == ERROR_SUCCESS;
        if (opened != ERROR_FILE_NOT_FOUND) return opened;
    }
}

// Moves bytes until all are through, or no more come.
template <class Move>
DWORD MoveAll(DWORD size, DWORD* moved, Move move) noexcept {
    DWORD done = 0;
    DWORD error = ERROR_SUCCESS;
    while (done < size) {
        const ssize_t part = move(done, size - done);
        if (part < 0 && errno == EINTR) continue;
        if (part < 0) error = LastError();
        if (part <= 0) break;
        done += static_cast<DWORD>(part);
    }
    if (moved) *moved = done;
    return error;
}

template <class Use>
BOOL UseFile(HANDLE handle, Use use) noexcept {
    return Succeeds([&]() -> DWORD {
        const auto file = ObjectOf<COpenFile>(handle);
        return file ? use(file->Get()) : static_cast<DWORD>(ERROR_INVALID_HANDLE);
    });
}

}  // namespace

HANDLE WINAPI CreateFileW(LPCWSTR path, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES security, DWORD disposition,
                          DWORD attributes, HANDLE templateFile) {
    HANDLE handle = INVALID_HANDLE_VALUE;
    bool existed = false;
    const BOOL opened = Succeeds([&]() -> DWORD {
        if (const DWORD error = CheckRequest(access, share, disposition, attributes, templateFile)) return error;
        const int flags = access == FILE_APPEND_DATA ? O_WRONLY | O_APPEND
                          : (access & GENERIC_WRITE) ? O_RDWR
                                                     : O_RDONLY;
        const CRequest request = {
            path ? PosixPath(path) : std::string(),    flags,   share ? LOCK_SH : LOCK_EX, disposition,
            (attributes & FILE_ATTRIBUTE_HIDDEN) != 0, security};
        CFile file;
        if (const DWORD error = OpenAs(request, file, existed)) return error;
        const HANDLE made = OpenHandle(std::make_shared<COpenFile>(std::move(file)));
        if (!made) return ERROR_NOT_ENOUGH_MEMORY;
        handle = made;
        return ERROR_SUCCESS;
    });
    if (opened && (disposition == CREATE_ALWAYS || disposition == OPEN_ALWAYS)) {
        SetLastError(existed ? static_cast<DWORD>(ERROR_ALREADY_EXISTS) : static_cast<DWORD>(ERROR_SUCCESS));
    }
    return handle;
}

DWORD WINAPI GetFileSize(HANDLE handle, DWORD* high) {
    ULONGLONG size = 0;
    const BOOL known = UseFile(handle, [&](int file) -> DWORD {
        struct stat info;
        if (fstat(file, &info) != 0) return LastError();
        size = static_cast<ULONGLONG>(info.st_size);
        return ERROR_SUCCESS;
    });
    if (!known) return INVALID_FILE_SIZE;
    if (high) *high = static_cast<DWORD>(size >> 32);
    return static_cast<DWORD>(size);
}

DWORD WINAPI SetFilePointer(HANDLE handle, LONG distance, LONG* high, DWORD from) {
    DWORD place = INVALID_SET_FILE_POINTER;
    UseFile(handle, [&](int file) -> DWORD {
        if (high || from != FILE_BEGIN) return ERROR_INVALID_PARAMETER;
        if (distance < 0) return ERROR_NEGATIVE_SEEK;
        const off_t at = lseek(file, distance, SEEK_SET);
        if (at < 0) return LastError();
        place = static_cast<DWORD>(at);
        return ERROR_SUCCESS;
    });
    return place;
}

BOOL WINAPI ReadFile(HANDLE handle, LPVOID buffer, DWORD size, DWORD* moved, OVERLAPPED* overlapped) {
    return UseFile(handle, [&](int file) -> DWORD {
        if (overlapped) return ERROR_INVALID_PARAMETER;
        return MoveAll(size, moved,
                       [&](DWORD at, DWORD left) { return read(file, static_cast<BYTE*>(buffer) + at, left); });
    });
}

BOOL WINAPI WriteFile(HANDLE handle, LPCVOID buffer, DWORD size, DWORD* moved, OVERLAPPED* overlapped) {
    return UseFile(handle, [&](int file) -> DWORD {
        if (overlapped) return ERROR_INVALID_PARAMETER;
        return MoveAll(size, moved,
                       [&](DWORD at, DWORD left) { return write(file, static_cast<const BYTE*>(buffer) + at, left); });
    });
}

BOOL WINAPI FlushFileBuffers(HANDLE handle) {
    return UseFile(handle, [](int file) -> DWORD { return fsync(file) == 0 ? ERROR_SUCCESS : LastError(); });
}

BOOL WINAPI DeleteFileW(LPCWSTR path) {
    return Succeeds([&]() -> DWORD {
        const std::string name = path ? PosixPath(path) : std::string();
        if (name.empty()) return ERROR_PATH_NOT_FOUND;
        struct stat info;
        if (lstat(name.c_str(), &info) != 0) return errno == ENOENT ? MissingError(name) : LastError();
        if (S_ISDIR(info.st_mode)) return ERROR_ACCESS_DENIED;
        CFile file;
        if (S_ISREG(info.st_mode)) {
            if (const DWORD error = OpenPresent({name, O_RDWR, LOCK_EX, OPEN_EXISTING, false, nullptr}, file))
                return error;
        }
        return unlink(name.c_str()) == 0 ? ERROR_SUCCESS : LastError();
    });
}

DWORD WINAPI GetFileAttributesW(LPCWSTR path) {
    DWORD attributes = INVALID_FILE_ATTRIBUTES;
    Succeeds([&]() -> DWORD {
        const std::string name = path ? PosixPath(path) : std::string();
        struct stat info;
        if (name.empty()) return ERROR_PATH_NOT_FOUND;
        if (stat(name.c_str(), &info) != 0) return errno == ENOENT ? MissingError(name) : LastError();
        attributes = (S_ISDIR(info.st_mode) ? FILE_ATTRIBUTE_DIRECTORY : 0u) |
                     (info.st_mode & (S_IWUSR | S_IWGRP | S_IWOTH) ? 0u : FILE_ATTRIBUTE_READONLY) |
                     (IsHidden(name) ? FILE_ATTRIBUTE_HIDDEN : 0u);
        if (attributes == 0) attributes = FILE_ATTRIBUTE_NORMAL;
        return ERROR_SUCCESS;
    });
    return attributes;
}
