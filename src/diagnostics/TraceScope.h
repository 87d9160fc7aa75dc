// CTraceScope: the object that nearly every function opens on its stack as its first statement.
//
//   OVTraceNS::CTraceScope scope("CServerInfo::GetItemLong", 0);
//   scope.Print("%ls = %ld", name, number);
//   scope.Result("", hr);
//
// It writes that the function was entered and left, what the function says, and the failure with which it ends. Tracing
// never changes what the traced function does: nothing here fails or raises, and the thread's last error stays.
//
// Cost     with tracing off, entry reads the clock and compares; everything else is one test of a word. Arguments are
//          formatted, and fields are set, behind that test only. No heap.
// Time     a scope that was entered while tracing was off has no name and no level. If tracing is turned on before it
//          ends, its messages and its exit are not written; its failure is.
// Threads  a scope belongs to one thread.
#pragma once

#include "Platform.h"
#include "diagnostics/Format.h"
#include "diagnostics/TraceConfig.h"

namespace OVTraceNS {

// Formats of messages: as in Format.h, but a bare %s or %c takes narrow text or a narrow character.
template <class... Args>
using TMessageFormat = OVFormat::TCheckedFormat<true, Args...>;

class CTraceScope {
  public:
    // `name` is cut at 99 bytes; null gives "????". Of `level` only the absolute value counts: a scope is written up to
    // the level that the Verbosity setting names.
    CTraceScope(const char* name, LONG level) noexcept {
        RefreshTraceSettings();
        m_entered = false;
        if (theTraceState.Has(kDoTrace)) [[unlikely]] {
            Enter(name, level);
        }
    }

    ~CTraceScope() {
        if (theTraceState.Has(kDoTrace)) [[unlikely]] {
            Leave();
        }
    }

    CTraceScope(const CTraceScope&) = delete;
    CTraceScope& operator=(const CTraceScope&) = delete;

    // A message of at most 399 bytes of UTF-8; a longer one is cut. A null or empty format gives an empty message, one
    // of 400 units and more none.
    template <class... Args>
    void Print(TMessageFormat<std::type_identity_t<Args>...> format, Args... args) noexcept {
        const DWORD flags = theTraceState.flags.load(std::memory_order_relaxed);
        if ((flags & (kDoTrace | kDoProfiling)) == kDoTrace) [[unlikely]] {
            PrintArguments(format.Text(), args...);
        }
    }

    // The code with which the function ends; written when it is a failure, or of facility 9. Neither the verbosity nor
    // the component filter silences it.
    void Result(const char* text, HRESULT hr) noexcept {
        if (theTraceState.Has(kDoTrace)) [[unlikely]] {
            WriteResult(text, hr);
        }
    }

  private:
    void Enter(const char* name, LONG level) noexcept;
    void Leave() noexcept;
    void Write(const char* format, std::span<const OVFormat::CArgument> arguments) noexcept;
    void WriteResult(const char* text, HRESULT hr) noexcept;

    template <class... Args>
    __attribute__((noinline, cold)) void PrintArguments(const char* format, Args... args) noexcept {
        const std::array<OVFormat::CArgument, sizeof...(Args)> arguments = {OVFormat::CArgument(args)...};
        Write(format, arguments);
    }

    bool IsWritten() const noexcept;
    void WriteTimeStamp() noexcept;
    void WriteRecord(TraceTag tag, const char* text, std::size_t length) noexcept;

    // The first two are set on an entry with tracing on only.
    char m_name[kMaxNameText + 1];
    LONG m_level;
    bool m_entered;
};

}  // namespace OVTraceNS
