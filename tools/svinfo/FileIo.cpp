#include "svinfo/FileIo.h"

#include <cerrno>
#include <filesystem>
#include <fstream>
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
    const bool denied = error == std::errc::permission_denied || error == std::errc::read_only_file_system;
    throw CCommandFailure(denied ? ExitCode::Denied : ExitCode::Failed,
                          "write " + EscapeControls(path) + ": " + error.message());
}

void WriteThrough(const fs::path& file, const std::string& shown, std::string_view bytes) {
    errno = 0;
    std::ofstream stream(file, std::ios::binary | std::ios::trunc);
    stream.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    stream.close();
    if (!stream) FailWrite(shown, LastStreamError());
}

// Removes the file unless it was put in its place.
class CTemporaryFile {
  public:
    explicit CTemporaryFile(fs::path path) : m_path(std::move(path)) {}
    ~CTemporaryFile() {
        std::error_code ignored;
        if (!m_path.empty()) fs::remove(m_path, ignored);
    }
    CTemporaryFile(const CTemporaryFile&) = delete;
    CTemporaryFile& operator=(const CTemporaryFile&) = delete;

    const fs::path& Path() const noexcept { return m_path; }
    std::error_code MoveTo(const fs::path& target) {
        std::error_code error;
        fs::rename(m_path, target, error);
        if (!error) m_path.clear();
        return error;
    }

  private:
    fs::path m_path;
};

}  // namespace

std::string ReadWholeFile(const std::string& path) {
    const auto fail = [&path](const std::error_code& error) {
        throw CCommandFailure(ExitCode::BadInput, EscapeControls(path) + ": cannot be read: " + error.message());
    };
    std::error_code ignored;
    if (fs::is_directory(PathOf(path), ignored)) fail(std::make_error_code(std::errc::is_a_directory));
    errno = 0;
    std::ifstream stream(PathOf(path), std::ios::binary);
    if (!stream) fail(LastStreamError());
    std::string bytes;
    char block[1 << 16];
    while (stream.read(block, sizeof block) || stream.gcount() > 0) {
        bytes.append(block, static_cast<std::size_t>(stream.gcount()));
    }
    if (stream.bad()) fail(LastStreamError());
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
    fs::path beside = target;
    beside += "." + std::to_string(GetCurrentProcessId()) + ".tmp";
    CTemporaryFile temporary(beside);
    WriteThrough(temporary.Path(), path, bytes);
    error.clear();
    if (fs::exists(status)) fs::permissions(temporary.Path(), status.permissions(), error);
    if (!error) error = temporary.MoveTo(target);
    if (error) FailWrite(path, error);
}
