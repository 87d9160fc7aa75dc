// Failure codes in words: the one table of them, for the suite's events and for the tool.
#pragma once

#include "Platform.h"

// UTF-8, without a full stop; null for a code that has none.
const char* FailureWords(HRESULT hr) noexcept;
