// Between the tool's program and the library of its verbs: plain types, since each has a C++ library of its own.
#pragma once

#include <cstddef>

// Carries out one command line, without the program's name, in UTF-8. `terminal`: standard output is one. The result is
// the process's exit code.
extern "C" __attribute__((visibility("default"))) int OvToolVerbs(const char* const* args, std::size_t count,
                                                                  bool terminal) noexcept;

inline constexpr char kToolVerbsFile[] = "libsvinfo.so";
inline constexpr char kToolVerbsEntry[] = "OvToolVerbs";
