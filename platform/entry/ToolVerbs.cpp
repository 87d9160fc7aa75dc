#include "ToolVerbs.h"

#include "svinfo/CommandLine.h"

int OvToolVerbs(const char* const* args, std::size_t count, bool terminal) noexcept {
    return static_cast<int>(RunCommandLine({args, args + count}, terminal));
}
