// Whole files. Paths are UTF-8.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <system_error>

#include "Platform.h"

// A path of the component's, with either separator, as one of this system.
std::string NativePath(wstr_view path);

// Throws CCommandFailure (4, the file is bad) when it cannot be read.
std::string ReadWholeFile(const std::string& path);

// The first bytes of an ordinary file, at most `count`. Throws as above, also for a pipe or a device.
std::string ReadBeginning(const std::string& path, std::size_t count);

// Makes a new folder for nobody but us, of a name that begins with `start`. Fails by std::error_code.
std::filesystem::path MakePrivateFolder(const std::filesystem::path& start, std::error_code& error);

// Puts `bytes` in the place of the file, or leaves what was there: they are written beside it and moved over it. What
// is no ordinary file (a pipe, a device) is written as it is. Throws CCommandFailure, 3 for a refusal and 5 for all
// else.
void WriteWholeFile(const std::string& path, std::string_view bytes);
