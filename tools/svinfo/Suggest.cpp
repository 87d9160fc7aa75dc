#include "svinfo/Suggest.h"

#include <algorithm>
#include <cstdlib>

#include "svinfo/Text.h"

namespace {

char Lower(char c) noexcept {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

// The number of changes that turn one word into the other, or anything above `limit` when there are more.
std::size_t Changes(std::string_view a, std::string_view b, std::size_t limit) {
    if (std::max(a.size(), b.size()) - std::min(a.size(), b.size()) > limit) return limit + 1;
    std::vector<std::size_t> beforeLast(b.size() + 1), last(b.size() + 1), row(b.size() + 1);
    for (std::size_t j = 0; j <= b.size(); ++j) row[j] = j;
    for (std::size_t i = 1; i <= a.size(); ++i) {
        beforeLast.swap(last);
        last.swap(row);
        row[0] = i;
        std::size_t least = i;
        for (std::size_t j = 1; j <= b.size(); ++j) {
            const bool same = Lower(a[i - 1]) == Lower(b[j - 1]);
            row[j] = std::min({last[j] + 1, row[j - 1] + 1, last[j - 1] + (same ? 0 : 1)});
            const bool exchanged =
                i > 1 && j > 1 && Lower(a[i - 1]) == Lower(b[j - 2]) && Lower(a[i - 2]) == Lower(b[j - 1]);
            if (exchanged) row[j] = std::min(row[j], beforeLast[j - 2] + 1);
            least = std::min(least, row[j]);
        }
        if (least > limit) return least;
    }
    return row[b.size()];
}

}  // namespace

std::optional<std::string> NearestWord(std::string_view word, const std::vector<std::string>& candidates) {
    std::size_t limit = std::max<std::size_t>(2, word.size() / 3);
    std::optional<std::string> nearest;
    for (const std::string& candidate : candidates) {
        const std::size_t changes = Changes(word, candidate, limit);
        // A word of which nothing is left is no better guess than any other.
        if (changes > limit || changes >= std::max(word.size(), candidate.size())) continue;
        if (nearest && changes == limit) continue;
        nearest = candidate;
        limit = changes;
    }
    return nearest;
}

std::string Suggestion(std::string_view word, const std::vector<std::string>& candidates) {
    const std::optional<std::string> nearest = NearestWord(word, candidates);
    return nearest ? "; did you mean " + Quoted(*nearest) + "?" : std::string();
}
