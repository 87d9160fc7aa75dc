// The version of a module: a note of its file, with what the version resource begins with on the other home. A block is
// the note's content, as it stands in the file.
#include <elf.h>
#include <fcntl.h>

#include <cstring>
#include <vector>

#include "BoolCall.h"
#include "File.h"
#include "FileOpen.h"
#include "Paths.h"
#include "win/resource.h"
#include "win/text.h"
#include "winver.h"

namespace {

constexpr char kOwner[] = OV_VERSION_NOTE_OWNER;
constexpr std::size_t kMostHeaders = 64;
constexpr std::size_t kMostNotes = 0x10000;

template <class T>
bool ReadAt(int file, std::uint64_t offset, T* to, std::size_t count) noexcept {
    const std::size_t size = count * sizeof(T);
    return pread(file, to, size, static_cast<off_t>(offset)) == static_cast<ssize_t>(size);
}

constexpr std::size_t Aligned(std::size_t size) noexcept {
    return (size + 3) & ~std::size_t{3};
}

// The version note among those of one segment.
bool FindNote(const std::vector<char>& notes, VS_FIXEDFILEINFO& version) noexcept {
    Elf64_Nhdr note;
    for (std::size_t at = 0; at + sizeof note <= notes.size();) {
        std::memcpy(&note, notes.data() + at, sizeof note);
        const std::size_t name = at + sizeof note;
        const std::size_t content = name + Aligned(note.n_namesz);
        const std::size_t next = content + Aligned(note.n_descsz);
        if (next > notes.size()) return false;
        if (note.n_namesz == sizeof kOwner && std::memcmp(notes.data() + name, kOwner, sizeof kOwner) == 0 &&
            note.n_type == OV_VERSION_NOTE_TYPE && note.n_descsz == sizeof version) {
            std::memcpy(&version, notes.data() + content, sizeof version);
            return version.dwSignature == VS_FFI_SIGNATURE;
        }
        at = next;
    }
    return false;
}

DWORD ReadVersion(LPCSTR name, VS_FIXEDFILEINFO& version) {
    if (!name || !*name) return ERROR_INVALID_PARAMETER;
    const int length = static_cast<int>(std::strlen(name));
    std::u16string wide(static_cast<std::size_t>(length), 0);
    wide.resize(static_cast<std::size_t>(MultiByteToWideChar(CP_ACP, 0, name, length, wide.data(), length)));
    const std::string path = PosixPath(wide);
    const CFile file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (!file) return errno == ENOENT ? MissingFileError(path) : FileErrorOf(errno);
    Elf64_Ehdr head;
    if (!ReadAt(file.Get(), 0, &head, 1) || std::memcmp(head.e_ident, ELFMAG, SELFMAG) != 0 ||
        head.e_ident[EI_CLASS] != ELFCLASS64 || head.e_phentsize != sizeof(Elf64_Phdr) || head.e_phnum > kMostHeaders) {
        return ERROR_RESOURCE_DATA_NOT_FOUND;
    }
    std::vector<Elf64_Phdr> segments(head.e_phnum);
    if (!ReadAt(file.Get(), head.e_phoff, segments.data(), segments.size())) return ERROR_RESOURCE_DATA_NOT_FOUND;
    for (const Elf64_Phdr& segment : segments) {
        if (segment.p_type != PT_NOTE || segment.p_filesz > kMostNotes) continue;
        std::vector<char> notes(segment.p_filesz);
        if (ReadAt(file.Get(), segment.p_offset, notes.data(), notes.size()) && FindNote(notes, version)) {
            return ERROR_SUCCESS;
        }
    }
    return ERROR_RESOURCE_TYPE_NOT_FOUND;
}

}  // namespace

DWORD WINAPI GetFileVersionInfoSizeA(LPCSTR file, DWORD* handle) {
    if (handle) *handle = 0;
    VS_FIXEDFILEINFO version;
    return Succeeds([&] { return ReadVersion(file, version); }) ? static_cast<DWORD>(sizeof version) : 0;
}

BOOL WINAPI GetFileVersionInfoA(LPCSTR file, DWORD, DWORD room, LPVOID block) {
    return Succeeds([&]() -> DWORD {
        if (!block) return ERROR_INVALID_PARAMETER;
        VS_FIXEDFILEINFO version;
        if (const DWORD error = ReadVersion(file, version)) return error;
        if (room < sizeof version) return ERROR_INSUFFICIENT_BUFFER;
        std::memcpy(block, &version, sizeof version);
        return ERROR_SUCCESS;
    });
}

BOOL WINAPI VerQueryValueA(LPCVOID block, LPCSTR path, LPVOID* found, UINT* size) {
    return Succeeds([&]() -> DWORD {
        if (!block || !path || !found || !size) return ERROR_INVALID_PARAMETER;
        if (std::strcmp(path, "\\") != 0) return ERROR_RESOURCE_TYPE_NOT_FOUND;
        *found = const_cast<LPVOID>(block);
        *size = sizeof(VS_FIXEDFILEINFO);
        return ERROR_SUCCESS;
    });
}
