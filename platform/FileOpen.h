// Opening of files: which file a name leads to, whether it may be had, and for whom alone.
#pragma once

#include <string>

#include "File.h"
#include "win/types.h"

// As CreateFileW is asked, in this system's words.
struct CFileRequest {
    std::string path;
    int flags;  // of open
    int lock;   // of flock: of one alone, or of those who share
    DWORD disposition;
    bool hidden;
    const SECURITY_ATTRIBUTES* security;
};

// Win32 errors. `existed` tells of a file that was there already. Raise std::bad_alloc.
DWORD OpenFile(CFileRequest request, CFile& file, bool& existed);
DWORD DeleteFile(std::string path);

// The error for an errno of a call on files.
DWORD FileErrorOf(int error) noexcept;
// Nothing at the path: its folder may be missing as well.
DWORD MissingFileError(const std::string& path);
bool IsHiddenFile(const std::string& path) noexcept;
