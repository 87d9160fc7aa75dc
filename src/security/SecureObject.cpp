#include "security/SecureObject.h"

#include "diagnostics/TraceScope.h"
#include "module/Failure.h"
#include "module/SystemVersion.h"
#include "security/ClientImpersonation.h"

namespace {

constexpr DWORD kLowIntegrity = 0x1000;
constexpr DWORD kMediumIntegrity = 0x2000;
constexpr DWORD kFirstMajorWithLevels = 6;

// In the system's own folder, so that nobody else's library of that name is taken.
CDLLLoader LoadSystemLibrary(LPCWSTR name) {
    WCHAR folder[MAX_PATH];
    const UINT length = GetSystemDirectoryW(folder, MAX_PATH);
    if (length == 0 || length >= MAX_PATH) return {};
    wstr path(folder, length);
    if (!path.ends_with(WCHAR{'\\'})) path += WCHAR{'\\'};
    return CDLLLoader((path + name).c_str());
}

}  // namespace

COVSecureObject::COVSecureObject()
    : m_advapi32(LoadSystemLibrary(W("Advapi32.dll"))),
      m_accessCheck(m_advapi32.Find<AccessCheckProc>("AccessCheckByTypeResultList")) {
    OVTraceNS::CTraceScope scope("COVSecureObject::COVSecureObject", 0);
    RaiseIfFailed(m_security.InitializeFromThreadToken(false, true));
    if (!LoadSystemLibrary(W("Authz.dll")).Find<FARPROC>("AuthzInitializeResourceManager")) {
        scope.Print("Authorization Manager is not installed on this machine.");
    }
}

HRESULT COVSecureObject::AccessCheck2(PSID selfSid, DWORD desiredAccess, const GUID* objectType) noexcept {
    OVTraceNS::CTraceScope scope("COVSecureObject::AccessCheck2", 0);
    return AtBoundary(scope, [&]() -> HRESULT {
        CAccessToken token;
        {
            const CClientImpersonation caller;
            // A thread without a caller has no token: the check is asked without one then, and says so.
            token.OpenThread(MAXIMUM_ALLOWED, TRUE);
        }
        CSid user;
        token.ReadUser(user);
        scope.Print("Sid<%ls>", user.Text().c_str());
        return AccessCheck1(token, selfSid, desiredAccess, objectType);
    });
}

HRESULT COVSecureObject::AccessCheck1(const CAccessToken& token, PSID selfSid, DWORD desiredAccess,
                                      const GUID* objectType) noexcept {
    OVTraceNS::CTraceScope scope("COVSecureObject::AccessCheck1", 0);
    return AtBoundary(scope, [&]() -> HRESULT {
        CheckVistaIntegrityLevel(token);  // a token that cannot be lifted is checked as it is

        GENERIC_MAPPING mapping = {9, 0x1B, 0x20000, 0xF0000};
        MapGenericMask(&desiredAccess, &mapping);
        GUID type = objectType ? *objectType : GUID{};
        OBJECT_TYPE_LIST types = {0, 0, &type};
        alignas(PRIVILEGE_SET) BYTE privileges[256] = {};
        DWORD privilegesSize = sizeof privileges;
        DWORD granted = 0;
        DWORD status = 0;

        CSid caller;
        token.ReadUser(caller);
        scope.Print("Caller is %ls", caller.Text().c_str());
        if (!m_accessCheck) return HRESULT_FROM_WIN32(ERROR_PROC_NOT_FOUND);
        if (!m_accessCheck(m_security.Get(), selfSid, token.Get(), desiredAccess, &types, 1, &mapping,
                           reinterpret_cast<PRIVILEGE_SET*>(privileges), &privilegesSize, &granted, &status)) {
            return ResultOfLastError();
        }
        if (status == ERROR_SUCCESS && (granted & desiredAccess) != desiredAccess) status = ERROR_ACCESS_DENIED;
        if (status == ERROR_ACCESS_DENIED) {
            scope.Print("Access is denied. Caller is %ls\\%ls", caller.Domain().c_str(), caller.AccountName().c_str());
        }
        return HRESULT_FROM_WIN32(status);
    });
}

HRESULT CheckVistaIntegrityLevel(const CAccessToken& token) noexcept {
    OVTraceNS::CTraceScope scope("COVSecureObject::CheckVistaIntegrityLevel", 0);
    return AtBoundary(scope, [&]() -> HRESULT {
        if (!IsSystemOfVersion(kFirstMajorWithLevels) || token.ReadIntegrity() != kLowIntegrity) return S_FALSE;
        CSid medium({kMediumIntegrity}, 16);
        TOKEN_MANDATORY_LABEL label = {{medium.Get(), SE_GROUP_INTEGRITY}};
        const DWORD size = static_cast<DWORD>(sizeof label) + GetLengthSid(medium.Get());
        if (!SetTokenInformation(token.Get(), TokenIntegrityLevel, &label, size)) {
            return ResultOfLastError();
        }
        return S_OK;
    });
}
