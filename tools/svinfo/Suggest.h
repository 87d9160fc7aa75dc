// "Did you mean": the word that a mistyped one is nearest to.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

// Nothing when no candidate is near: more than a third of the word's letters, and at least two, would have to change.
// A letter typed wrong, left out, put in or exchanged with its neighbour counts one; the case of ASCII letters nothing.
std::optional<std::string> NearestWord(std::string_view word, const std::vector<std::string>& candidates);

// "; did you mean 'WORD'?", or nothing.
std::string Suggestion(std::string_view word, const std::vector<std::string>& candidates);
