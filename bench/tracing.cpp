// Goal 14: what the trace scopes cost while nobody traces.
#include "Floor.h"
#include "Measure.h"
#include "diagnostics/TraceScope.h"

namespace bench {

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
}

}  // namespace bench
