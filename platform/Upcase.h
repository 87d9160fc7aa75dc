// The upcase of names: one frozen table of 16-bit units, without a locale.
//
// 1,163 units change. Nothing outside ASCII becomes ASCII, and surrogates stay, so that letters above U+FFFF keep their
// case. upcase/make_ranges.py tells where the table comes from.
#pragma once

#include <cstddef>
#include <cstdint>

namespace ovupcase {

// Distances to the upper case, in blocks of 64 units. All blocks without a change are block 0.
inline constexpr std::size_t kBlockBits = 6;
inline constexpr std::size_t kBlockSize = std::size_t{1} << kBlockBits;
inline constexpr std::size_t kBlocks = 49;

struct Table {
    std::uint8_t blockOf[0x10000 / kBlockSize];
    std::uint16_t distance[kBlocks][kBlockSize];  // added modulo 2^16
};

__attribute__((visibility("hidden"))) extern const Table kTable;

}  // namespace ovupcase

inline char16_t OvUpcase(char16_t unit) noexcept {
    if (unit < 0x80) return static_cast<char16_t>(unit - (unit >= u'a' && unit <= u'z' ? 32 : 0));
    const std::uint16_t* block = ovupcase::kTable.distance[ovupcase::kTable.blockOf[unit >> ovupcase::kBlockBits]];
    return static_cast<char16_t>(unit + block[unit & (ovupcase::kBlockSize - 1)]);
}

// The other way round, for the few that ask: a search.
char16_t OvDowncase(char16_t unit) noexcept;
