#include "HiveGeneration.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cstring>
#include <ctime>

namespace {

constexpr std::uint64_t kMark = 0x314E45475648564F;  // "OVHVGEN1"
// Written in full, so that no later store into the mapping needs a block of the disk.
constexpr std::size_t kPageSize = 4096;

}  // namespace

DWORD CHiveGeneration::Put(const CHiveFiles& files) {
    // The counters begin with the time, so that no two files of one name ever tell the same number.
    timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    const std::uint64_t start =
        static_cast<std::uint64_t>(now.tv_sec) * 1'000'000'000 + static_cast<std::uint64_t>(now.tv_nsec);
    const CGenerationPage first = {kMark, start, start};
    std::array<char, kPageSize> content = {};
    std::memcpy(content.data(), &first, sizeof first);
    return PutHiveFile(files, files.generation, content.data(), content.size());
}

bool CHiveGeneration::MapForReading(const CHiveFiles& files) noexcept {
    return Map(files.generation.c_str(), false);
}

bool CHiveGeneration::Map(const char* path, bool writable) noexcept {
    Unmap();
    const int file = open(path, (writable ? O_RDWR : O_RDONLY) | O_CLOEXEC | O_NOFOLLOW);
    if (file < 0) return false;
    struct stat status;
    void* page = MAP_FAILED;
    if (fstat(file, &status) == 0 && S_ISREG(status.st_mode) && status.st_size >= static_cast<off_t>(kPageSize)) {
        page = mmap(nullptr, kPageSize, PROT_READ | (writable ? PROT_WRITE : 0), MAP_SHARED, file, 0);
    }
    close(file);
    if (page == MAP_FAILED) return false;
    m_page = static_cast<CGenerationPage*>(page);
    m_identity = {status.st_dev, status.st_ino};
    if (Load(m_page->mark) == kMark) return true;
    Unmap();
    return false;
}

void CHiveGeneration::Unmap() noexcept {
    if (m_page) munmap(m_page, kPageSize);
    m_page = nullptr;
    m_identity = {};
}

CGenerationCounters CHiveGeneration::Read() const noexcept {
    if (!m_page || Load(m_page->mark) != kMark) return {};
    CGenerationCounters counters;
    counters.done = Load(m_page->done);
    counters.begun = Load(m_page->begun);
    return counters;
}

DWORD CHiveGeneration::Prepare(const CHiveFiles& files) {
    struct stat status;
    const bool same = m_page && stat(files.generation.c_str(), &status) == 0 &&
                      m_identity == CFileIdentity{status.st_dev, status.st_ino} &&
                      status.st_size >= static_cast<off_t>(kPageSize) && Load(m_page->mark) == kMark;
    if (same || Map(files.generation.c_str(), true)) return ERROR_SUCCESS;
    if (const DWORD error = Put(files)) return error;
    return Map(files.generation.c_str(), true) ? ERROR_SUCCESS : ERROR_REGISTRY_IO_FAILED;
}

std::uint64_t CHiveGeneration::Begin() noexcept {
    const CGenerationCounters before = Read();
    const std::uint64_t number = (before.begun > before.done ? before.begun : before.done) + 1;
    __atomic_store_n(&m_page->begun, number, __ATOMIC_SEQ_CST);
    return number;
}

void CHiveGeneration::End(std::uint64_t number) noexcept {
    std::uint64_t done = Load(m_page->done);
    while (done < number &&
           !__atomic_compare_exchange_n(&m_page->done, &done, number, true, __ATOMIC_RELEASE, __ATOMIC_ACQUIRE)) {
    }
}
