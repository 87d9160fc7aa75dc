#include "security/Sid.h"

#include <algorithm>

#include "module/Failure.h"
#include "module/TaskMem.h"

namespace {

[[noreturn]] void RaiseLastError() {
    throw _com_error(HRESULT_FROM_WIN32(GetLastError()));
}

}  // namespace

CSid::CSid(std::initializer_list<DWORD> subAuthorities, BYTE authority) noexcept {
    SID_IDENTIFIER_AUTHORITY identifier = {{0, 0, 0, 0, 0, authority}};
    if (!InitializeSid(m_bytes, &identifier, static_cast<BYTE>(subAuthorities.size()))) return;
    DWORD index = 0;
    for (const DWORD part : subAuthorities) *GetSidSubAuthority(m_bytes, index++) = part;
    m_size = GetLengthSid(m_bytes);
}

bool CSid::operator==(const CSid& other) const noexcept {
    return m_size != 0 && other.m_size != 0 && EqualSid(Get(), other.Get());
}

void CSid::Assign(PSID sid) noexcept {
    m_size = 0;
    m_lookedUp = false;
    if (sid && IsValidSid(sid) && CopySid(sizeof m_bytes, m_bytes, sid)) m_size = GetLengthSid(m_bytes);
}

wstr CSid::Text() const {
    if (m_size == 0) return {};
    CLocalText text;
    if (!ConvertSidToStringSidW(Get(), &text)) RaiseLastError();
    return text.Get();
}

const wstr& CSid::AccountName() const {
    LookUp();
    return m_account;
}

const wstr& CSid::Domain() const {
    LookUp();
    return m_domain;
}

void CSid::LookUp() const {
    if (m_lookedUp || m_size == 0) return;
    m_lookedUp = true;
    DWORD accountRoom = 0, domainRoom = 0;
    SID_NAME_USE use;
    if (LookupAccountSidW(nullptr, Get(), nullptr, &accountRoom, nullptr, &domainRoom, &use)) return;
    if (GetLastError() != ERROR_INSUFFICIENT_BUFFER) return;
    wstr account(accountRoom, 0), domain(domainRoom, 0);
    if (!LookupAccountSidW(nullptr, Get(), account.data(), &accountRoom, domain.data(), &domainRoom, &use)) return;
    account.resize(accountRoom);
    domain.resize(domainRoom);
    m_account = std::move(account);
    m_domain = std::move(domain);
}

CStringSid::CStringSid(LPCWSTR text) {
    PSID sid = nullptr;
    if (!ConvertStringSidToSidW(text, &sid)) RaiseLastError();
    Assign(sid);
    LocalFree(sid);
}

const CSid& LocalSystemSid() noexcept {
    static const CSid sid{18};
    return sid;
}
const CSid& AdministratorsSid() noexcept {
    static const CSid sid{32, 544};
    return sid;
}
const CSid& UsersSid() noexcept {
    static const CSid sid{32, 545};
    return sid;
}
const CSid& EveryoneSid() noexcept {
    static const CSid sid({0}, 1);
    return sid;
}
