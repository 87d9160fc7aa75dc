// Paths of the platform as paths of this system.
#pragma once

#include <string>
#include <string_view>

// UTF-8, with slashes for backslashes. What cannot be read of the text becomes U+FFFD.
std::string PosixPath(std::u16string_view path);
