// The items of the local keys, by name, as the registry holds them.
#pragma once

#include <vector>

#include "Platform.h"

enum class LocalLevel { Local, Default, Both };

// Each name once, in the order of names. An authentication policy counts as one item in whichever of its forms it
// stands, under its short name. Empty where the key does not exist. Throws CCommandFailure when the registry fails.
std::vector<wstr> LocalItemNames(LocalLevel level);
