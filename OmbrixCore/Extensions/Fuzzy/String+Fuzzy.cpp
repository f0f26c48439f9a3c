#include "OmbrixCore/Extensions/Fuzzy/String+Fuzzy.hpp"

#include <algorithm>
#include <concepts>
#include <utility>

#include "OmbrixCore/Extensions/Fuzzy/Detail/Characters.hpp"
#include "OmbrixCore/Extensions/Fuzzy/Detail/EditDistance.hpp"
#include "OmbrixCore/Extensions/Fuzzy/Detail/Folded.hpp"
#include "OmbrixCore/Extensions/Fuzzy/Detail/SubsequenceScore.hpp"
#include "OmbrixCore/Extensions/Fuzzy/FuzzyPattern.hpp"

namespace ombrix {
namespace {

template <class Result>
std::optional<Result> matchOnce(std::string_view text, std::string_view pattern) {
  detail::LongCharacters longCharacters;
  const detail::Characters wanted(pattern, longCharacters);
  return detail::matchCharacters<Result>(detail::Characters(text, std::as_const(longCharacters)),
                                         wanted);
}

}  // namespace

std::optional<FuzzyMatch> fuzzyMatch(std::string_view text, std::string_view pattern) {
  return matchOnce<FuzzyMatch>(text, pattern);
}

std::optional<std::int64_t> fuzzyScore(std::string_view text, std::string_view pattern) {
  return matchOnce<std::int64_t>(text, pattern);
}

std::optional<FuzzyMatch> normalizedFuzzyMatch(std::string_view text, std::string_view pattern) {
  return FuzzyPattern(pattern).match(text);
}

std::optional<std::int64_t> normalizedFuzzyScore(std::string_view text, std::string_view pattern) {
  return FuzzyPattern(pattern).score(text);
}

double levenshteinDistanceScore(std::string_view text, std::string_view other, bool ignoreCase,
                                bool trimWhiteSpacesAndNewLines) {
  std::string ownStorage;
  std::string otherStorage;
  detail::LongCharacters longCharacters;
  const detail::Characters a(
      detail::comparable(text, ignoreCase, trimWhiteSpacesAndNewLines, ownStorage), longCharacters);
  const detail::Characters b(
      detail::comparable(other, ignoreCase, trimWhiteSpacesAndNewLines, otherStorage),
      std::as_const(longCharacters));
  const std::size_t distance = a.visit([&](auto first) {
    return b.visit([&](auto second) {
      if constexpr (std::same_as<decltype(first), decltype(second)>) {
        return detail::editDistance(first, second);
      } else {
        return detail::EditPattern(first).distanceTo(second);
      }
    });
  });
  // Kept: two empty texts give 0/0, which is not a number. Callers tell "nothing to compare" by it.
  return 1 - static_cast<double>(distance) / static_cast<double>(std::max(a.size(), b.size()));
}

}  // namespace ombrix
