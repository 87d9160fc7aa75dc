// The cipher of the text in trace files: TEA of Wheeler and Needham in full-block cipher feedback, with one change: its
// right shift keeps the sign, so that a plain TEA does not read it.
//
// The key and the first block are the same for every record, and each record's text begins anew. It keeps texts from
// being read in passing, and is no protection against whoever has this module.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace OVTraceNS {

inline constexpr std::size_t kCipherBlock = 8;

// In place; any length.
void EncipherTraceText(char* text, std::size_t length) noexcept;
void DecipherTraceText(char* text, std::size_t length) noexcept;

// What the two work with: the key of four words, and the block before the first, as its two words.
std::array<std::uint32_t, 4> TraceCipherKey() noexcept;
inline constexpr std::uint32_t kTraceFirstBlock[2] = {0xC3A5C85C, 0x97CB3127};

}  // namespace OVTraceNS
