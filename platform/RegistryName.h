// Names of keys and values as the registry compares them: unit by unit, upcased, with a hash for finding.
//
// Nothing is folded into memory: a name is folded in registers, 8 units at a time, while it is hashed or compared, and
// most comparisons find the spelling that was stored.
#pragma once

#include <compare>
#include <cstddef>
#include <cstdint>
#include <string_view>

inline constexpr std::size_t kMaxKeyName = 256;
inline constexpr std::size_t kMaxValueName = 16383;

// Up to the NUL, and up to the first backslash or the NUL.
std::u16string_view NameAt(const char16_t* text) noexcept;
std::u16string_view ComponentAt(const char16_t* path) noexcept;

// The same for names that are the same.
std::uint32_t HashName(std::u16string_view name) noexcept;
bool SameName(std::u16string_view a, std::u16string_view b) noexcept;
// The order of enumerations.
std::strong_ordering CompareNames(std::u16string_view a, std::u16string_view b) noexcept;

// A name to be looked for, hashed once. The text stays the caller's.
class CSoughtName {
  public:
    CSoughtName() noexcept = default;
    explicit CSoughtName(std::u16string_view name) noexcept : m_name(name), m_hash(HashName(name)) {}

    std::u16string_view Name() const noexcept { return m_name; }
    std::uint32_t Hash() const noexcept { return m_hash; }

  private:
    std::u16string_view m_name;
    std::uint32_t m_hash = 0;
};
