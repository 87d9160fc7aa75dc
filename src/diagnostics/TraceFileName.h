// Where the trace file lies and what it is called:
//
//   <directory><process>.<module>.x64.<session>.trc3       C:\Suite\host.OvSvInfo.dll.x64.1.trc3
#pragma once

#include "Platform.h"
#include "module/RegistryKey.h"

namespace OVTraceNS {

// The parts of a file's path: the directory with its separator at the end, the name up to its last dot, and from there
// on. All three point into the path.
struct CPathParts {
    wstr_view directory, base, extension;
};
CPathParts SplitPath(wstr_view path) noexcept;

// The trace file of this process and module, by the settings in `key`, which may be closed: `FileName`, or the name
// above in the directory `TracePath`, which is made, or beside the module. False when it does not fit.
bool BuildTraceFileName(const CRegistryKey& key, WCHAR (&path)[MAX_PATH]) noexcept;

}  // namespace OVTraceNS
