#include "Upcase.h"

#include "upcase/UpcaseRanges.h"

namespace ovupcase {

namespace {

struct Unfolded {
    Table table;
    std::size_t blocks;  // in use, the one of no change included
    int changes;
};

// Unfolds the ranges when the layer is compiled.
consteval Unfolded Unfold() {
    Unfolded result = {};
    result.blocks = 1;
    for (const Range& range : kRanges) {
        for (unsigned unit = range.first; unit <= range.last; unit += range.step) {
            std::uint8_t& block = result.table.blockOf[unit >> kBlockBits];
            if (block == 0) block = static_cast<std::uint8_t>(result.blocks++);
            result.table.distance[block][unit & (kBlockSize - 1)] = static_cast<std::uint16_t>(range.distance);
            ++result.changes;
        }
    }
    return result;
}

constexpr Unfolded kUnfolded = Unfold();
static_assert(kUnfolded.blocks == kBlocks && kUnfolded.changes == kChangedUnits);

}  // namespace

constinit const Table kTable = kUnfolded.table;

}  // namespace ovupcase

char16_t OvDowncase(char16_t unit) noexcept {
    if (unit < 0x80) return static_cast<char16_t>(unit + (unit >= u'A' && unit <= u'Z' ? 32 : 0));
    for (const ovupcase::Range& range : ovupcase::kRanges) {
        const unsigned lower = static_cast<char16_t>(unit - range.distance);
        if (lower >= range.first && lower <= range.last && (lower - range.first) % range.step == 0) {
            return static_cast<char16_t>(lower);
        }
    }
    return unit;
}
