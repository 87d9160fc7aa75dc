#include "diagnostics/TraceOutput.h"

namespace OVTraceNS {

void CNoOutput::Write(TraceRecord*, DWORD, CTraceScope*) noexcept {}

}  // namespace OVTraceNS
