#include "Paths.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <new>
#include <vector>

#include "HiveError.h"
#include "Utf8.h"
#include "shlwapi.h"

namespace {

constexpr char16_t kSeparator = u'\\';

bool HasDrive(std::u16string_view path) noexcept {
    if (path.size() < 2 || path[1] != u':') return false;
    const char16_t letter = path[0] | 0x20;
    return letter >= u'a' && letter <= u'z';
}

// What ".." cannot take away: a drive with its backslash, two backslashes, or one.
std::u16string_view RootOf(std::u16string_view path) noexcept {
    if (HasDrive(path)) return path.substr(0, path.size() > 2 && path[2] == kSeparator ? 3 : 2);
    const std::size_t leading = std::min(path.find_first_not_of(kSeparator), path.size());
    return path.substr(0, std::min<std::size_t>(leading, 2));
}

// Empty parts, from doubled separators, stay.
std::u16string Resolved(std::u16string_view path) {
    std::u16string out(RootOf(path));
    std::vector<std::u16string_view> parts;
    for (std::size_t at = out.size(); at <= path.size();) {
        const std::size_t end = std::min(path.find(kSeparator, at), path.size());
        const std::u16string_view part = path.substr(at, end - at);
        if (part == u".." && !parts.empty() && parts.back() != u"..") {
            parts.pop_back();
        } else if (part == u".." ? out.empty() : part != u".") {
            parts.push_back(part);
        }
        at = end + 1;
    }
    if (HasDrive(path) && path.size() == 2) out += kSeparator;
    for (std::size_t i = 0; i < parts.size(); ++i) {
        if (i > 0) out += kSeparator;
        out += parts[i];
    }
    return out.empty() ? std::u16string(1, kSeparator) : out;
}

std::u16string Joined(std::u16string_view path, std::u16string_view more) {
    if (HasDrive(more) || more.starts_with(u"\\\\")) return std::u16string(more);
    if (more.starts_with(kSeparator)) more.remove_prefix(1);
    std::u16string out(path);
    if (!out.empty() && !more.empty() && out.back() != kSeparator) out += kSeparator;
    return out += more;
}

}  // namespace

std::string PosixPath(std::u16string_view path) {
    std::string out = ToUtf8(path);
    std::replace(out.begin(), out.end(), '\\', '/');
    return out;
}

BOOL WINAPI PathAppendW(LPWSTR path, LPCWSTR more) {
    if (!path || !more) return FALSE;
    try {
        const std::u16string joined = Joined(path, more);
        const bool fits = joined.size() < MAX_PATH;
        const std::u16string out = fits ? Resolved(joined) : std::u16string();
        *std::copy(out.begin(), out.end(), path) = 0;
        return fits;
    } catch (const std::bad_alloc&) {
        *path = 0;
        return FALSE;
    }
}

BOOL WINAPI PathFileExistsW(LPCWSTR path) {
    if (!path || !*path) {
        SetLastError(ERROR_FILE_NOT_FOUND);
        return FALSE;
    }
    try {
        struct stat info;
        if (stat(PosixPath(path).c_str(), &info) == 0) return TRUE;
        const bool missing = errno == ENOENT || errno == ENOTDIR;
        SetLastError(missing ? static_cast<DWORD>(ERROR_FILE_NOT_FOUND) : HiveErrorFromErrno(errno));
    } catch (const std::bad_alloc&) {
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    }
    return FALSE;
}
