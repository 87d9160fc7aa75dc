// Tokens and security identifiers for tests, as texts.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "Platform.h"

inline std::string SidTextOf(PSID sid) {
    LPWSTR text = nullptr;
    if (!ConvertSidToStringSidW(sid, &text)) return "error " + std::to_string(GetLastError());
    std::string narrow;
    for (LPCWSTR at = text; *at; ++at) narrow += static_cast<char>(*at);
    LocalFree(text);
    return narrow;
}

// A SID from its text.
class CTestSid {
  public:
    explicit CTestSid(LPCWSTR text) { EXPECT_TRUE(ConvertStringSidToSidW(text, &m_sid)) << GetLastError(); }
    ~CTestSid() { LocalFree(m_sid); }
    CTestSid(const CTestSid&) = delete;
    CTestSid& operator=(const CTestSid&) = delete;

    PSID Get() const { return m_sid; }

  private:
    PSID m_sid = nullptr;
};

// A token that closes itself.
class CTestToken {
  public:
    static CTestToken OfThread(DWORD access = TOKEN_QUERY) {
        CTestToken token;
        if (!OpenThreadToken(GetCurrentThread(), access, TRUE, &token.m_token)) token.m_error = GetLastError();
        return token;
    }
    static CTestToken OfProcess(DWORD access = TOKEN_QUERY) {
        CTestToken token;
        if (!OpenProcessToken(GetCurrentProcess(), access, &token.m_token)) token.m_error = GetLastError();
        return token;
    }
    CTestToken(CTestToken&& other) noexcept : m_token(other.m_token), m_error(other.m_error) {
        other.m_token = nullptr;
    }
    ~CTestToken() {
        if (m_token) {
            EXPECT_TRUE(CloseHandle(m_token));
        }
    }

    HANDLE Get() const { return m_token; }
    // Why it could not be opened; 0 for one that could.
    DWORD Error() const { return m_error; }

    // The answer of exactly the size that is asked for; empty when it is refused.
    std::vector<BYTE> Query(TOKEN_INFORMATION_CLASS what) const {
        DWORD size = 0;
        EXPECT_FALSE(GetTokenInformation(m_token, what, nullptr, 0, &size));
        if (GetLastError() != ERROR_INSUFFICIENT_BUFFER) return {};
        std::vector<BYTE> answer(size);
        if (!GetTokenInformation(m_token, what, answer.data(), size, &size)) return {};
        EXPECT_EQ(size, answer.size());
        return answer;
    }
    DWORD Number(TOKEN_INFORMATION_CLASS what) const {
        const std::vector<BYTE> answer = Query(what);
        EXPECT_EQ(answer.size(), sizeof(DWORD));
        return answer.size() == sizeof(DWORD) ? *reinterpret_cast<const DWORD*>(answer.data()) : 0xDEADBEEF;
    }
    std::string User() const {
        const std::vector<BYTE> answer = Query(TokenUser);
        return answer.empty() ? "none" : SidTextOf(reinterpret_cast<const TOKEN_USER*>(answer.data())->User.Sid);
    }
    std::string PrimaryGroup() const {
        const std::vector<BYTE> answer = Query(TokenPrimaryGroup);
        if (answer.empty()) return "none";
        return SidTextOf(reinterpret_cast<const TOKEN_PRIMARY_GROUP*>(answer.data())->PrimaryGroup);
    }
    // Each with its attributes, as "S-1-1-0:7".
    std::vector<std::string> Groups() const {
        const std::vector<BYTE> answer = Query(TokenGroups);
        std::vector<std::string> groups;
        if (answer.empty()) return groups;
        const auto* list = reinterpret_cast<const TOKEN_GROUPS*>(answer.data());
        for (DWORD i = 0; i < list->GroupCount; ++i) {
            const SID_AND_ATTRIBUTES& group = list->Groups[i];
            groups.push_back(SidTextOf(group.Sid) + ":" + std::to_string(group.Attributes));
        }
        return groups;
    }
    bool IsIn(const std::string& groupAndAttributes) const {
        const std::vector<std::string> groups = Groups();
        return std::find(groups.begin(), groups.end(), groupAndAttributes) != groups.end();
    }
    DWORD Integrity() const {
        const std::vector<BYTE> answer = Query(TokenIntegrityLevel);
        if (answer.empty()) return 0xDEADBEEF;
        const SID_AND_ATTRIBUTES label = reinterpret_cast<const TOKEN_MANDATORY_LABEL*>(answer.data())->Label;
        EXPECT_EQ(label.Attributes, 0x60u);
        EXPECT_EQ(*GetSidSubAuthorityCount(label.Sid), 1u);
        return *GetSidSubAuthority(label.Sid, 0);
    }

  private:
    CTestToken() = default;

    HANDLE m_token = nullptr;
    DWORD m_error = 0;
};
