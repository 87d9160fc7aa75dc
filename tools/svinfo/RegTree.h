// Reading registry keys with all that lies below them.
#pragma once

#include <functional>
#include <optional>
#include <vector>

#include "Platform.h"
#include "svinfo/RegFile.h"

// The key's values in the system's order, and the names of its subkeys. Throws CCommandFailure, "it does not exist"
// (exit code 1) among them.
struct CRegKeyContent {
    std::vector<CRegEntry> entries;
    std::vector<wstr> subkeys;
};
CRegKeyContent ReadRegKey(const CRegPath& key);

// One value; nothing if the key has none of that name. Throws CCommandFailure.
std::optional<CRegEntry> ReadRegValue(const CRegPath& key, const wstr& name);

enum class RegWalk { GoOn, PassOver };

// Visits the key and all below it, parents before children. A visitor that passes a key over is not shown what lies
// below it. A key that is gone when its turn comes is left out. False if the first key does not exist.
bool WalkRegTree(const CRegPath& key, const std::function<RegWalk(CRegBlock&)>& visit);
