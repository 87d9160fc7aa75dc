#include "diagnostics/TraceHeader.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <vector>

#include "diagnostics/TraceEngine.h"
#include "module/Library.h"
#include "module/RegistryKey.h"

namespace OVTraceNS {

namespace {

constexpr std::size_t kLineRoom = 360;
constexpr std::size_t kProductRoom = 260;

// Text in the system's code page, cut where it does not fit.
template <std::size_t room>
void Narrow(const WCHAR* text, char (&out)[room]) noexcept {
    const int units = static_cast<int>(std::char_traits<WCHAR>::length(text));
    const int length =
        units ? WideCharToMultiByte(CP_ACP, 0, text, units, out, static_cast<int>(room) - 1, nullptr, nullptr) : 0;
    out[std::clamp(length, 0, static_cast<int>(room) - 1)] = 0;
}

void Put(HANDLE file, const char* line) noexcept {
    DWORD written = 0;
    WriteFile(file, line, static_cast<DWORD>(std::strlen(line)), &written, nullptr);
}

// A line that is cut keeps its end when it is `ended`.
template <std::size_t room, bool ended = false>
__attribute__((format(printf, 2, 3))) void Line(HANDLE file, const char* format, ...) noexcept {
    char line[room];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(line, room, format, arguments);
    va_end(arguments);
    if (ended) std::memcpy(line + room - 3, "\r\n", 3);
    Put(file, line);
}

OSVERSIONINFOEXW System() noexcept {
    OSVERSIONINFOEXW version = {};
    version.dwOSVersionInfoSize = sizeof version;
    GetVersionExW(reinterpret_cast<OSVERSIONINFOW*>(&version));
    return version;
}

void PutSystem(HANDLE file) noexcept {
    constexpr int kAny = -1;
    static constexpr struct {
        DWORD major;
        int minor;
        int workstation;  // 1 for one, 0 for a server
        const char* name;
    } kSystems[] = {{6, 2, 0, "Server2012"},    {6, 2, 1, "Windows8"},         {6, 1, kAny, "Windows7"},
                    {6, 0, 1, "WindowsVista"},  {6, 0, 0, "Server2008"},       {5, 1, kAny, "WindowsXP"},
                    {5, 2, kAny, "Server2003"}, {5, kAny, kAny, "Windows2000"}};
    const OSVERSIONINFOEXW version = System();
    const auto fits = [&](const auto& system) {
        const bool minor = system.minor == kAny || static_cast<DWORD>(system.minor) == version.dwMinorVersion;
        const bool kind = system.workstation == kAny || system.workstation == (version.wProductType == 1 ? 1 : 0);
        return version.dwPlatformId == VER_PLATFORM_WIN32_NT && system.major == version.dwMajorVersion && minor && kind;
    };
    const auto found = std::find_if(std::begin(kSystems), std::end(kSystems), fits);
    if (found != std::end(kSystems)) {
        Line<kLineRoom>(file, "OS: %s\r\n", found->name);
    } else {
        Line<kLineRoom>(file, "OS: UNKNOWN OS(Major:%d Minor:%d)\r\n", static_cast<int>(version.dwMajorVersion),
                        static_cast<int>(version.dwMinorVersion));
    }
    char pack[std::size(version.szCSDVersion)];
    Narrow(version.szCSDVersion, pack);
    Line<kLineRoom>(file, "ServicePack: %s\r\n", pack);
}

// The fixed part of a module's version resource, as its library tells it.
bool ReadVersion(const char* module, DWORD (&numbers)[2]) noexcept {
    using SizeProc = DWORD(WINAPI*)(LPCSTR, DWORD*);
    using InfoProc = BOOL(WINAPI*)(LPCSTR, DWORD, DWORD, LPVOID);
    using ValueProc = BOOL(WINAPI*)(LPCVOID, LPCSTR, LPVOID*, UINT*);
    const CDLLLoader library(W("Version.dll"));
    const auto size = library.Find<SizeProc>("GetFileVersionInfoSizeA");
    const auto info = library.Find<InfoProc>("GetFileVersionInfoA");
    const auto value = library.Find<ValueProc>("VerQueryValueA");
    if (!size || !info || !value) return false;
    DWORD ignored = 0;
    const DWORD bytes = size(module, &ignored);
    if (bytes == 0) return false;
    try {
        std::vector<BYTE> block(bytes);
        void* found = nullptr;
        UINT length = 0;
        // A VS_FIXEDFILEINFO: signature, version of the structure, then the two words of the file's version.
        if (!info(module, 0, bytes, block.data()) || !value(block.data(), "\\", &found, &length)) return false;
        if (!found || length < 4 * sizeof(DWORD)) return false;
        std::memcpy(numbers, static_cast<const BYTE*>(found) + 2 * sizeof(DWORD), sizeof numbers);
        return true;
    } catch (...) {
        return false;
    }
}

void PutVersion(HANDLE file, const char* module) noexcept {
    DWORD numbers[2] = {};
    if (ReadVersion(module, numbers)) {
        Line<kLineRoom>(file, "FileVersion: %d.%d.%d.%d\r\n", static_cast<int>(numbers[0] >> 16),
                        static_cast<int>(numbers[0] & 0xFFFF), static_cast<int>(numbers[1] >> 16),
                        static_cast<int>(numbers[1] & 0xFFFF));
    } else {
        Put(file, "FileVersion: UNKNOWN\r\n");
    }
}

// The value "Version" in narrow form, whatever its type. A Win32 error.
LONG ReadProductVersion(const CRegistryKey& key, char (&out)[kProductRoom]) noexcept {
    WCHAR data[kProductRoom + 1] = {};
    DWORD type = REG_NONE, size = kProductRoom * sizeof(WCHAR);
    const LONG error = RegQueryValueExW(key.Get(), W("Version"), nullptr, &type, reinterpret_cast<BYTE*>(data), &size);
    if (error) return error;
    const bool isText = type == REG_SZ || type == REG_EXPAND_SZ || type == REG_MULTI_SZ;
    if (isText) {
        Narrow(data, out);
        return ERROR_SUCCESS;
    }
    if (size > kProductRoom) return ERROR_MORE_DATA;
    std::memset(out, 0, sizeof out);
    std::memcpy(out, data, std::min<std::size_t>(size, sizeof out - 1));
    return ERROR_SUCCESS;
}

void PutProduct(HANDLE file, const CRegistryKey& products, const WCHAR* wideName) noexcept {
    char name[kProductRoom], version[kProductRoom];
    Narrow(wideName, name);
    CRegistryKey key;
    if (const LONG error = key.Open(products.Get(), wideName, KEY_READ)) {
        return Line<kProductRoom, true>(file, "Product: %s ERROR(0x%X)\r\n", name, static_cast<unsigned>(error));
    }
    if (const LONG error = ReadProductVersion(key, version)) {
        return Line<kProductRoom, true>(file, "Product: %s; Version: ERROR(0x%X)\r\n", name,
                                        static_cast<unsigned>(error));
    }
    Line<kProductRoom, true>(file, "Product: %s; Version: %s\r\n", name, version);
}

void PutProducts(HANDLE file) noexcept {
    CRegistryKey products;
    DWORD count = 0;
    if (!products.Open(HKEY_LOCAL_MACHINE, W("SOFTWARE\\Orvantis\\Products"), KEY_READ)) {
        WCHAR name[kLongestKeyName + 1];
        for (DWORD length = kLongestKeyName + 1;
             !RegEnumKeyExW(products.Get(), count, name, &length, nullptr, nullptr, nullptr, nullptr);
             length = kLongestKeyName + 1) {
            PutProduct(file, products, name);
            ++count;
        }
    }
    if (count == 0) Put(file, "No Ellarium products found\r\n");
}

// A computer that works without a network says so in its policy.
bool IsLocal() noexcept {
    CRegistryKey key;
    DWORD number = 0;
    return !key.Open(HKEY_LOCAL_MACHINE, W("SOFTWARE\\Policies\\Orvantis"), KEY_READ) &&
           !key.QueryDword(W("WorkWithoutNetwork"), number) && number != 0;
}

}  // namespace

void WriteTraceHeader(HANDLE file) noexcept {
    Put(file, kTraceMagic);
    Line<kLineRoom>(file, "Compiled: %s %s\r\n", __DATE__, __TIME__);
    char module[261];
    Narrow(TheTraceEngine().Module().text, module);
    Line<kLineRoom>(file, "File location: %s\r\n", module);
    PutSystem(file);
    WCHAR wideName[260] = {};
    DWORD room = 260;
    GetComputerNameW(wideName, &room);
    char name[260];
    Narrow(wideName, name);
    Line<kLineRoom, true>(file, "Machine name: %s\r\n", name);
    Line<kLineRoom>(file, "Trace Ver: %s\r\n", "3.0.1");
    PutVersion(file, module);
    PutProducts(file);
    Put(file, IsLocal() ? "installation: LOCAL\r\n" : "installation: NETWORK\r\n");
    SYSTEMTIME now;
    GetLocalTime(&now);
    Line<kLineRoom>(file, "%02d/%02d/%04d %02d:%02d:%02d.%03d\r\n", now.wMonth, now.wDay, now.wYear, now.wHour,
                    now.wMinute, now.wSecond, now.wMilliseconds);
    Put(file, kTraceHeadEnd);
}

}  // namespace OVTraceNS
