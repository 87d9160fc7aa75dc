#include "diagnostics/TraceCipher.h"

#include <algorithm>
#include <bit>
#include <cstring>

namespace OVTraceNS {

namespace {

// The key is the one XOR the other.
constexpr std::uint32_t kKeyHalf[4] = {0x8F2B61D4, 0x19C7A05E, 0xE46D3B97, 0x52F0984C};
constexpr std::uint32_t kKeyOtherHalf[4] = {0x3A95E07B, 0xD4168FC2, 0x7B20D9A6, 0xC98E4135};
constexpr std::uint32_t kKey[4] = {kKeyHalf[0] ^ kKeyOtherHalf[0], kKeyHalf[1] ^ kKeyOtherHalf[1],
                                   kKeyHalf[2] ^ kKeyOtherHalf[2], kKeyHalf[3] ^ kKeyOtherHalf[3]};
constexpr std::uint32_t kDelta = 0x9E3779B9;
constexpr int kRounds = 32;

// Blocks side by side: one word of each in a lane. A shift to the right keeps the sign.
template <int lanes>
struct Lanes {
    using Word __attribute__((vector_size(lanes * 4))) = std::int32_t;
    using Bits __attribute__((vector_size(lanes * 4))) = std::uint32_t;
};

// One block, or several that do not depend on each other. `Bits` wraps, `Word` is the same bits with a sign.
template <class Bits, class Word>
inline void Encipher(Bits& x, Bits& y) noexcept {
    std::uint32_t sum = 0;
#pragma GCC unroll 32
    for (int round = 0; round < kRounds; ++round) {
        sum += kDelta;
        x += ((y << 4) + kKey[0]) ^ (y + sum) ^ ((Bits)(((Word)y) >> 5) + kKey[1]);
        y += ((x << 4) + kKey[2]) ^ (x + sum) ^ ((Bits)(((Word)x) >> 5) + kKey[3]);
    }
}

struct Block {
    std::uint32_t x, y;
};

// As it lies in the file, the low byte first.
std::uint32_t Load(const char* bytes) noexcept {
    std::uint32_t word;
    std::memcpy(&word, bytes, sizeof word);
    return word;
}
static_assert(std::endian::native == std::endian::little);

constexpr Block FirstMask() noexcept {
    std::uint32_t x = kTraceFirstBlock[0], y = kTraceFirstBlock[1], sum = 0;
    for (int round = 0; round < kRounds; ++round) {
        sum += kDelta;
        x += ((y << 4) + kKey[0]) ^ (y + sum) ^
             (static_cast<std::uint32_t>(static_cast<std::int32_t>(y) >> 5) + kKey[1]);
        y += ((x << 4) + kKey[2]) ^ (x + sum) ^
             (static_cast<std::uint32_t>(static_cast<std::int32_t>(x) >> 5) + kKey[3]);
    }
    return {x, y};
}
// Every text begins with it.
constexpr Block kFirstMask = FirstMask();

void Mask(char* text, std::size_t length, const Block& mask) noexcept {
    if (length >= kCipherBlock) {
        const std::uint32_t words[2] = {Load(text) ^ mask.x, Load(text + 4) ^ mask.y};
        std::memcpy(text, words, sizeof words);
        return;
    }
    char bytes[kCipherBlock];
    std::memcpy(bytes, &mask, sizeof bytes);
    for (std::size_t i = 0; i < length; ++i) text[i] = static_cast<char>(text[i] ^ bytes[i]);
}

Block MaskBehind(const char* block) noexcept {
    std::uint32_t x = Load(block), y = Load(block + 4);
    Encipher<std::uint32_t, std::int32_t>(x, y);
    return {x, y};
}

}  // namespace

std::array<std::uint32_t, 4> TraceCipherKey() noexcept {
    return {kKey[0], kKey[1], kKey[2], kKey[3]};
}

void EncipherTraceText(char* text, std::size_t length) noexcept {
    Mask(text, length, kFirstMask);
    for (std::size_t at = kCipherBlock; at < length; at += kCipherBlock) {
        Mask(text + at, length - at, MaskBehind(text + at - kCipherBlock));
    }
}

// The masks of deciphering are known beforehand: they come from the bytes as they were read. So four are made at once,
// from the back, so that what they come from is still there.
void DecipherTraceText(char* text, std::size_t length) noexcept {
    constexpr int kAtOnce = 4;
    using Bits = Lanes<kAtOnce>::Bits;
    using Word = Lanes<kAtOnce>::Word;
    std::size_t blocks = length <= kCipherBlock ? 0 : (length - 1) / kCipherBlock;  // behind the first
    while (blocks >= 2) {
        const std::size_t group = std::min<std::size_t>(blocks, kAtOnce), first = blocks - group;
        Bits x = {}, y = {};
        for (std::size_t i = 0; i < group; ++i) {
            x[i] = Load(text + (first + i) * kCipherBlock);
            y[i] = Load(text + (first + i) * kCipherBlock + 4);
        }
        Encipher<Bits, Word>(x, y);
        for (std::size_t i = group; i-- > 0;) {
            const std::size_t at = (first + i + 1) * kCipherBlock;
            Mask(text + at, length - at, {x[i], y[i]});
        }
        blocks = first;
    }
    if (blocks == 1) Mask(text + kCipherBlock, length - kCipherBlock, MaskBehind(text));
    Mask(text, length, kFirstMask);
}

}  // namespace OVTraceNS
