// OVEventLogger: keeps the audit events. Each goes to the system's log and, where AuditFile of
// SOFTWARE\Orvantis\EventLog names one, to a file, one line an event:
//
//   time <TAB> id <TAB> message <TAB> string <TAB> string ...
//
// Time is local, the id hexadecimal. The message is for readers; in the strings tabs, line ends, backslashes and other
// controls are written out as \t, \n, \r, \\ and \xNN, so that no value can make up a line.
#include <cstdio>
#include <span>
#include <string>
#include <vector>

#include "diagnostics/EventLogger.h"
#include "module/ComFrame.h"
#include "module/FileHandle.h"
#include "module/RegistryKey.h"
#include "security/SecurityDescriptor.h"

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

std::string Escaped(const std::string& text) {
    std::string out;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        char number[8];
        if (c == '\\') {
            out += "\\\\";
        } else if (c == '\t' || c == '\n' || c == '\r') {
            out += c == '\t' ? "\\t" : c == '\n' ? "\\n" : "\\r";
        } else if (byte < 0x20 || byte == 0x7F) {
            std::snprintf(number, sizeof number, "\\x%02X", byte);
            out += number;
        } else {
            out += c;
        }
    }
    return out;
}

// For readers: a control is a blank.
std::string Plain(std::string text) {
    for (char& c : text) {
        if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F) c = ' ';
    }
    return text;
}

using Strings = std::span<const std::string>;

// An event of another id is told by its strings alone.
std::string MessageOf(DWORD id, Strings strings) {
    std::string out;
    for (const Message& message : kMessages) {
        if (message.id != id) continue;
        for (const char* at = message.text; *at; ++at) {
            if (*at != '%') {
                out += *at;
                continue;
            }
            const auto index = static_cast<std::size_t>(*++at - '1');
            if (index < strings.size()) out += strings[index];
        }
        return Plain(out);
    }
    out = "event";
    for (const std::string& text : strings) out += " " + text + ";";
    return Plain(out);
}

std::string LineOf(DWORD id, const std::string& message, Strings strings) {
    SYSTEMTIME now;
    GetLocalTime(&now);
    char head[64];
    std::snprintf(head, sizeof head, "%04u-%02u-%02u %02u:%02u:%02u.%03u\t0x%08X\t", now.wYear, now.wMonth, now.wDay,
                  now.wHour, now.wMinute, now.wSecond, now.wMilliseconds, static_cast<unsigned>(id));
    std::string line = head + message;
    for (const std::string& text : strings) line += '\t' + Escaped(text);
    return line + '\n';
}

// For the system and administrators alone: values may be nobody else's business.
HRESULT Append(LPCWSTR path, const std::string& line) {
    CSecurityDescriptor security;
    RaiseIfFailed(security.InitializeFromProcessToken(false));
    RaiseIfFailed(security.AddAllowedAce(LocalSystemSid(), FILE_ALL_ACCESS));
    RaiseIfFailed(security.AddAllowedAce(AdministratorsSid(), FILE_ALL_ACCESS));
    SECURITY_ATTRIBUTES attributes = {sizeof attributes, security.Get(), FALSE};
    const CFileHandle file(CreateFileW(path, FILE_APPEND_DATA, FILE_SHARE_READ | FILE_SHARE_WRITE, &attributes,
                                       OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
    DWORD written = 0;
    // One write, so that the lines of two processes do not mix.
    if (!file || !WriteFile(file.Get(), line.data(), static_cast<DWORD>(line.size()), &written, nullptr)) {
        return HRESULT_FROM_WIN32(GetLastError());
    }
    return written == line.size() ? S_OK : HRESULT_FROM_WIN32(ERROR_DISK_FULL);
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
            std::vector<std::string> texts;
            for (DWORD i = 0; i < count; ++i) texts.push_back(strings[i] ? Utf8(strings[i]) : std::string());
            const std::string message = MessageOf(id, texts);
            OvSystemLog(message.c_str(), (id >> 30) >= 2);
            CRegistryKey key;
            WCHAR path[MAX_PATH] = {};
            DWORD length = MAX_PATH;
            const bool toFile = !key.Open(HKEY_LOCAL_MACHINE, W("SOFTWARE\\Orvantis\\EventLog"), KEY_READ) &&
                                !key.QueryString(W("AuditFile"), path, length) && *path;
            return toFile ? Append(path, LineOf(id, message, texts)) : S_OK;
        });
    }
};

CComModule& Module() noexcept {
    static ObjectMapEntry objects[] = {
        {&CLSID_EventLogger, &CreateObject<COVEventLogger>, nullptr},
        {nullptr, nullptr, nullptr},
    };
    static CComModule module;
    static const HRESULT made = module.Init(objects);
    static_cast<void>(made);
    return module;
}

}  // namespace

STDAPI DllGetClassObject(REFCLSID classId, REFIID iid, LPVOID* object) {
    return Module().GetClassObject(classId, iid, object);
}

STDAPI DllCanUnloadNow() {
    return Module().CanUnloadNow();
}
