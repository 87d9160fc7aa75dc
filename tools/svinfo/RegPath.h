// Where a key lies: one of the roots, and a path below it.
#pragma once

#include <string>

#include "Platform.h"

struct CRegRoot {
    LPCWSTR name;       // as registry files write it
    LPCWSTR shortName;  // as the command line may write it too
    HKEY key;
};

struct CRegPath {
    const CRegRoot* root = nullptr;
    wstr below;  // no separator at either end, none doubled; empty for the root itself

    // With the root's long name.
    wstr Full() const;
};

// A text that names no key: where in the text, what stands there, what should.
struct CBadRegPath {
    std::size_t offset;
    std::string found;
    std::string expected;
};

enum class RootNames { Long, LongAndShort };

// Case does not matter in the root. Separators at the end are dropped, doubled ones count as one, and a slash is an
// ordinary character. Throws CBadRegPath for an unknown root, an empty or overlong component, and a NUL.
CRegPath ParseRegPath(wstr_view text, RootNames names);

// The same for KEY of the command line: wrong usage for a text that names no key.
CRegPath KeyArgument(const std::string& argument);

// VALUE of the command line: nothing and "@" are the key's default value.
wstr ValueArgument(const std::string& argument);

// As a message names it: "HKEY_LOCAL_MACHINE\A value 'B'".
std::string ValueText(const CRegPath& key, const wstr& name);

// Longest value name, in units.
inline constexpr std::size_t kMaxValueName = 16383;
