#include "diagnostics/EventLog.h"

#include "diagnostics/EventLogger.h"
#include "diagnostics/TraceScope.h"
#include "module/ComPtr.h"
#include "module/Failure.h"
#include "module/RegistryKey.h"
#include "module/SystemVersion.h"
#include "module/TaskMem.h"

namespace {

constexpr LPCWSTR kSettings = W("SOFTWARE\\Orvantis\\EventLog");
constexpr GUID kDefaultClass = {0xFB4CA59D, 0x9C36, 0x4DA7, {0xA1, 0xE8, 0xE0, 0xE3, 0xFA, 0x7A, 0x77, 0xA0}};
constexpr DWORD kFirstMajorWithClasses = 6;
constexpr std::size_t kOrdinaryStrings = 8;

// The severity in the two upper bits of an id, as an event type: success, information, warning, error.
DWORD TypeOf(DWORD id) noexcept {
    static constexpr DWORD kTypes[] = {0, 4, 2, 1};
    return kTypes[id >> 30];
}

// False when the key or the value is missing.
bool ReadSetting(LPCWSTR name, REGSAM access, wstr& value) {
    CRegistryKey key;
    if (key.Open(HKEY_LOCAL_MACHINE, kSettings, access)) return false;
    WCHAR text[MAX_PATH] = {};
    DWORD length = MAX_PATH;
    if (key.QueryString(name, text, length)) return false;
    value = text;
    return true;
}

}  // namespace

LogEvent::LogEvent(DWORD level, DWORD id, const GUID& classId)
    : m_level(level), m_type(TypeOf(id)), m_category(id & 0xFF00), m_id(id), m_class(classId) {
    m_strings.reserve(kOrdinaryStrings);
}

LogEvent& LogEvent::operator<<(LPCWSTR text) {
    m_strings.emplace_back(text ? text : W(""));
    return *this;
}

LogEvent& LogEvent::operator<<(DWORD number) {
    return *this << OVLog::FormattedValue<DWORD, OVLog::DecimalFormat>(number);
}

LogEvent& LogEvent::operator<<(const OVLog::Parameter& parameter) {
    m_strings.push_back(parameter.Value());
    return *this;
}

LogEvent& LogEvent::operator<<(const OVLog::InitiatedBy& who) {
    m_strings.push_back(who.Domain());
    m_strings.push_back(who.Account());
    return *this;
}

COVLog::COVLog(LPCWSTR source) : m_sApplicationName(source ? source : W("")) {
    if (m_sApplicationName.empty()) ReadSetting(W("DefaultSource"), KEY_READ, m_sApplicationName);
    if (m_sApplicationName.empty()) m_sApplicationName = W("Orvantis Pro");
}

HRESULT COVLog::Log(const LogEvent& event) const noexcept {
    OVTraceNS::CTraceScope scope("COVLog::Log(LogEvent)", 10);
    return AtBoundary(scope, [&]() -> HRESULT {
        std::vector<LPCWSTR> strings;
        strings.reserve(event.Strings().size());
        for (const wstr& text : event.Strings()) strings.push_back(text.c_str());
        GUID classId = event.Class();
        return Log(event.Level(), event.Type(), event.Category(), event.Id(), static_cast<DWORD>(strings.size()),
                   strings.empty() ? nullptr : strings.data(), 0, nullptr, classId);
    });
}

// The systems that know event classes take the class for the name. Others have a name for it in the settings, or the
// object's own.
wstr COVLog::ApplicationName(LPCWSTR classText) const {
    if (IsSystemOfVersion(kFirstMajorWithClasses)) return classText;
    wstr name;
    return ReadSetting(classText, KEY_READ | KEY_WOW64_64KEY, name) ? name : m_sApplicationName;
}

HRESULT COVLog::Log(DWORD level, DWORD type, DWORD category, DWORD id, DWORD count, const LPCWSTR* strings,
                    DWORD dataSize, const void* data, GUID& classId) const noexcept {
    OVTraceNS::CTraceScope scope("COVLog::Log", 10);
    return AtBoundary(scope, [&]() -> HRESULT {
        if (classId == GUID{}) classId = kDefaultClass;
        const wstr application = ApplicationName(ClassIdText(classId).c_str());
        scope.Print("m_sApplicationName - %ls", application.c_str());
        const HRESULT hr = _LogEvent(application.c_str(), level, type, category, id, count, strings, dataSize, data);
        if (FAILED(hr)) return hr;
        wstr all(W(" "));
        for (DWORD i = 0; i < count; ++i) {
            if (strings[i]) all.append(strings[i]).append(W("; "));
        }
        scope.Print("Event logged; ID: 0x%08x, LEVEL: %ld, TYPE: %ld, STRINGS:%ws", id, level, type, all.c_str());
        return hr;
    });
}

HRESULT _LogEvent(LPCWSTR application, DWORD level, DWORD type, DWORD category, DWORD id, DWORD count,
                  const LPCWSTR* strings, DWORD dataSize, const void* data) noexcept {
    OVTraceNS::CTraceScope scope("_LogEvent", 10);
    CDLLLoader library;  // freed when what its code may have thrown is gone
    return AtBoundary(scope, [&]() -> HRESULT {
        CRegistryKey key;
        RaiseIfRegistryFailed(key.Open(HKEY_CLASSES_ROOT,
                                       (W("CLSID\\") + ClassIdText(CLSID_EventLogger) + W("\\InprocServer32")).c_str(),
                                       KEY_READ));
        WCHAR path[MAX_PATH] = {};
        DWORD length = MAX_PATH;
        RaiseIfRegistryFailed(key.QueryString(nullptr, path, length));
        library = CDLLLoader(path);
        if (!library) return ResultOfLastError();
        const auto getClassObject = library.Find<LPFNGETCLASSOBJECT>("DllGetClassObject");
        if (!getClassObject) return ResultOfLastError();
        // Both go before the library does.
        CComPtr<IClassFactory> factory;
        RaiseIfFailed(getClassObject(CLSID_EventLogger, IID_IClassFactory, reinterpret_cast<void**>(&factory)));
        if (!factory) return E_POINTER;
        CComPtr<IOVEventLogger> logger;
        RaiseIfFailed(factory->CreateInstance(nullptr, IID_IOVEventLogger, reinterpret_cast<void**>(&logger)));
        if (!logger) return E_POINTER;
        return logger->LogEvent(application, level, type, category, id, count, strings, dataSize, data);
    });
}
