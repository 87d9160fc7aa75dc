#include "svinfo/FileIo.h"

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <random>
#include <system_error>

#include "svinfo/Failure.h"
#include "svinfo/Text.h"

namespace fs = std::filesystem;

namespace {

fs::path PathOf(const std::string& utf8) {
    return fs::path(std::u8string(reinterpret_cast<const char8_t*>(utf8.data()), utf8.size()));
}

// Streams tell no reason but leave the C library's.
std::error_code LastStreamError() {
    return std::error_code(errno != 0 ? errno : EIO, std::generic_category());
}

[[noreturn]] void FailWrite(const std::string& path, const std::error_code& error) {
    // A file that is missing is made, so it is its folder that does not exist.
    const bool missing = error == std::errc::no_such_file_or_directory;
    throw FailureOf("write " + EscapeControls(path),
                    missing ? HRESULT_FROM_WIN32(ERROR_PATH_NOT_FOUND) : ResultOfError(error));
}

[[noreturn]] void FailRead(const std::string& path, const std::error_code& error) {
    const HRESULT hr = ResultOfError(error);
    throw CCommandFailure(hr == E_ACCESSDENIED ? ExitCode::Denied : ExitCode::BadInput,
                          EscapeControls(path) + ": cannot be read: " + ResultText(hr));
}

void WriteThrough(const fs::path& file, const std::string& shown, std::string_view bytes) {
    errno = 0;
    std::ofstream stream(file, std::ios::binary | std::ios::trunc);
    stream.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    stream.close();
    if (!stream) FailWrite(shown, LastStreamError());
}

// A file in a new folder of its own beside the target: nobody else can have put anything in its place, a link least of
// all. Both go, the file unless it was moved.
class CTemporaryFile {
  public:
    explicit CTemporaryFile(const fs::path& target, const std::string& shown) {
        std::error_code error;
        const fs::path folder = MakePrivateFolder(target, error);
        if (error) FailWrite(shown, error);
        m_path = folder / target.filename();
    }
    ~CTemporaryFile() {
        std::error_code ignored;
        fs::remove_all(m_path.parent_path(), ignored);
    }
    CTemporaryFile(const CTemporaryFile&) = delete;
    CTemporaryFile& operator=(const CTemporaryFile&) = delete;

    const fs::path& Path() const noexcept { return m_path; }
    std::error_code MoveTo(const fs::path& target) {
        std::error_code error;
        fs::rename(m_path, target, error);
        return error;
    }

  private:
    fs::path m_path;
};

}  // namespace

fs::path MakePrivateFolder(const fs::path& start, std::error_code& error) {
    std::random_device random;
    for (int attempt = 0; attempt < 100; ++attempt) {
        fs::path folder = start;
        folder += "." + std::to_string(random()) + ".tmp";
        if (fs::create_directory(folder, error)) {
            // Under a creation mask that lets others write into it, one of them may have been there first.
            fs::permissions(folder, fs::perms::owner_all, error);
            if (!error && fs::is_empty(folder, error)) return folder;
            if (!error) error = std::make_error_code(std::errc::file_exists);
            return {};
        }
        if (error) return {};
    }
    error = std::make_error_code(std::errc::file_exists);
    return {};
}

std::string NativePath(wstr_view path) {
    std::string native = ToUtf8(path);
    std::replace(native.begin(), native.end(), '\\', static_cast<char>(fs::path::preferred_separator));
    return native;
}

std::string ReadBeginning(const std::string& path, std::size_t count) {
    std::error_code error;
    const fs::file_status status = fs::status(PathOf(path), error);
    if (!fs::exists(status)) FailRead(path, error ? error : std::make_error_code(std::errc::no_such_file_or_directory));
    if (fs::is_directory(status)) FailRead(path, std::make_error_code(std::errc::is_a_directory));
    if (!fs::is_regular_file(status)) {
        throw CCommandFailure(ExitCode::BadInput, EscapeControls(path) + ": found no file, expected one");
    }
    errno = 0;
    std::ifstream stream(PathOf(path), std::ios::binary);
    if (!stream) FailRead(path, LastStreamError());
    std::string bytes(count, '\0');
    stream.read(bytes.data(), static_cast<std::streamsize>(count));
    bytes.resize(static_cast<std::size_t>(stream.gcount()));
    return bytes;
}

std::string ReadWholeFile(const std::string& path) {
    std::error_code ignored;
    if (fs::is_directory(PathOf(path), ignored)) FailRead(path, std::make_error_code(std::errc::is_a_directory));
    errno = 0;
    std::ifstream stream(PathOf(path), std::ios::binary);
    if (!stream) FailRead(path, LastStreamError());
    std::string bytes;
    char block[1 << 16];
    while (stream.read(block, sizeof block) || stream.gcount() > 0) {
        bytes.append(block, static_cast<std::size_t>(stream.gcount()));
    }
    if (stream.bad()) FailRead(path, LastStreamError());
    return bytes;
}

void WriteWholeFile(const std::string& path, std::string_view bytes) {
    std::error_code error;
    fs::path target = PathOf(path);
    const fs::file_status status = fs::status(target, error);
    if (fs::exists(status) && !fs::is_regular_file(status)) return WriteThrough(target, path, bytes);
    if (fs::exists(status)) {
        // Through a link the file behind it is meant, and a new file would not have the old one's permissions.
        target = fs::canonical(target, error);
        if (error) FailWrite(path, error);
    }
    CTemporaryFile temporary(target, path);
    WriteThrough(temporary.Path(), path, bytes);
    error.clear();
    if (fs::exists(status)) fs::permissions(temporary.Path(), status.permissions(), error);
    if (!error) error = temporary.MoveTo(target);
    if (error) FailWrite(path, error);
}
