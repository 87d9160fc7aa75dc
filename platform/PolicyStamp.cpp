#include "PolicyStamp.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <thread>

#include "HiveError.h"

namespace {

DWORD Failed() noexcept {
    return HiveErrorFromErrno(errno);
}

}  // namespace

CPolicyFiles::CPolicyFiles(const std::string& root, bool machine)
    : m_folder(root + "/policy"),
      m_stamp(m_folder + (machine ? "/machine.stamp" : "/users.stamp")),
      m_lock(m_folder + (machine ? "/machine.lock" : "/users.lock")) {}

DWORD CPolicyFiles::OpenOrMake(const std::string& folder, const std::string& path, int access, CFile& file) {
    file.Reset(open(path.c_str(), access | O_CLOEXEC));
    if (file) return ERROR_SUCCESS;
    if (errno != ENOENT) return Failed();
    if (const DWORD error = MakeFolders(folder)) return error;
    file.Reset(open(path.c_str(), access | O_CREAT | O_CLOEXEC, kSharedMode));
    if (!file) return Failed();
    return fchmod(file.Get(), kSharedMode) == 0 || errno == EPERM ? ERROR_SUCCESS : Failed();
}

std::uint64_t CPolicyFiles::Stamp() const noexcept {
    const CFile file(open(m_stamp.c_str(), O_RDONLY | O_CLOEXEC));
    std::uint64_t number = 0;
    return file && pread(file.Get(), &number, sizeof number, 0) == sizeof number ? number : 0;
}

bool CPolicyFiles::StampTime(std::time_t& seconds, int& milliseconds) const noexcept {
    struct stat found;
    if (stat(m_stamp.c_str(), &found) != 0) return false;
    seconds = found.st_mtim.tv_sec;
    milliseconds = static_cast<int>(found.st_mtim.tv_nsec / 1000000);
    return true;
}

DWORD CPolicyFiles::RaiseStamp() const {
    CFile file;
    if (const DWORD error = OpenOrMake(m_folder, m_stamp, O_RDWR, file)) return error;
    // Of two that signal at once, each must make a number of its own.
    while (flock(file.Get(), LOCK_EX) != 0) {
        if (errno != EINTR) return Failed();
    }
    std::uint64_t number = 0;
    if (pread(file.Get(), &number, sizeof number, 0) != sizeof number) number = 0;
    // By the clock, so that a stamp that was removed does not begin again where it began before.
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    const auto clock = std::chrono::duration_cast<std::chrono::nanoseconds>(now).count();
    number = std::max(number + 1, static_cast<std::uint64_t>(clock));
    return pwrite(file.Get(), &number, sizeof number, 0) == sizeof number ? ERROR_SUCCESS : Failed();
}

// Polls, since no holder may keep others waiting for ever: after ten minutes the platform takes the section back.
DWORD CPolicyFiles::Lock(CFile& file) const {
    using namespace std::chrono;
    constexpr minutes kLongestHold(10);
    if (const DWORD error = OpenOrMake(m_folder, m_lock, O_RDONLY, file)) return error;
    const auto end = steady_clock::now() + kLongestHold;
    for (microseconds pause(50); flock(file.Get(), LOCK_EX | LOCK_NB) != 0;) {
        if (errno == EINTR) continue;
        if (errno != EWOULDBLOCK) return Failed();
        if (steady_clock::now() >= end) return ERROR_BUSY;
        std::this_thread::sleep_for(pause);
        pause = std::min<microseconds>(pause * 2, milliseconds(2));
    }
    return ERROR_SUCCESS;
}
