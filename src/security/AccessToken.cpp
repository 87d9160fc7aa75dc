#include "security/AccessToken.h"

DWORD CAccessToken::OpenThread(DWORD access, BOOL asSelf) noexcept {
    Close();
    return OpenThreadToken(GetCurrentThread(), access, asSelf, &m_token) ? ERROR_SUCCESS : GetLastError();
}

DWORD CAccessToken::OpenProcess(DWORD access) noexcept {
    Close();
    return OpenProcessToken(GetCurrentProcess(), access, &m_token) ? ERROR_SUCCESS : GetLastError();
}

DWORD CAccessToken::Read(TOKEN_INFORMATION_CLASS what, std::vector<BYTE>& answer) const {
    DWORD size = 0;
    if (GetTokenInformation(m_token, what, nullptr, 0, &size)) return ERROR_INVALID_DATA;
    if (const DWORD error = GetLastError(); error != ERROR_INSUFFICIENT_BUFFER) return error;
    answer.resize(size);
    return GetTokenInformation(m_token, what, answer.data(), size, &size) ? ERROR_SUCCESS : GetLastError();
}

DWORD CAccessToken::ReadUser(CSid& user) const {
    // One question: no user's answer is longer.
    alignas(TOKEN_USER) BYTE answer[sizeof(TOKEN_USER) + SECURITY_MAX_SID_SIZE];
    DWORD size = sizeof answer;
    if (!GetTokenInformation(m_token, TokenUser, answer, size, &size)) return GetLastError();
    user.Assign(reinterpret_cast<const TOKEN_USER*>(answer)->User.Sid);
    return ERROR_SUCCESS;
}

DWORD CAccessToken::ReadPrimaryGroup(CSid& group) const {
    std::vector<BYTE> answer;
    if (const DWORD error = Read(TokenPrimaryGroup, answer)) return error;
    group.Assign(reinterpret_cast<const TOKEN_PRIMARY_GROUP*>(answer.data())->PrimaryGroup);
    return ERROR_SUCCESS;
}

DWORD CAccessToken::ReadGroups(std::vector<CSid>& groups) const {
    std::vector<BYTE> answer;
    if (const DWORD error = Read(TokenGroups, answer)) return error;
    const auto* list = reinterpret_cast<const TOKEN_GROUPS*>(answer.data());
    groups.resize(list->GroupCount);
    for (DWORD i = 0; i < list->GroupCount; ++i) groups[i].Assign(list->Groups[i].Sid);
    return ERROR_SUCCESS;
}

DWORD CAccessToken::ReadIntegrity() const noexcept {
    alignas(TOKEN_MANDATORY_LABEL) BYTE answer[sizeof(TOKEN_MANDATORY_LABEL) + SECURITY_MAX_SID_SIZE];
    DWORD size = sizeof answer;
    if (!GetTokenInformation(m_token, TokenIntegrityLevel, answer, size, &size)) return 0;
    const PSID label = reinterpret_cast<const TOKEN_MANDATORY_LABEL*>(answer)->Label.Sid;
    const BYTE count = *GetSidSubAuthorityCount(label);
    return count ? *GetSidSubAuthority(label, count - 1u) : 0;
}

DWORD CAccessToken::ReadSession(DWORD& session) const noexcept {
    DWORD answer = 0;
    DWORD size = sizeof answer;
    if (!GetTokenInformation(m_token, TokenSessionId, &answer, size, &size)) return GetLastError();
    session = answer;
    return ERROR_SUCCESS;
}
