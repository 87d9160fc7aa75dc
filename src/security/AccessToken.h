// CAccessToken: an open token, and what the module asks of it.
#pragma once

#include <utility>
#include <vector>

#include "Platform.h"
#include "security/Sid.h"

class CAccessToken {
  public:
    CAccessToken() noexcept = default;
    ~CAccessToken() { Close(); }
    CAccessToken(const CAccessToken&) = delete;
    CAccessToken& operator=(const CAccessToken&) = delete;

    // Win32 errors, 0 for success. A token that was held is closed first.
    DWORD OpenThread(DWORD access, BOOL asSelf) noexcept;
    DWORD OpenProcess(DWORD access) noexcept;

    // Null when none is held; stays the object's.
    HANDLE Get() const noexcept { return m_token; }

    // The level of integrity, the last part of the label's SID; 0 for a token that cannot be asked.
    DWORD ReadIntegrity() const noexcept;

    // Win32 errors; the answer stays as it is then.
    DWORD ReadUser(CSid& user) const;
    DWORD ReadPrimaryGroup(CSid& group) const;
    DWORD ReadGroups(std::vector<CSid>& groups) const;
    DWORD ReadSession(DWORD& session) const noexcept;

  private:
    void Close() noexcept {
        if (m_token) CloseHandle(std::exchange(m_token, nullptr));
    }
    DWORD Read(TOKEN_INFORMATION_CLASS what, std::vector<BYTE>& answer) const;

    HANDLE m_token = nullptr;
};
