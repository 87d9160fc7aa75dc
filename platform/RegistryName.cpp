#include "RegistryName.h"

#include <bit>
#include <cstring>

#include "Upcase.h"

namespace {

constexpr std::size_t kBlock = 8;
using Block = std::uint16_t __attribute__((vector_size(kBlock * sizeof(char16_t))));
using SignedBlock = std::int16_t __attribute__((vector_size(kBlock * sizeof(char16_t))));
using Halves = std::uint64_t __attribute__((vector_size(sizeof(Block))));

// Units from `text` to the first one that is 0 or `end`.
//
// Whole blocks are loaded at their natural boundaries: such a load never reaches into another page, so that there is
// memory behind the end of the text, and what it holds is not looked at. Only the sanitizers would mind.
__attribute__((no_sanitize("address"), no_sanitize("thread"))) std::size_t LengthTo(const char16_t* text,
                                                                                    std::uint16_t end) noexcept {
    using Memory = Block __attribute__((may_alias));
    constexpr Block kPlaces = {0, 1, 2, 3, 4, 5, 6, 7};
    const std::size_t before = reinterpret_cast<std::uintptr_t>(text) % sizeof(Block) / sizeof(char16_t);
    const char16_t* at = text - before;
    Block block = *reinterpret_cast<const Memory*>(at);
    auto found = ((block == 0) | (block == end)) & (kPlaces >= static_cast<std::uint16_t>(before));
    for (;;) {
        const auto halves = reinterpret_cast<Halves>(found);
        constexpr int kUnitBits = 16;
        if (halves[0])
            return static_cast<std::size_t>(at - text) + static_cast<unsigned>(std::countr_zero(halves[0])) / kUnitBits;
        if (halves[1])
            return static_cast<std::size_t>(at - text) + 4 +
                   static_cast<unsigned>(std::countr_zero(halves[1])) / kUnitBits;
        at += kBlock;
        block = *reinterpret_cast<const Memory*>(at);
        found = (block == 0) | (block == end);
    }
}

template <class Number>
Number Read(const char16_t* from) noexcept {
    Number number;
    std::memcpy(&number, from, sizeof number);
    return number;
}

// A name of 1 to 7 units. Units may occur twice in it, at places that depend on the length alone, so that two names of
// one length are equal when their blocks are; no unit is read behind the end.
Block ReadShort(const char16_t* from, std::size_t length) noexcept {
    Halves halves = {};
    if (length >= 4) {
        halves = Halves{Read<std::uint64_t>(from), Read<std::uint64_t>(from + length - 4)};
    } else if (length >= 2) {
        halves = Halves{Read<std::uint32_t>(from), Read<std::uint32_t>(from + length - 2)};
    } else {
        halves[0] = *from;
    }
    return reinterpret_cast<Block>(halves);
}

// Calls `visit` with the blocks of a name that is not empty until it returns false. The last block overlaps the one
// before it.
template <class Visit>
bool ForEachBlock(std::size_t length, Visit visit) noexcept {
    std::size_t at = 0;
    for (; at + kBlock <= length; at += kBlock) {
        if (!visit(at)) return false;
    }
    return at == length || visit(length - kBlock);
}

bool IsZero(Block block) noexcept {
    const auto halves = reinterpret_cast<Halves>(block);
    return (halves[0] | halves[1]) == 0;
}

__attribute__((noinline, cold)) Block UpcaseByTable(Block block) noexcept {
    for (std::size_t i = 0; i < kBlock; ++i) block[i] = OvUpcase(static_cast<char16_t>(block[i]));
    return block;
}

inline Block Upcase(Block block) noexcept {
    if (!IsZero(block & static_cast<std::uint16_t>(0xFF80))) [[unlikely]]
        return UpcaseByTable(block);
    // All units are small, so that the signed comparisons of every processor will do.
    const auto units = reinterpret_cast<SignedBlock>(block);
    const auto lower = (units > std::int16_t{u'a' - 1}) & (units < std::int16_t{u'z' + 1});
    return block - (reinterpret_cast<Block>(lower) & static_cast<std::uint16_t>(u'a' - u'A'));
}

inline bool SameBlock(Block a, Block b) noexcept {
    return IsZero(a ^ b) || IsZero(Upcase(a) ^ Upcase(b));
}

__extension__ using Wide = unsigned __int128;

constexpr std::uint64_t kOdd = 0x9E3779B97F4A7C15;

// Coarser than upcasing in ASCII, and cheaper: that '[' and '{' meet costs nothing.
inline Block WithoutCase(Block block) noexcept {
    constexpr std::uint16_t kCaseBit = u'a' - u'A';
    if (!IsZero(block & static_cast<std::uint16_t>(0xFF80))) [[unlikely]]
        block = UpcaseByTable(block);
    return block & static_cast<std::uint16_t>(~kCaseBit);
}

inline std::uint64_t Mix(std::uint64_t hash, Block block) noexcept {
    const auto halves = reinterpret_cast<Halves>(WithoutCase(block));
    const Wide product = static_cast<Wide>(halves[0] ^ kOdd) * (halves[1] ^ hash);
    return static_cast<std::uint64_t>(product) ^ static_cast<std::uint64_t>(product >> 64);
}

}  // namespace

std::u16string_view NameAt(const char16_t* text) noexcept {
    return {text, LengthTo(text, 0)};
}

std::u16string_view ComponentAt(const char16_t* path) noexcept {
    return {path, LengthTo(path, u'\\')};
}

std::uint32_t HashName(std::u16string_view name) noexcept {
    const char16_t* text = name.data();
    const std::size_t length = name.size();
    std::uint64_t hash = length * kOdd;
    if (length >= kBlock) {
        ForEachBlock(length, [&](std::size_t at) {
            hash = Mix(hash, Read<Block>(text + at));
            return true;
        });
    } else if (length != 0) {
        hash = Mix(hash, ReadShort(text, length));
    }
    return static_cast<std::uint32_t>(hash ^ hash >> 32);
}

bool SameName(std::u16string_view a, std::u16string_view b) noexcept {
    const std::size_t length = a.size();
    if (length != b.size()) return false;
    if (length >= kBlock) {
        return ForEachBlock(
            length, [&](std::size_t at) { return SameBlock(Read<Block>(a.data() + at), Read<Block>(b.data() + at)); });
    }
    return length == 0 || SameBlock(ReadShort(a.data(), length), ReadShort(b.data(), length));
}

std::strong_ordering CompareNames(std::u16string_view a, std::u16string_view b) noexcept {
    const std::size_t common = a.size() < b.size() ? a.size() : b.size();
    for (std::size_t at = 0; at < common; ++at) {
        const char16_t left = OvUpcase(a[at]);
        const char16_t right = OvUpcase(b[at]);
        if (left != right) return left <=> right;
    }
    return a.size() <=> b.size();
}
