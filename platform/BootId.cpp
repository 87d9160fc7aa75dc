#include "BootId.h"

#include <fcntl.h>
#include <unistd.h>

namespace {

struct CBootText {
    CBootText() noexcept {
        const int file = open("/proc/sys/kernel/random/boot_id", O_RDONLY | O_CLOEXEC);
        if (file < 0) return;
        const ssize_t got = read(file, text, sizeof text);
        close(file);
        if (got > 0) length = static_cast<std::size_t>(got);
    }

    // Without a kernel to ask, every run is the same one, and volatile keys stay until they are deleted.
    BYTE text[36] = {'0'};
    std::size_t length = 1;
};

}  // namespace

std::span<const BYTE> BootId() noexcept {
    static const CBootText boot;
    return {boot.text, boot.length};
}
