#include "Home.h"

#include <memory>
#include <string>

namespace {

constexpr wchar_t kRoots[] = L"Software\\OrvantisRoots";
constexpr std::size_t kLongestName = 255;  // of a key

struct KeyCloser {
    void operator()(HKEY key) const noexcept { RegCloseKey(key); }
};
using Key = std::unique_ptr<HKEY__, KeyCloser>;

std::string theRoot;
thread_local bool inBatch = false;

// Empty for bytes that are no UTF-8.
std::wstring Wide(const char* text) {
    const int size = MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, text, -1, nullptr, 0);
    if (size <= 1) return {};
    std::wstring wide(static_cast<std::size_t>(size - 1), L'\0');
    MultiByteToWideChar(CP_UTF8, 0, text, size - 1, wide.data(), size - 1);
    return wide;
}

DWORD Create(HKEY parent, const wchar_t* path, Key& key) {
    HKEY made = nullptr;
    const LSTATUS error =
        RegCreateKeyExW(parent, path, 0, nullptr, REG_OPTION_NON_VOLATILE, KEY_ALL_ACCESS, nullptr, &made, nullptr);
    key.reset(made);
    return static_cast<DWORD>(error);
}

// The name of the caller's hive below HKEY_USERS: the SID, which the system's own HKEY_USERS shows as well.
DWORD CallersHive(std::wstring& name) {
    HANDLE token = nullptr;
    if (!OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &token)) return GetLastError();
    alignas(TOKEN_USER) BYTE room[sizeof(TOKEN_USER) + SECURITY_MAX_SID_SIZE];
    DWORD size = 0;
    DWORD error = GetTokenInformation(token, TokenUser, room, sizeof room, &size) ? 0 : GetLastError();
    CloseHandle(token);
    if (error) return error;
    const auto* sid = static_cast<const SID*>(reinterpret_cast<const TOKEN_USER*>(room)->User.Sid);
    name = L"S-" + std::to_wstring(sid->Revision) + L"-" + std::to_wstring(sid->IdentifierAuthority.Value[5]);
    for (BYTE i = 0; i < sid->SubAuthorityCount; ++i) name += L"-" + std::to_wstring(sid->SubAuthority[i]);
    return ERROR_SUCCESS;
}

// The predefined keys of a process, turned together or not at all.
struct Turn {
    HKEY predefined;
    const wchar_t* below;  // path in the root
    Key key;
};

void TurnBack() {
    for (HKEY predefined : {HKEY_CLASSES_ROOT, HKEY_CURRENT_USER, HKEY_USERS, HKEY_LOCAL_MACHINE}) {
        RegOverridePredefKey(predefined, nullptr);
    }
}

// The system's own library of digests looks for its providers in HKEY_LOCAL_MACHINE, wherever that is turned to.
DWORD CopyProviders(HKEY root) {
    constexpr wchar_t kProviders[] = L"SOFTWARE\\Microsoft\\Cryptography\\Defaults";
    Key copy;
    if (const DWORD error = Create(root, (std::wstring(L"HKEY_LOCAL_MACHINE\\") + kProviders).c_str(), copy)) {
        return error;
    }
    return static_cast<DWORD>(RegCopyTreeW(HKEY_LOCAL_MACHINE, kProviders, copy.get()));
}

DWORD TurnTo(HKEY root) {
    std::wstring hive;
    if (const DWORD error = CallersHive(hive)) return error;
    const std::wstring users = L"HKEY_USERS\\" + hive;
    Turn turns[] = {
        {HKEY_LOCAL_MACHINE, L"HKEY_LOCAL_MACHINE", {}},
        {HKEY_CLASSES_ROOT, L"HKEY_LOCAL_MACHINE\\SOFTWARE\\Classes", {}},
        {HKEY_USERS, L"HKEY_USERS", {}},
        {HKEY_CURRENT_USER, users.c_str(), {}},
    };
    if (const DWORD error = CopyProviders(root)) return error;
    Key narrow;
    if (const DWORD error = Create(root, L"HKEY_LOCAL_MACHINE\\SOFTWARE\\Wow6432Node", narrow)) return error;
    for (Turn& turn : turns) {
        if (const DWORD error = Create(root, turn.below, turn.key)) return error;
    }
    for (const Turn& turn : turns) {
        if (const LSTATUS error = RegOverridePredefKey(turn.predefined, turn.key.get())) {
            TurnBack();
            return static_cast<DWORD>(error);
        }
    }
    return ERROR_SUCCESS;
}

// Below HKEY_CURRENT_USER, which must not be turned when it is used. Empty for a path that is none, or too long.
std::wstring KeyOf(const char* path, DWORD& error) {
    const std::wstring wide = path ? Wide(path) : std::wstring();
    wchar_t full[MAX_PATH + 1];
    const DWORD length = wide.empty() ? 0 : GetFullPathNameW(wide.c_str(), MAX_PATH + 1, full, nullptr);
    error = length == 0 ? ERROR_INVALID_PARAMETER : length > kLongestName ? ERROR_FILENAME_EXCED_RANGE : ERROR_SUCCESS;
    if (error) return {};
    std::wstring name(full, length);
    for (wchar_t& unit : name) {
        if (unit == L'\\') unit = L'/';
    }
    while (name.size() > 1 && name.back() == L'/') name.pop_back();
    return std::wstring(kRoots) + L"\\" + name;
}

}  // namespace

DWORD OvSetRoot(const char* path) {
    DWORD error = ERROR_SUCCESS;
    const std::wstring name = KeyOf(path, error);
    if (error) return error;
    TurnBack();
    theRoot.clear();
    Key root;
    error = Create(HKEY_CURRENT_USER, name.c_str(), root);
    if (!error) error = TurnTo(root.get());
    if (!error) theRoot = path;
    return error;
}

DWORD OvForgetRoot(const char* path) {
    DWORD error = ERROR_SUCCESS;
    const std::wstring name = KeyOf(path, error);
    if (error) return error;
    TurnBack();
    theRoot.clear();
    error = static_cast<DWORD>(RegDeleteTreeW(HKEY_CURRENT_USER, name.c_str()));
    return error == ERROR_FILE_NOT_FOUND ? ERROR_SUCCESS : error;
}

const char* OvRoot() {
    return theRoot.c_str();
}

DWORD OvUseRootOfEnvironment() {
    wchar_t wide[MAX_PATH + 1];
    const DWORD length = GetEnvironmentVariableW(L"OV_ROOT", wide, MAX_PATH + 1);
    if (length == 0) return ERROR_SUCCESS;
    if (length > MAX_PATH) return ERROR_FILENAME_EXCED_RANGE;
    char path[3 * MAX_PATH + 1];
    if (!WideCharToMultiByte(CP_UTF8, WC_ERR_INVALID_CHARS, wide, -1, path, sizeof path, nullptr, nullptr)) {
        return ERROR_INVALID_PARAMETER;
    }
    return OvSetRoot(path);
}

LSTATUS OvBeginRegistryBatch() {
    if (inBatch) return ERROR_BUSY;
    inBatch = true;
    return ERROR_SUCCESS;
}

LSTATUS OvEndRegistryBatch(BOOL commit) {
    if (!inBatch) return ERROR_INVALID_PARAMETER;
    inBatch = false;
    return commit ? ERROR_SUCCESS : ERROR_NOT_SUPPORTED;
}
