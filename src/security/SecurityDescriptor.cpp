#include "security/SecurityDescriptor.h"

#include <new>

#include "module/Failure.h"
#include "security/AccessToken.h"

void CSecurityDescriptor::Initialize() noexcept {
    m_owner = {};
    m_group = {};
    m_dacl.reset();
    InitializeSecurityDescriptor(&m_descriptor, SECURITY_DESCRIPTOR_REVISION);
}

HRESULT CSecurityDescriptor::InitializeFromThreadToken(bool defaulted, bool fallBackToProcess) noexcept {
    Initialize();
    CAccessToken token;
    DWORD error = token.OpenThread(TOKEN_QUERY, FALSE);
    if (error == ERROR_NO_TOKEN && fallBackToProcess) error = token.OpenProcess(TOKEN_QUERY);
    return error ? HRESULT_FROM_WIN32(error) : TakeOwner(token, defaulted);
}

HRESULT CSecurityDescriptor::InitializeFromProcessToken(bool defaulted) noexcept {
    Initialize();
    CAccessToken token;
    const DWORD error = token.OpenProcess(TOKEN_QUERY);
    return error ? HRESULT_FROM_WIN32(error) : TakeOwner(token, defaulted);
}

HRESULT CSecurityDescriptor::TakeOwner(const CAccessToken& token, bool defaulted) noexcept {
    const HRESULT hr = Guarded([&]() -> HRESULT {
        CSid owner, group;
        if (const DWORD error = token.ReadUser(owner)) return HRESULT_FROM_WIN32(error);
        if (const DWORD error = token.ReadPrimaryGroup(group)) return HRESULT_FROM_WIN32(error);
        m_owner = owner;
        m_group = group;
        if (!SetSecurityDescriptorOwner(&m_descriptor, m_owner.Get(), defaulted) ||
            !SetSecurityDescriptorGroup(&m_descriptor, m_group.Get(), defaulted)) {
            return HRESULT_FROM_WIN32(GetLastError());
        }
        return S_OK;
    });
    if (FAILED(hr)) Initialize();
    return hr;
}

HRESULT CSecurityDescriptor::AddAllowedAce(const CSid& sid, DWORD mask, DWORD aceFlags) noexcept {
    if (!sid) return E_INVALIDARG;
    const PACL old = Dacl();
    const DWORD before = old ? old->AclSize : static_cast<DWORD>(sizeof(ACL));
    const DWORD size =
        before + static_cast<DWORD>(sizeof(ACCESS_ALLOWED_ACE) - sizeof(DWORD)) + GetLengthSid(sid.Get());
    std::unique_ptr<BYTE[]> bytes(new (std::nothrow) BYTE[size]);
    if (!bytes) return E_OUTOFMEMORY;
    const auto acl = reinterpret_cast<PACL>(bytes.get());
    if (!InitializeAcl(acl, size, ACL_REVISION)) return HRESULT_FROM_WIN32(GetLastError());
    LPVOID entries = nullptr;
    if (old && old->AceCount != 0 &&
        (!GetAce(old, 0, &entries) ||
         !AddAce(acl, ACL_REVISION, MAXDWORD, entries, before - static_cast<DWORD>(sizeof(ACL))))) {
        return HRESULT_FROM_WIN32(GetLastError());
    }
    if (!AddAccessAllowedAceEx(acl, ACL_REVISION, aceFlags, mask, sid.Get())) {
        return HRESULT_FROM_WIN32(GetLastError());
    }
    m_dacl = std::move(bytes);
    return SetSecurityDescriptorDacl(&m_descriptor, TRUE, Dacl(), FALSE) ? S_OK : HRESULT_FROM_WIN32(GetLastError());
}
