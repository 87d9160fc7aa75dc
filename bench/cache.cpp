// Goals 11, 12 and 13: the cache file, written and read, and what its writing takes in memory.
#include <fcntl.h>
#include <malloc.h>
#include <md5.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>

#include "Items.h"
#include "Maps.h"
#include "Measure.h"
#include "cache/CacheFile.h"
#include "module/RegistryKey.h"
#include "security/CoreKey.h"
#include "support/StoreDoor.h"

namespace bench {
namespace {

constexpr std::size_t kItems = 10'000;

std::string Body(const CPolicyMap& map) {
    OVTraceNS::CTraceScope scope("bench", 0);
    const CDerWriter body = EncodeCacheBody(map, scope);
    return {body.Written().begin(), body.Written().end()};
}

using Digest = unsigned char[MD5_DIGEST_LENGTH];

void Md5(const std::string& body, Digest& digest) {
    MD5_CTX state;
    MD5Init(&state);
    MD5Update(&state, reinterpret_cast<const unsigned char*>(body.data()), body.size());
    MD5Final(digest, &state);
    Keep(digest);
}

void WriteAnew(const std::filesystem::path& path, const std::string& body) {
    Digest digest;
    Md5(body, digest);
    const int file = open(path.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    Must(file >= 0 && write(file, body.data(), body.size()) == static_cast<ssize_t>(body.size()) &&
             write(file, digest, sizeof digest) == sizeof digest && fsync(file) == 0,
         "write");
    close(file);
}

void Encoding(CPolicyMap& map, std::size_t count, const char* measure, const Limits& limits) {
    map = MapOf(MakeItems(count));
    const std::string body = Body(map);
    const auto per = static_cast<double>(count);
    Compare(
        measure, limits,
        [&](std::uint64_t times) {
            OVTraceNS::CTraceScope scope("bench", 0);
            for (; times; --times) Keep(CacheDigestOf(EncodeCacheBody(map, scope).Written()));
        },
        [&](std::uint64_t times) {
            Digest digest;
            for (; times; --times) Md5(body, digest);
        },
        per, per);
}

// Kilobytes, of this process.
long Status(const char* field) {
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);) {
        if (line.starts_with(field)) return std::stol(line.substr(std::strlen(field)));
    }
    Must(false, "read /proc/self/status");
    return 0;
}

void Memory(CTestInstance& server, const std::filesystem::path& path) {
    StoreDoor::Items(*server) = MapOf(MakeItems(100'000));
    Must(StoreDoor::Save(*server) == S_OK, "save");  // whatever is only made once is there
    malloc_trim(0);                                  // what was freed before would be used again, unseen
    std::ofstream("/proc/self/clear_refs") << 5;
    const long before = Status("VmRSS:");
    Must(StoreDoor::Save(*server) == S_OK, "save");
    const double used = static_cast<double>(Status("VmHWM:") - before) * 1024;
    const double size = static_cast<double>(std::filesystem::file_size(path));
    Must(used > size / 2, "see the memory of a save");
    Print("save of 100,000 items, peak of memory / size of the file, bytes", used, size, used / size, {3, 3});
}

}  // namespace

void Cache() {
    const std::filesystem::path folder = std::filesystem::current_path();
    {
        CRegistryKey key = OpenCoreKey(KEY_ALL_ACCESS);
        Must(key.SetString(W("BinDir"), Wide(folder.string()).c_str()) == ERROR_SUCCESS, "BinDir");
    }
    CTestInstance server;
    CPolicyMap& map = StoreDoor::Items(*server);
    Encoding(map, 1'000, "11 save of 1,000 items, encoding and digest / MD5 of the body", {1.6, 1.25});
    Encoding(map, kItems, "11 save of 10,000 items, encoding and digest / MD5 of the body", {1.6, 1.25});

    const std::string body = Body(map);
    CPolicyMap others = MapOf(Vary(MakeItems(kItems), 1));  // what is in the file already is not written again
    Compare(
        "12 save of 10,000 items, whole / MD5, truncate, write and flush", {1.4, 1.15},
        [&](std::uint64_t times) {
            for (; times; --times) {
                Must(StoreDoor::Save(*server) == S_OK, "save");
                std::swap(map, others);
            }
        },
        [&](std::uint64_t times) {
            for (; times; --times) WriteAnew(folder / "bench-peer.cch", body);
        },
        kItems, kItems);
    Compare(
        "13 load of 10,000 items / MD5 of the body", {5, 3},
        [&](std::uint64_t times) {
            for (; times; --times) Must(StoreDoor::Load(*server) == S_OK, "load");
        },
        [&](std::uint64_t times) {
            Digest digest;
            for (; times; --times) Md5(body, digest);
        },
        kItems, kItems);
    Memory(server, folder / "svinfo.cch");
    StoreDoor::Items(*server).Clear();
}

}  // namespace bench
