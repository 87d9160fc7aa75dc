#include "diagnostics/TraceConfig.h"

#include <iterator>
#include <new>
#include <utility>

#include "diagnostics/Format.h"
#include "diagnostics/TraceEngine.h"
#include "diagnostics/TraceFile.h"
#include "diagnostics/TraceFileName.h"
#include "diagnostics/TraceSettings.h"
#include "module/Library.h"
#include "module/RegistryKey.h"

namespace OVTraceNS {

namespace {

constexpr DWORD kCheckEvery = 30000;  // milliseconds

// How each flag is read from its value.
struct FlagRule {
    LPCWSTR value;
    DWORD bit;
    bool whenAbsent;  // also when it is no REG_DWORD
    bool onlyOne;     // 1 and no other number sets it
};

constexpr FlagRule kToFileRule = {W("TraceToFile"), kTraceToFile, true, true};
constexpr FlagRule kTraceRule = {W("DoTrace"), kDoTrace, false, false};
constexpr FlagRule kFlagRules[] = {
    kToFileRule,
    {W("NewFileAlways"), kNewFileAlways, true, false},
    kTraceRule,
    {W("DoLog"), kDoLog, false, false},
    {W("DoProfiling"), kDoProfiling, false, false},
};

bool IsSet(const CRegistryKey& key, const FlagRule& rule) noexcept {
    DWORD value = 0;
    if (key.QueryDword(rule.value, value) != ERROR_SUCCESS) return rule.whenAbsent;
    return rule.onlyOne ? value == 1 : value != 0;
}

// Without a key nothing is set, not even what an absent value means.
DWORD ReadFlags() noexcept {
    CRegistryKey key;
    if (!OpenTracingKey(key)) return 0;
    DWORD flags = 0;
    for (const FlagRule& rule : kFlagRules) flags |= IsSet(key, rule) ? rule.bit : 0;
    return flags;
}

enum class Listed { kNoList, kOthers, kThisModule };

// Whether the module is among the value names of a subkey.
Listed LookInList(const CRegistryKey& key, LPCWSTR subkey, LPCWSTR module) noexcept {
    CRegistryKey list;
    if (list.Open(key.Get(), subkey, KEY_READ) != ERROR_SUCCESS) return Listed::kNoList;
    Listed found = Listed::kNoList;
    for (DWORD index = 0;; ++index) {
        WCHAR name[MAX_PATH];
        DWORD length = MAX_PATH;
        const LONG error = RegEnumValueW(list.Get(), index, name, &length, nullptr, nullptr, nullptr, nullptr);
        if (error == ERROR_INSUFFICIENT_BUFFER) continue;
        if (error != ERROR_SUCCESS) return found;
        if (_wcsicmp(name, module) == 0) return Listed::kThisModule;
        found = Listed::kOthers;
    }
}

// A module that both lists name is traced.
bool IsComponentEnabled(const CRegistryKey& key, LPCWSTR module) noexcept {
    if (!key) return true;
    const bool excluded = LookInList(key, W("ComponentsNOT"), module) == Listed::kThisModule;
    switch (LookInList(key, W("Components"), module)) {
        case Listed::kThisModule:
            return true;
        case Listed::kOthers:
            return false;
        default:
            return !excluded;
    }
}

ModulePath PathOf(HINSTANCE module) noexcept {
    ModulePath path = {};
    GetModuleFileNameW(module, path.text, static_cast<DWORD>(std::size(path.text)) - 1);
    return path;
}

COutput* NewOutput() noexcept {
    CRegistryKey key;
    const bool toFile = OpenTracingKey(key) && IsSet(key, kTraceRule) && IsSet(key, kToFileRule);
    if (toFile) return new (std::nothrow) CFileOutput;
    return new (std::nothrow) CNoOutput;
}

// Before every other static object of the module, and before the entry point, which traces.
__attribute__((init_priority(1000))) CTraceEngine theTraceEngine;

}  // namespace

CTraceEngine& TheTraceEngine() noexcept {
    return theTraceEngine;
}

CTraceEngine::CTraceEngine() noexcept {
    InitializeCriticalSection(&m_lock);
    WCHAR name[11];  // ten digits and the NUL
    OVFormat::Format(name, 11, "%u", GetCurrentProcessId());
    m_processMutex = CreateMutexW(nullptr, FALSE, name);
}

// Whatever still runs in the module finds tracing off, and the clock never tells it to look again.
CTraceEngine::~CTraceEngine() {
    ReleaseTraceOutputs();
    theTraceState.flags = 0;
    theTraceState.nextCheckTick = ~DWORD{0};
    if (m_processMutex) CloseHandle(m_processMutex);
    DeleteCriticalSection(&m_lock);
}

const ModulePath& CTraceEngine::Process() noexcept {
    if (m_process.text[0] == 0) m_process = PathOf(nullptr);
    return m_process;
}

const ModulePath& CTraceEngine::Module() noexcept {
    return m_module.text[0] != 0 ? m_module : Process();
}

void ReadTraceSettings(DWORD tick) noexcept {
    const DWORD lastError = GetLastError();
    const DWORD flags = ReadFlags();
    if (flags != theTraceState.flags.load(std::memory_order_relaxed)) {
        CTraceLockGuard lock;
        theTraceState.nextCheckTick.store(0, std::memory_order_relaxed);
        ApplyTraceSettings(flags);
    }
    theTraceState.nextCheckTick.exchange(tick + kCheckEvery);
    SetLastError(lastError);
}

void ApplyTraceSettings(DWORD flags) noexcept {
    WCHAR module[MAX_PATH] = {};
    SplitPath(TheTraceEngine().Module().text).base.copy(module, MAX_PATH - 1);
    theTraceState.flags.store(flags, std::memory_order_relaxed);
    CRegistryKey key;
    if (OpenTracingKey(key)) {
        DWORD verbosity = 0;
        if (key.QueryDword(W("Verbosity"), verbosity) != ERROR_SUCCESS) verbosity = 0;
        theTraceState.verbosity.store(static_cast<LONG>(verbosity), std::memory_order_relaxed);
    }
    theTraceState.componentEnabled.store(IsComponentEnabled(key, module), std::memory_order_relaxed);
}

COutput& GetTraceOutput() noexcept {
    std::unique_ptr<COutput>& output = TheTraceEngine().m_output;
    if (!output) output.reset(NewOutput());
    if (output) return *output;
    static CNoOutput noMemory;
    return noMemory;
}

void ReleaseTraceOutputs() noexcept {
    CTraceLockGuard lock;
    theTraceState.nextCheckTick.store(0, std::memory_order_relaxed);
    TheTraceEngine().m_output.reset();
}

// Asked of the system now and not when it is needed: its loader has a lock of its own, and TraceLock is the last one.
void SetTraceModule(HINSTANCE module) noexcept {
    const ModulePath own = PathOf(module), process = PathOf(nullptr);
    CTraceLockGuard lock;
    TheTraceEngine().SetPaths(own, process);
}

void OfferHeapDetection(HINSTANCE module) noexcept {
    constexpr wstr_view kLibrary = W("ovappver.dll");
    WCHAR path[MAX_PATH];
    const UINT length = GetSystemDirectoryW(path, MAX_PATH);
    if (length == 0 || length + 1 + kLibrary.size() >= MAX_PATH) return;
    std::size_t end = length;
    if (path[end - 1] != W('\\') && path[end - 1] != W('/')) path[end++] = W('\\');
    path[end + kLibrary.copy(path + end, kLibrary.size())] = 0;
    using HeapDetectionStart = void(WINAPI*)(HINSTANCE);
    if (const auto start = FindExport<HeapDetectionStart>(LoadLibraryW(path), "HeapDetectionStart")) start(module);
}

void RestartTracing(std::unique_ptr<COutput> output) noexcept {
    CTraceLockGuard lock;
    theTraceState.flags = kFlagsAtStart;
    theTraceState.nextCheckTick = 0;
    theTraceState.verbosity = 0;
    theTraceState.componentEnabled = true;
    TheTraceEngine().m_lastStamp = {};
    TheTraceEngine().m_output = std::move(output);
}

}  // namespace OVTraceNS
