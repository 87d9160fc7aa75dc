#include "sources/WorkgroupFiles.h"

#include "module/RegistryKey.h"

namespace {

LPCWSTR FolderName(int kind) noexcept {
    switch (kind) {
        case kPluginData:
            return W("PluginData");
        case kGpoData:
            return W("GpoData");
        case kTesselData:
            return W("TesselData");
        default:
            return nullptr;
    }
}

}  // namespace

bool GetDataFolder(int kind, LPWSTR buffer, DWORD size) noexcept {
    if (size < MAX_PATH) return false;
    const LPCWSTR folder = FolderName(kind);
    if (!folder) return false;
    CRegistryKey key;
    if (key.Open(HKEY_LOCAL_MACHINE, W("SOFTWARE\\Orvantis"), KEY_READ | KEY_WOW64_64KEY)) return false;
    if (key.QueryString(W("OrvantisPath"), buffer, size)) return false;
    // The value's own end counts, wherever its first NUL stands; PathAppendW takes no more than MAX_PATH.
    return wcslen(buffer) < MAX_PATH && PathAppendW(buffer, folder);
}

wstr BuildDataFilePath(int kind, LPCWSTR fileName) {
    WCHAR path[MAX_PATH + 1] = {};
    const bool found = GetDataFolder(kind, path, MAX_PATH);
    if (!found || !PathAppendW(path, fileName)) return {};
    return path;
}
