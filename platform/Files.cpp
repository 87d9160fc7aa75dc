// Files in use: what their handles stand for.
#include "win/file.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <atomic>

#include "BoolCall.h"
#include "FileOpen.h"
#include "Handles.h"
#include "Paths.h"
#include "win/security.h"
#include "win/sync.h"

namespace {

// A child that was forked while the file was open holds the lock as well; it goes when whoever opened the file closes
// it.
class COpenFile : public CKernelObject {
  public:
    COpenFile(CFile file, bool appends) noexcept : m_file(std::move(file)), m_appends(appends), m_process(getpid()) {}
    ~COpenFile() override {
        if (m_process == getpid()) flock(m_file.Get(), LOCK_UN);
    }
    int Get() const noexcept { return m_file.Get(); }

    // Whether the last move went to the end. What is written then goes there, wherever that is by then, in one step:
    // two processes that share a file never write over each other.
    void SetAtEnd(bool atEnd) noexcept {
        if (m_atEnd.exchange(atEnd, std::memory_order_relaxed) == atEnd || m_appends) return;
        const int flags = fcntl(m_file.Get(), F_GETFL);
        if (flags >= 0) fcntl(m_file.Get(), F_SETFL, atEnd ? flags | O_APPEND : flags & ~O_APPEND);
    }

  private:
    const CFile m_file;
    const bool m_appends;  // from the beginning and for good
    std::atomic<bool> m_atEnd{false};
    const pid_t m_process;
};

DWORD LastError() noexcept {
    return FileErrorOf(errno);
}

DWORD CheckRequest(DWORD access, DWORD share, DWORD disposition, DWORD attributes, HANDLE templateFile) noexcept {
    constexpr DWORD kReadWrite = GENERIC_READ | GENERIC_WRITE;
    constexpr DWORD kShared = FILE_SHARE_READ | FILE_SHARE_WRITE;
    const bool cuts = disposition == CREATE_ALWAYS || disposition == TRUNCATE_EXISTING;
    const bool present = disposition == OPEN_EXISTING;
    const bool alone = share == 0 && (access == kReadWrite      ? cuts || present || disposition == OPEN_ALWAYS
                                      : access == GENERIC_WRITE ? disposition == CREATE_ALWAYS
                                                                : access == GENERIC_READ && present);
    const bool reads = share == kShared && access == GENERIC_READ && present;
    const bool writes =
        share == kShared && access == GENERIC_WRITE && (disposition == CREATE_ALWAYS || disposition == OPEN_ALWAYS);
    const bool appends = share == kShared && access == FILE_APPEND_DATA && disposition == OPEN_ALWAYS;
    const bool served = (alone || reads || writes || appends) && !templateFile &&
                        !(attributes & ~(FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_NORMAL | FILE_FLAG_SEQUENTIAL_SCAN));
    return served ? ERROR_SUCCESS : ERROR_INVALID_PARAMETER;
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
        return file ? use(*file) : static_cast<DWORD>(ERROR_INVALID_HANDLE);
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
                          : access == GENERIC_WRITE  ? O_WRONLY
                          : (access & GENERIC_WRITE) ? O_RDWR
                                                     : O_RDONLY;
        const bool hidden = (attributes & FILE_ATTRIBUTE_HIDDEN) != 0;
        CFile file;
        if (const DWORD error = OpenFile({path ? PosixPath(path) : std::string(), flags, share ? LOCK_SH : LOCK_EX,
                                          disposition, hidden, security},
                                         file, existed)) {
            return error;
        }
        const HANDLE made = OpenHandle(std::make_shared<COpenFile>(std::move(file), access == FILE_APPEND_DATA));
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
    const BOOL known = UseFile(handle, [&](const COpenFile& file) -> DWORD {
        struct stat info;
        if (fstat(file.Get(), &info) != 0) return LastError();
        size = static_cast<ULONGLONG>(info.st_size);
        return ERROR_SUCCESS;
    });
    if (!known) return INVALID_FILE_SIZE;
    if (high) *high = static_cast<DWORD>(size >> 32);
    return static_cast<DWORD>(size);
}

DWORD WINAPI SetFilePointer(HANDLE handle, LONG distance, LONG* high, DWORD from) {
    DWORD place = INVALID_SET_FILE_POINTER;
    UseFile(handle, [&](COpenFile& file) -> DWORD {
        if (high || (from != FILE_BEGIN && from != FILE_END)) return ERROR_INVALID_PARAMETER;
        const off_t at = lseek(file.Get(), distance, from == FILE_END ? SEEK_END : SEEK_SET);
        if (at < 0) return errno == EINVAL ? static_cast<DWORD>(ERROR_NEGATIVE_SEEK) : LastError();
        file.SetAtEnd(from == FILE_END && distance == 0);
        place = static_cast<DWORD>(at);
        return ERROR_SUCCESS;
    });
    return place;
}

BOOL WINAPI ReadFile(HANDLE handle, LPVOID buffer, DWORD size, DWORD* moved, OVERLAPPED* overlapped) {
    return UseFile(handle, [&](const COpenFile& file) -> DWORD {
        if (overlapped) return ERROR_INVALID_PARAMETER;
        return MoveAll(size, moved,
                       [&](DWORD at, DWORD left) { return read(file.Get(), static_cast<BYTE*>(buffer) + at, left); });
    });
}

BOOL WINAPI WriteFile(HANDLE handle, LPCVOID buffer, DWORD size, DWORD* moved, OVERLAPPED* overlapped) {
    return UseFile(handle, [&](const COpenFile& file) -> DWORD {
        if (overlapped) return ERROR_INVALID_PARAMETER;
        return MoveAll(size, moved, [&](DWORD at, DWORD left) {
            return write(file.Get(), static_cast<const BYTE*>(buffer) + at, left);
        });
    });
}

BOOL WINAPI FlushFileBuffers(HANDLE handle) {
    return UseFile(handle,
                   [](const COpenFile& file) -> DWORD { return fsync(file.Get()) == 0 ? ERROR_SUCCESS : LastError(); });
}

BOOL WINAPI CreateDirectoryW(LPCWSTR path, LPSECURITY_ATTRIBUTES security) {
    return Succeeds([&]() -> DWORD {
        if (security) return ERROR_INVALID_PARAMETER;
        const std::string name = path ? PosixPath(path) : std::string();
        if (name.empty()) return ERROR_PATH_NOT_FOUND;
        if (mkdir(name.c_str(), kFolderMode) == 0) return ERROR_SUCCESS;
        if (errno == EEXIST) return ERROR_ALREADY_EXISTS;
        return errno == ENOENT ? static_cast<DWORD>(ERROR_PATH_NOT_FOUND) : LastError();
    });
}

BOOL WINAPI DeleteFileW(LPCWSTR path) {
    return Succeeds([&] { return DeleteFile(path ? PosixPath(path) : std::string()); });
}

DWORD WINAPI GetFileAttributesW(LPCWSTR path) {
    DWORD attributes = INVALID_FILE_ATTRIBUTES;
    Succeeds([&]() -> DWORD {
        const std::string name = path ? PosixPath(path) : std::string();
        struct stat info;
        if (name.empty()) return ERROR_PATH_NOT_FOUND;
        if (stat(name.c_str(), &info) != 0) return errno == ENOENT ? MissingFileError(name) : LastError();
        attributes = (S_ISDIR(info.st_mode) ? FILE_ATTRIBUTE_DIRECTORY : 0u) |
                     (info.st_mode & (S_IWUSR | S_IWGRP | S_IWOTH) ? 0u : FILE_ATTRIBUTE_READONLY) |
                     (IsHiddenFile(name) ? FILE_ATTRIBUTE_HIDDEN : 0u);
        if (attributes == 0) attributes = FILE_ATTRIBUTE_NORMAL;
        return ERROR_SUCCESS;
    });
    return attributes;
}
