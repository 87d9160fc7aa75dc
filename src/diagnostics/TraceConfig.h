// Whether this module traces, what, and where to.
//
// Source   SOFTWARE\Orvantis\Tracing of HKEY_LOCAL_MACHINE, in the 32-bit view where the other one has no such key: the
//          numbers DoTrace, TraceToFile, NewFileAlways, DoLog, DoProfiling, Verbosity, and the subkeys Components and
//          ComponentsNOT, whose value names are module names.
// When     on entry of a scope, at most every 30 seconds. Verbosity and the component lists are read when one of the
//          five flags has changed, and at no other time.
// Fails    never: what cannot be read leaves tracing off, and nobody is told.
// Locks    TraceLock guards the verbosity, the component filter, the last time stamp, the output and every write. It is
//          the innermost lock of the module: nothing that runs under it takes another one, and it may be taken with any
//          held.
#pragma once

#include <atomic>
#include <memory>

#include "Platform.h"
#include "diagnostics/TraceOutput.h"

namespace OVTraceNS {

// The bits of the settings word.
inline constexpr DWORD kTraceToFile = 0x04;
inline constexpr DWORD kNewFileAlways = 0x08;
inline constexpr DWORD kDoTrace = 0x20;
inline constexpr DWORD kDoProfiling = 0x40;  // the flow without the messages
inline constexpr DWORD kDoLog = 0x80;

// A bit that no settings word has, so that the first one always is a change; tracing counts as on until it is read.
inline constexpr DWORD kFlagsAtStart = 0x80000000u | kDoTrace;

// One set for each loaded module. The flags are read outside TraceLock: a scope that races with a change costs at worst
// one record more or less.
struct TraceState {
    std::atomic<DWORD> flags{kFlagsAtStart};
    std::atomic<DWORD> nextCheckTick{0};  // GetTickCount after which the settings are read again
    std::atomic<LONG> verbosity{0};       // largest level that is written
    std::atomic<bool> componentEnabled{true};

    bool Has(DWORD flag) const noexcept { return (flags.load(std::memory_order_relaxed) & flag) != 0; }
};
inline constinit TraceState theTraceState;

// Reads the settings, whatever the clock says, and notes `tick` as the time of the reading.
void ReadTraceSettings(DWORD tick) noexcept;

inline void RefreshTraceSettings() noexcept {
    const DWORD tick = GetTickCount();
    if (tick > theTraceState.nextCheckTick.load(std::memory_order_relaxed)) [[unlikely]] {
        ReadTraceSettings(tick);
    }
}

// Takes a new settings word and reads what goes with it. TraceLock is held.
void ApplyTraceSettings(DWORD flags) noexcept;

// The output, made by the settings of the moment when it is first asked for; the engine's, until the module goes or
// ReleaseTraceOutputs is called. TraceLock is held.
COutput& GetTraceOutput() noexcept;

// Deletes the output. The next record makes a new one, and the next scope reads the settings.
void ReleaseTraceOutputs() noexcept;

// The module whose name the component filter looks for. Until it is told, that is the program.
void SetTraceModule(HINSTANCE module) noexcept;

// Offers the module to the diagnostic library ovappver.dll of the system directory, if there is one. It stays loaded.
void OfferHeapDetection(HINSTANCE module) noexcept;

// For tests: puts an output in place of the engine's; everything else as when the module was loaded.
void RestartTracing(std::unique_ptr<COutput> output) noexcept;

}  // namespace OVTraceNS
