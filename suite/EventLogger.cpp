// OVEventLogger: keeps the audit events. Each goes to the system's log and, where one is named, to the audit file.
#include <chrono>
#include <cstdio>
#include <span>
#include <string>
#include <thread>
#include <vector>

#include "diagnostics/EventLogger.h"
#include "diagnostics/Format.h"
#include "module/FileHandle.h"
#include "security/SecurityDescriptor.h"
#include "suite/AuditFile.h"
#include "suite/Component.h"

namespace {

struct Message {
    DWORD id;
    const char* text;  // %1 is the first string
};
constexpr Message kMessages[] = {
    {kEventValueSet, "policy item '%1' was changed from '%2' to '%3' by %4\\%5"},
    {kEventValueSetFailed, "policy item '%1' was changed from '%2' to '%3' by %4\\%5, but the change failed: %6"},
    {kEventItemDeleted, "policy item '%1' with the value '%2' was deleted by %3\\%4"},
    {kEventItemDeleteFailed, "policy item '%1' with the value '%2' was deleted by %3\\%4, but that failed: %5"},
};

std::string Utf8(LPCWSTR text) {
    const int size = WideCharToMultiByte(CP_UTF8, 0, text, -1, nullptr, 0, nullptr, nullptr);
    std::string out(size > 1 ? static_cast<std::size_t>(size - 1) : 0, '\0');
    if (!out.empty()) WideCharToMultiByte(CP_UTF8, 0, text, -1, out.data(), size, nullptr, nullptr);
    return out;
}

std::string Escaped(LPCWSTR text) {
    wstr out;
    for (; *text; ++text) {
        if (*text == W('\\')) {
            out += W("\\\\");
        } else if (*text == W('\t') || *text == W('\n') || *text == W('\r')) {
            out += *text == W('\t') ? W("\\t") : *text == W('\n') ? W("\\n") : W("\\r");
        } else if (IsSteering(*text)) {
            WCHAR number[8];
            out.append(number, OVFormat::Format(number, std::size(number), "\\u%04X", static_cast<DWORD>(*text)));
        } else {
            out += *text;
        }
    }
    return Utf8(out.c_str());
}

// For readers: what would steer them is a blank.
std::string Plain(wstr text) {
    for (WCHAR& unit : text) {
        if (IsSteering(unit)) unit = W(' ');
    }
    return Utf8(text.c_str());
}

using Strings = std::span<const LPCWSTR>;

// An event of another id is told by its strings alone.
std::string MessageOf(DWORD id, Strings strings) {
    wstr out;
    for (const Message& message : kMessages) {
        if (message.id != id) continue;
        for (const char* at = message.text; *at; ++at) {
            if (*at != '%') {
                out += static_cast<WCHAR>(*at);
                continue;
            }
            const auto index = static_cast<std::size_t>(*++at - '1');
            if (index < strings.size()) out += strings[index];
        }
        return Plain(out);
    }
    out = W("event");
    for (LPCWSTR text : strings) out.append(W(" ")).append(text).append(W(";"));
    return Plain(out);
}

std::string LineOf(DWORD id, const std::string& message, Strings strings) {
    SYSTEMTIME now;
    GetLocalTime(&now);
    char head[64];
    std::snprintf(head, sizeof head, "%04u-%02u-%02u %02u:%02u:%02u.%03u\t0x%08X\t", now.wYear, now.wMonth, now.wDay,
                  now.wHour, now.wMinute, now.wSecond, now.wMilliseconds, static_cast<unsigned>(id));
    std::string line = head + message;
    for (LPCWSTR text : strings) line += '\t' + Escaped(text);
    return line + '\n';
}

// The file, once whoever has it for themselves alone is through with it.
CFileHandle OpenPatiently(LPCWSTR path, DWORD access, DWORD disposition, SECURITY_ATTRIBUTES* attributes) {
    constexpr int kTries = 100;
    constexpr std::chrono::milliseconds kPause(10);
    for (int tries = 1;; ++tries) {
        CFileHandle file(CreateFileW(path, access, FILE_SHARE_READ | FILE_SHARE_WRITE, attributes, disposition,
                                     FILE_ATTRIBUTE_NORMAL, nullptr));
        if (file || GetLastError() != ERROR_SHARING_VIOLATION || tries == kTries) return file;
        std::this_thread::sleep_for(kPause);
    }
}

// A line that a full disk cut off must not swallow the next one.
bool EndsInALine(LPCWSTR path) {
    const CFileHandle file = OpenPatiently(path, GENERIC_READ, OPEN_EXISTING, nullptr);
    if (!file || GetFileSize(file.Get(), nullptr) == 0) return true;
    char last = 0;
    DWORD read = 0;
    SetFilePointer(file.Get(), -1, nullptr, FILE_END);
    return !ReadFile(file.Get(), &last, 1, &read, nullptr) || last == '\n';
}

// A new file is for the system and administrators alone: values may be nobody else's business.
HRESULT Append(LPCWSTR path, const std::string& line) {
    CSecurityDescriptor security;
    RaiseIfFailed(security.InitializeFromProcessToken(false));
    RaiseIfFailed(security.AddAllowedAce(LocalSystemSid(), FILE_ALL_ACCESS));
    RaiseIfFailed(security.AddAllowedAce(AdministratorsSid(), FILE_ALL_ACCESS));
    SECURITY_ATTRIBUTES attributes = {sizeof attributes, security.Get(), FALSE};
    const std::string whole = (EndsInALine(path) ? "" : "\n") + line;
    const CFileHandle file = OpenPatiently(path, FILE_APPEND_DATA, OPEN_ALWAYS, &attributes);
    DWORD written = 0;
    // One write, so that the lines of two processes do not mix.
    if (!file || !WriteFile(file.Get(), whole.data(), static_cast<DWORD>(whole.size()), &written, nullptr)) {
        return ResultOfLastError();
    }
    return written == whole.size() ? S_OK : HRESULT_FROM_WIN32(ERROR_DISK_FULL);
}

class COVEventLogger : public CComObjectRootEx<CComMultiThreadModel>,
                       public CComCoClass<COVEventLogger, &CLSID_EventLogger>,
                       public IOVEventLogger {
  public:
    static std::span<const InterfaceEntry<COVEventLogger>> InterfaceMap() noexcept {
        static constexpr InterfaceEntry<COVEventLogger> kMap[] = {
            {IID_IOVEventLogger, &InterfaceOf<COVEventLogger, IOVEventLogger>},
        };
        return kMap;
    }

    STDMETHODIMP LogEvent(LPCWSTR, DWORD, DWORD, DWORD, DWORD id, DWORD count, const LPCWSTR* strings, DWORD,
                          const void*) override {
        if (count != 0 && !strings) return E_INVALIDARG;
        return Guarded([&]() -> HRESULT {
            std::vector<LPCWSTR> texts;
            for (DWORD i = 0; i < count; ++i) texts.push_back(strings[i] ? strings[i] : W(""));
            const std::string message = MessageOf(id, texts);
            OvSystemLog(message.c_str(), (id >> 30) >= 2);
            const wstr path = AuditFilePath();
            return path.empty() ? S_OK : Append(path.c_str(), LineOf(id, message, texts));
        });
    }
};

}  // namespace

OV_SUITE_COMPONENT(COVEventLogger)
