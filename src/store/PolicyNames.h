// Item names: how they are compared, folded, related and recognised.
//
// Names are backslash paths of 16-bit units, compared without regard to case everywhere. The case rule is the system's
// own (ntdll.dll): the simple upcase of each unit. Where it cannot be had, ASCII letters alone are folded, to lower
// case, for comparing and for folding alike, so that both always agree on what one name is.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

#include "Platform.h"

// Negative, 0 or positive. Null sorts before everything, two nulls are equal.
int CompareNames(LPCWSTR a, LPCWSTR b) noexcept;
int CompareNames(wstr_view a, wstr_view b) noexcept;

// A name in the form in which equal names are equal bytes, with its hash: the folded units, each written in the way of
// UTF-8 (surrogates one by one), so that bytes sort as the units do and most names take half the room. Short names cost
// no allocation.
class CFoldedName {
  public:
    explicit CFoldedName(wstr_view name);
    CFoldedName(const CFoldedName&) = delete;
    CFoldedName& operator=(const CFoldedName&) = delete;

    std::string_view Key() const noexcept { return {m_key, m_length}; }
    std::uint64_t Hash() const noexcept { return m_hash; }
    static std::uint64_t HashOfKey(std::string_view key) noexcept;

  private:
    static constexpr std::size_t kUnitBytes = 3;  // of one unit at the most
    static constexpr std::size_t kRoom = 260 * kUnitBytes;

    const char* m_key;
    std::size_t m_length;
    std::uint64_t m_hash;
    std::string m_long;   // the key of a name that might not fit below
    char m_short[kRoom];  // not cleared: a query would pay for it
};

// True when both are the same path, or one lies below the other. Folds ASCII letters only.
bool IsSameOrSubPath(wstr_view a, wstr_view b) noexcept;

// The nine authentication policies. Their registry form is a list of masks or a bit mask, and they have two spellings.
struct AuthPolicyName {
    LPCWSTR name;
    bool userScoped;  // a user's own Group Policy can set it
};
inline constexpr std::array<AuthPolicyName, 9> kAuthPolicyNames = {{
    {W("LogonPolicy"), false},
    {W("RuntimePolicy"), true},
    {W("KioskRuntimePolicy"), true},
    {W("LogonPolicyAdmin"), false},
    {W("LogonPolicyUser"), false},
    {W("RuntimePolicyAdmin"), false},
    {W("RuntimePolicyUser"), false},
    {W("DisableCredentials"), true},
    {W("CustomizationPolicy"), false},
}};

bool IsAuthPolicyName(LPCWSTR name) noexcept;
bool IsUserScopedName(LPCWSTR name) noexcept;

// The long spelling of a policy is this, a backslash and its short name.
inline constexpr wstr_view AppsPolicyPrefix = W("Applications\\{5ED04F3F-AC3E-4BE0-A157-782B204E2B8C}");
static_assert(AppsPolicyPrefix.size() == 51);

// The short name inside `name` when it is a policy's long spelling, as the caller wrote the leaf; else `name` itself.
// The result points into `name`. Null gives null.
LPCWSTR ReduceName(LPCWSTR name) noexcept;
