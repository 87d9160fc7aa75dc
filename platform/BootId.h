// What tells this run of the computer from the one before it.
#pragma once

#include <span>

#include "win/types.h"

// The kernel's text for it, the same in all processes.
std::span<const BYTE> BootId() noexcept;
