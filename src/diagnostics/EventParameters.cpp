#include "diagnostics/EventParameters.h"

#include <cstring>

#include "diagnostics/TraceScope.h"
#include "module/Failure.h"
#include "module/RegistryKey.h"
#include "module/TaskMem.h"
#include "security/AccessToken.h"
#include "security/ClientImpersonation.h"

namespace OVLog {

namespace {

constexpr DWORD kActingUser = 110;  // the text for who acts when nobody can be named

using FormatMessageProc = HRESULT(WINAPI*)(DWORD code, DWORD reserved, LPWSTR* text);

template <class... Args>
wstr Text(OVFormat::TFormat<std::type_identity_t<Args>...> format, Args... args) {
    WCHAR text[261];
    return wstr(text, OVFormat::Format(text, std::size(text), format, args...));
}

}  // namespace

GetErrorMessage::GetErrorMessage(HRESULT hr) {
    const CDLLLoader library(W("OVPTUtils.dll"));
    const auto format = library.Find<FormatMessageProc>("OVFormatMessage");
    CLocalText words;
    const bool known =
        format && SUCCEEDED(Guarded([&]() -> HRESULT { return format(static_cast<DWORD>(hr), 0, &words); }));
    m_text = known ? wstr(words.Get() ? words.Get() : W("")) + Text(" (0x%08X)", hr) : Text("0x%08X", hr);
}

InitiatedBy::InitiatedBy() {
    const HRESULT hr = Guarded([&]() -> HRESULT { return TakeCaller() ? S_OK : S_FALSE; });
    if (hr == S_OK) return;
    WCHAR computer[MAX_PATH] = {};
    DWORD room = MAX_PATH;
    m_domain = GetComputerNameW(computer, &room) ? computer : W("");
    m_account = COVLogResource()._LoadOVString(kActingUser);
}

// False where nobody calls. The account is looked up under the process's own identity, which may ask for it.
bool InitiatedBy::TakeCaller() {
    CAccessToken token;
    CSid user;
    {
        const CClientImpersonation caller;
        if (token.OpenThread(TOKEN_QUERY, TRUE)) return false;
        if (const DWORD error = token.ReadUser(user)) throw _com_error(HRESULT_FROM_WIN32(error));
    }
    m_account = user.AccountName();
    m_domain = user.Domain();
    if (m_account.empty()) {
        m_account = Text("Cannot get name & domain (0x%X) SID is printed", GetLastError());
        m_domain = user.Text();
    }
    return true;
}

COVLogResource::COVLogResource() noexcept {
    CRegistryKey key;
    if (key.Open(HKEY_LOCAL_MACHINE, W("SOFTWARE\\Orvantis\\EventLog"), KEY_READ)) return;
    WCHAR path[MAX_PATH] = {};
    DWORD length = MAX_PATH;
    if (key.QueryString(W("ResourceDLL"), path, length) == ERROR_SUCCESS) m_file = CDLLLoader::AsData(path);
}

wstr COVLogResource::_LoadOVString(DWORD id) const {
    constexpr DWORD kBlockStrings = 16;
    OVTraceNS::CTraceScope scope("COVLogResource::_LoadOVString", 10);
    scope.Print("DLL: 0x%X", static_cast<DWORD>(reinterpret_cast<ULONG_PTR>(m_file.Get())));
    wstr text;
    const HMODULE module = m_file.Get();
    const HRSRC block = FindResourceW(module, MAKEINTRESOURCEW(id / kBlockStrings + 1), RT_STRING);
    const auto* bytes = block ? static_cast<const BYTE*>(LockResource(LoadResource(module, block))) : nullptr;
    std::size_t left = bytes ? SizeofResource(module, block) / sizeof(WCHAR) : 0;
    // Strings one behind the other, each behind its length. A block that ends too early has no more of them.
    for (DWORD index = id % kBlockStrings; left > 0; --index) {
        WCHAR length;
        std::memcpy(&length, bytes, sizeof length);
        bytes += sizeof length;
        if (--left < length) break;
        if (index == 0) {
            text.resize(length);
            std::memcpy(text.data(), bytes, length * sizeof(WCHAR));
            break;
        }
        bytes += length * sizeof(WCHAR);
        left -= length;
    }
    scope.Print("ID: %lu, String: %ls", id, text.c_str());
    return text;
}

}  // namespace OVLog
