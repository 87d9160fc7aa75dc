// CFileHandle: an open file that closes itself.
#pragma once

#include <utility>

#include "Platform.h"

class CFileHandle {
  public:
    CFileHandle() noexcept = default;
    explicit CFileHandle(HANDLE file) noexcept : m_file(file) {}
    CFileHandle(CFileHandle&& other) noexcept : m_file(std::exchange(other.m_file, INVALID_HANDLE_VALUE)) {}
    CFileHandle& operator=(CFileHandle&& other) noexcept {
        std::swap(m_file, other.m_file);
        return *this;
    }
    ~CFileHandle() { Close(); }

    HANDLE Get() const noexcept { return m_file; }
    explicit operator bool() const noexcept { return m_file != INVALID_HANDLE_VALUE; }
    HANDLE Detach() noexcept { return std::exchange(m_file, INVALID_HANDLE_VALUE); }
    void Close() noexcept {
        if (*this) CloseHandle(std::exchange(m_file, INVALID_HANDLE_VALUE));
    }

  private:
    HANDLE m_file = INVALID_HANDLE_VALUE;
};
