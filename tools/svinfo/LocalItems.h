// The items of the local keys, by name, as the registry holds them.
#pragma once

#include <optional>
#include <vector>

#include "Platform.h"
#include "store/PolicyValue.h"

enum class LocalLevel { Local, Default, Both };

// Each name once, in the order of names. An authentication policy counts as one item in whichever of its forms it
// stands, under its short name. Empty where the key does not exist. Throws CCommandFailure when the registry fails.
std::vector<wstr> LocalItemNames(LocalLevel level);

// The key of one level, LocalLevel::Local or LocalLevel::Default, below HKEY_LOCAL_MACHINE.
LPCWSTR LocalLevelKey(LocalLevel level) noexcept;

// What one level holds under that name, whatever stronger levels say. Nothing for what the component would pass over.
std::optional<CPolicyValue> ReadLocalItem(LocalLevel level, const wstr& name);

// One place of the local keys that a question for the name may ask, and what is there.
struct LocalHolding {
    LocalLevel level;
    wstr key;         // below HKEY_LOCAL_MACHINE
    bool policyForm;  // the list or the bits of a policy; else a plain value
    bool found = false;
    bool damaged = false;  // something is there that is no answer
    CPolicyValue value;
};

// All of them, in the order in which they are asked.
std::vector<LocalHolding> LocalHoldingsOf(const wstr& name);

// Orders names as the store does.
struct CNameLess {
    bool operator()(const wstr& a, const wstr& b) const noexcept;
};
