// Whole files. Paths are UTF-8.
#pragma once

#include <string>
#include <string_view>

// Throws CCommandFailure (4, the file is bad) when it cannot be read.
std::string ReadWholeFile(const std::string& path);

// Puts `bytes` in the place of the file, or leaves what was there: they are written beside it and moved over it. What
// is no ordinary file (a pipe, a device) is written as it is. Throws CCommandFailure, 3 for a refusal and 5 for all
// else.
void WriteWholeFile(const std::string& path, std::string_view bytes);
