#include "File.h"

#include <sys/stat.h>

#include "HiveError.h"

namespace {

DWORD Failed() noexcept {
    return HiveErrorFromErrno(errno);
}

}  // namespace

DWORD MakeFolders(const std::string& folder) {
    if (mkdir(folder.c_str(), kFolderMode) != 0) {
        if (errno == EEXIST) return ERROR_SUCCESS;
        const std::size_t slash = folder.find_last_of('/');
        if (errno != ENOENT || slash == 0 || slash == std::string::npos) return Failed();
        if (const DWORD error = MakeFolders(folder.substr(0, slash))) return error;
        if (mkdir(folder.c_str(), kFolderMode) != 0) return errno == EEXIST ? ERROR_SUCCESS : Failed();
    }
    // The creation mask may have taken bits that readers need.
    return chmod(folder.c_str(), kFolderMode) == 0 ? ERROR_SUCCESS : Failed();
}
