// What every level says of one item, the strongest first: the caller's own policy for the names that users have, the
// sources of the store, then the local keys in the order in which a question asks them.
#pragma once

#include <string>
#include <vector>

#include "svinfo/Items.h"
#include "svinfo/SourceLedger.h"
#include "svinfo/StoreView.h"

enum class LevelState {
    kWon,         // the answer
    kHidden,      // a stronger level has the item
    kNotAsked,    // a stronger one ends the search of its kind
    kPassedOver,  // there, but not so that it could be an answer
    kAbsent,
    kNoSource,  // the source itself is absent, damaged or not served
};
const char* LevelStateName(LevelState state) noexcept;
Tone ToneOf(LevelState state) noexcept;

struct CLevel {
    const char* kind;  // the word for the source, "user", "local" or "default"
    LevelState state;
    CPlace place;
    CItem held;       // what it holds; without a value where it holds nothing
    std::string why;  // in words, where the state alone does not say it
};

// `name` as the component asks for it: reduced. Throws CCommandFailure when the registry fails.
std::vector<CLevel> LevelsOf(const wstr& name, const CSourceLedger& ledger, const CStoreView& view);

// The caller's own policy, for a name that users have.
CLevel UserLevelOf(const wstr& name, const CStoreView& view);

// Those of the local keys alone; `answered` when a stronger level has the item.
std::vector<CLevel> LocalLevelsOf(const wstr& name, bool answered);

// The one that won; null when there is none.
const CLevel* WinnerOf(const std::vector<CLevel>& levels) noexcept;

// {"kind": ..., "path": ..., "line": 0}
json OriginJson(const char* kind, const CPlace& place);
