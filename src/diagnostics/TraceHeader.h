// The head of a trace file: lines in clear text that say what made the file, on which computer, and when.
#pragma once

#include "Platform.h"

namespace OVTraceNS {

inline constexpr char kTraceMagic[] = "trace3\r\n";
inline constexpr char kTraceHeadEnd[] = ".\r\n";

// Each line is one write. What fails is lost.
void WriteTraceHeader(HANDLE file) noexcept;

}  // namespace OVTraceNS
