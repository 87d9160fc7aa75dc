// Files and folders of a root, by the system's own calls.
#pragma once

#include <sys/types.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <utility>

#include "win/types.h"

// Who may do what with the parts of a root that everybody may read, whatever the creation mask of the process.
inline constexpr mode_t kFolderMode = 0755;
inline constexpr mode_t kSharedMode = 0644;

// An open file; -1 for none. Closing leaves errno as it was.
class CFile {
  public:
    explicit CFile(int file = -1) noexcept : m_file(file) {}
    CFile(CFile&& other) noexcept : m_file(std::exchange(other.m_file, -1)) {}
    CFile& operator=(CFile&& other) noexcept {
        std::swap(m_file, other.m_file);
        return *this;
    }
    ~CFile() { Close(); }

    int Get() const noexcept { return m_file; }
    explicit operator bool() const noexcept { return m_file >= 0; }
    void Reset(int file) noexcept {
        Close();
        m_file = file;
    }

  private:
    void Close() noexcept {
        if (m_file < 0) return;
        const int saved = errno;
        close(m_file);
        errno = saved;
    }

    int m_file;
};

// Makes the folder and those above it that are missing, for everybody to read. What was there keeps its mode. Fails as
// HiveErrorFromErrno tells.
DWORD MakeFolders(const std::string& folder);
