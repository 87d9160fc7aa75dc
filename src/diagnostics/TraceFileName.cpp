#include "diagnostics/TraceFileName.h"

#include <algorithm>

#include "diagnostics/Format.h"
#include "diagnostics/TraceEngine.h"

namespace OVTraceNS {

namespace {

constexpr wstr_view kSeparators = W("\\/");

// Of a value's data, 520 bytes with the NUL.
constexpr DWORD kSettingRoom = 260;

// False when there is none: a value of another type, of odd size or without its NUL counts as absent.
bool ReadText(const CRegistryKey& key, LPCWSTR name, WCHAR (&text)[kSettingRoom + 1]) noexcept {
    DWORD length = kSettingRoom;
    std::fill_n(text, kSettingRoom + 1, WCHAR{0});
    return key && key.QueryString(name, text, length) == ERROR_SUCCESS;
}

bool IsFolder(LPCWSTR path) noexcept {
    const DWORD attributes = GetFileAttributesW(path);
    return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
}

// With all that is missing above it. The first that cannot be made ends it; opening the file will tell.
void MakeFolders(WCHAR* path) noexcept {
    for (WCHAR* at = path; *at; ++at) {
        if (at == path || kSeparators.find(*at) == kSeparators.npos) continue;
        const WCHAR separator = *at;
        *at = 0;
        const bool stands = IsFolder(path) || at[-1] == W(':') || CreateDirectoryW(path, nullptr);
        *at = separator;
        if (!stands) return;
    }
}

// Read once and kept; 0 where it is not to be had.
DWORD Session() noexcept {
    static const DWORD session = [] {
        DWORD number = 0;
        return ProcessIdToSessionId(GetCurrentProcessId(), &number) ? number : 0;
    }();
    return session;
}

// Text that grows at its end, as long as there is room.
class CGrowing {
  public:
    explicit CGrowing(WCHAR (&out)[MAX_PATH]) noexcept : m_out(out) { m_out[0] = 0; }
    void Add(wstr_view text) noexcept {
        if (!m_fits || text.size() >= MAX_PATH - m_length) {
            m_fits = false;
            return;
        }
        text.copy(m_out + m_length, text.size());
        m_length += text.size();
        m_out[m_length] = 0;
    }
    bool Fits() const noexcept { return m_fits; }

  private:
    WCHAR* m_out;
    std::size_t m_length = 0;
    bool m_fits = true;
};

}  // namespace

CPathParts SplitPath(wstr_view path) noexcept {
    const std::size_t leaf = path.find_last_of(kSeparators) + 1;  // npos + 1 is 0
    const std::size_t dot = path.find_last_of(W('.'));
    const std::size_t end = dot == path.npos || dot < leaf ? path.size() : dot;
    return {path.substr(0, leaf), path.substr(leaf, end - leaf), path.substr(end)};
}

bool BuildTraceFileName(const CRegistryKey& key, WCHAR (&path)[MAX_PATH]) noexcept {
    CGrowing name(path);
    WCHAR setting[kSettingRoom + 1];
    if (ReadText(key, W("FileName"), setting)) {
        name.Add(setting);
        return name.Fits();
    }
    CTraceEngine& engine = TheTraceEngine();
    const CPathParts process = SplitPath(engine.Process().text), module = SplitPath(engine.Module().text);
    if (ReadText(key, W("TracePath"), setting)) {
        WCHAR* const end = setting + std::char_traits<WCHAR>::length(setting);
        if (end == setting || kSeparators.find(end[-1]) == kSeparators.npos) end[0] = W('\\'), end[1] = 0;
        MakeFolders(setting);
        name.Add(setting);
    } else {
        name.Add(module.directory);
    }
    WCHAR tail[32];
    OVFormat::Format(tail, std::size(tail), ".x64.%d.trc3", Session());
    for (const wstr_view part : {process.base, wstr_view(W(".")), module.base, module.extension, wstr_view(tail)}) {
        name.Add(part);
    }
    return name.Fits();
}

}  // namespace OVTraceNS
