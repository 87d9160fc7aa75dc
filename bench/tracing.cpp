// Goals 14, 15 and 16: what the trace scopes cost while nobody traces and while somebody does, and the cipher.
#include <fcntl.h>
#include <time.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>

#include "Floor.h"
#include "Items.h"
#include "Measure.h"
#include "diagnostics/TraceCipher.h"
#include "diagnostics/TraceScope.h"
#include "module/RegistryKey.h"

namespace bench {
namespace {

// The loop as it stands in books, with the shift that keeps the sign.
void PlainCipher(char* text, std::size_t length) {
    const auto key = OVTraceNS::TraceCipherKey();
    std::uint32_t block[2] = {OVTraceNS::kTraceFirstBlock[0], OVTraceNS::kTraceFirstBlock[1]};
    while (length > 0) {
        const std::size_t n = length < 8 ? length : 8;
        std::int32_t x = static_cast<std::int32_t>(block[0]), y = static_cast<std::int32_t>(block[1]);
        std::uint32_t sum = 0;
        for (int round = 0; round < 32; ++round) {
            sum += 0x9E3779B9;
            const auto uy = static_cast<std::uint32_t>(y);
            x = static_cast<std::int32_t>(
                static_cast<std::uint32_t>(x) +
                (((uy << 4) + key[0]) ^ (uy + sum) ^ (static_cast<std::uint32_t>(y >> 5) + key[1])));
            const auto ux = static_cast<std::uint32_t>(x);
            y = static_cast<std::int32_t>(
                static_cast<std::uint32_t>(y) +
                (((ux << 4) + key[2]) ^ (ux + sum) ^ (static_cast<std::uint32_t>(x >> 5) + key[3])));
        }
        block[0] = static_cast<std::uint32_t>(x);
        block[1] = static_cast<std::uint32_t>(y);
        char* bytes = reinterpret_cast<char*>(block);
        for (std::size_t i = 0; i < n; ++i) text[i] = bytes[i] = static_cast<char>(text[i] ^ bytes[i]);
        text += n;
        length -= n;
    }
}

void Cipher() {
    char text[33] = "CommonSettings\\Area0001 = 0x0007", other[33];
    std::memcpy(other, text, sizeof text);
    Compare(
        "16 cipher of 33 bytes / the plain loop", {1.0, 0.85},
        [&](std::uint64_t times) {
            for (; times; --times) {
                OVTraceNS::EncipherTraceText(text, sizeof text);
                Keep(text);
            }
        },
        [&](std::uint64_t times) {
            for (; times; --times) {
                PlainCipher(other, sizeof other);
                Keep(other);
            }
        });
}

void PutTracing(LPCWSTR name, DWORD number) {
    CRegistryKey key;
    Must(!key.Create(HKEY_LOCAL_MACHINE, W("SOFTWARE\\Orvantis\\Tracing"), nullptr, 0, KEY_ALL_ACCESS, nullptr,
                     nullptr) &&
             !key.SetDword(name, number) &&
             !key.SetString(W("FileName"), Wide((std::filesystem::current_path() / "bench.trc3").string()).c_str()),
         "trace settings");
}

// One message of 40 bytes: the time, the format, the cipher, a move to the end and a write.
void Records() {
    PutTracing(W("DoTrace"), 1);
    OVTraceNS::RestartTracing(nullptr);
    {
        OVTraceNS::CTraceScope open("bench", 0);
        const std::string peer = (std::filesystem::current_path() / "bench-peer.trc").string();
        const int file = ::open(peer.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
        Must(file >= 0, "open");
        std::uint64_t told = 0;
        Compare(
            "15 U record of 40 bytes, tracing on / local time, format, cipher, seek and write", {1.5, 1.15},
            [&](std::uint64_t times) {
                for (told += times; times; --times) {
                    open.Print("%ls = '%ld' and %08X", W("SpareKey\\SpareKeyAll"), 1234, static_cast<DWORD>(times));
                }
            },
            [&](std::uint64_t times) {
                for (; times; --times) {
                    timespec now;
                    tm local;
                    clock_gettime(CLOCK_REALTIME, &now);
                    localtime_r(&now.tv_sec, &local);
                    Keep(local);
                    char record[7 + 64] = {};
                    const int length = std::snprintf(record + 7, 64, "%s = '%d' and %08X", "SpareKey\\SpareKeyAll",
                                                     1234, static_cast<unsigned>(times));
                    PlainCipher(record + 7, static_cast<std::size_t>(length));
                    Must(lseek(file, 0, SEEK_END) >= 0 && write(file, record, 7 + static_cast<std::size_t>(length)) > 0,
                         "write");
                }
            });
        close(file);
        Must(std::filesystem::file_size("bench.trc3") > told * 47, "write every record");
    }
    PutTracing(W("DoTrace"), 0);
    OVTraceNS::RestartTracing(nullptr);
    for (const char* name : {"bench.trc3", "bench-peer.trc"}) std::filesystem::remove(name);
}

}  // namespace

void Tracing() {
    const Work coarse = [](std::uint64_t times) {
        for (; times; --times) {
            timespec now;
            clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
            Keep(now);
        }
    };
    const Work scope = [](std::uint64_t times) {
        for (; times; --times) {
            OVTraceNS::CTraceScope inside("CServerInfo::GetInfo", 0);
            asm volatile("" : : : "memory");
        }
    };
    Compare("14 scope enter and leave, off / coarse clock read", {2.5, 1.5}, scope, coarse);
    OVTraceNS::CTraceScope open("bench", 0);
    const Work print = [&open](std::uint64_t times) {
        for (; times; --times) {
            open.Print("%ls = %ld", W("name"), static_cast<DWORD>(times));
            asm volatile("" : : : "memory");
        }
    };
    Compare("14 Print, off / coarse clock read", {0.5, 0.3}, print, coarse);
    Cipher();
    Records();
}

}  // namespace bench
