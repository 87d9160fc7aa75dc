#include "authpolicy/UserIdentity.h"

#include <atomic>
#include <string>

#include "authpolicy/UserService.h"
#include "module/RegistryKey.h"
#include "security/Sid.h"
#include "sources/PolicySources.h"
#include "store/PolicyNames.h"

namespace {

constexpr LPCWSTR kRecoveryName = W("Recovery");
constexpr DWORD kRecoveryMark = 0x6D3A91C4;
constexpr DWORD kUnknown = 0xFFFFFFFF;
constexpr DWORD kOwnSession = 0xFFFFFFFF;
constexpr LONG kIdentityLevel = 10;  // of the trace

std::atomic<DWORD> theKioskProduct{kUnknown};  // 0 or 1 once it is known

// A number of a key of the machine; false when there is none.
bool ReadSetting(LPCWSTR path, REGSAM access, LPCWSTR name, DWORD& number) noexcept {
    CRegistryKey key;
    return key.Open(HKEY_LOCAL_MACHINE, path, access) == ERROR_SUCCESS && key.QueryDword(name, number) == ERROR_SUCCESS;
}

}  // namespace

HRESULT TranslateToSID(LPCWSTR userName, DWORD nameFormat, wstr& sid) noexcept {
    OVTraceNS::CTraceScope scope("TranslateToSID", kIdentityLevel);
    return AtBoundary(scope, [&]() -> HRESULT {
        if (nameFormat == kNameSid || nameFormat == kNameAsItStands) {
            sid = userName;
            return S_OK;
        }
        COVNameResult result;
        TranslateUserName(userName, nameFormat, kNameSid, result);
        const OV_NAME_ENTRY* const entry = result.Find(kNameSid);
        if (!entry) {
            scope.Print("Cannot get some of users names. Sid = 0x%X", 0u);
            throw _com_error(kNoSuchUser);
        }
        sid = entry->name;
        return S_OK;
    });
}

bool IsRecoveryUser(LPCWSTR name) {
    if (CompareNames(kRecoveryName, name) == 0) return true;
    const CStringSid sid(name);
    return *GetSidSubAuthorityCount(sid.Get()) != 0 && *GetSidSubAuthority(sid.Get(), 0) == kRecoveryMark;
}

bool IsKioskProduct() noexcept {
    DWORD known = theKioskProduct.load(std::memory_order_relaxed);
    if (known == kUnknown) {
        DWORD number = 0;
        for (const LPCWSTR path : {kGroupPolicyKey, W("SOFTWARE\\Orvantis\\Kiosk\\Logon")}) {
            if (ReadSetting(path, KEY_READ, W("KioskLogon"), number)) break;
        }
        known = number != 0 ? 1 : 0;
        theKioskProduct.store(known, std::memory_order_relaxed);
    }
    return known == 1;
}

bool IsKioskSession(DWORD sessionId) noexcept {
    if (!IsKioskProduct()) return false;
    if (sessionId == kOwnSession) ProcessIdToSessionId(GetCurrentProcessId(), &sessionId);
    WCHAR path[64] = W("SOFTWARE\\Orvantis\\Kiosk\\Session\\");
    WCHAR* end = path + wcslen(path);
    // The digits from the last to the first.
    int digits = 1;
    for (DWORD rest = sessionId; rest >= 10; rest /= 10) ++digits;
    end[digits] = 0;
    for (DWORD rest = sessionId; digits > 0; rest /= 10) end[--digits] = static_cast<WCHAR>(W('0') + rest % 10);
    DWORD account = 0;
    return !ReadSetting(path, KEY_READ | KEY_WOW64_32KEY, W("KioskAccount"), account) || account != 0;
}

void ForgetKioskProduct() noexcept {
    theKioskProduct.store(kUnknown, std::memory_order_relaxed);
}
