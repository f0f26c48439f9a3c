#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <ranges>
#include <string>
#include <string_view>
#include <vector>

#include "OmbrixCore/Extensions/Fuzzy/String+Fuzzy.hpp"

namespace ombrix {

/// A pattern prepared once for matching many texts, as a search field does.
///
/// Returns the same as `normalizedFuzzyMatch`, or with `exact` the same as `fuzzyMatch`. Immutable;
/// any thread.
class FuzzyPattern {
 public:
  enum class Comparison { normalized, exact };

  explicit FuzzyPattern(std::string_view pattern, Comparison comparison = Comparison::normalized);
  FuzzyPattern(FuzzyPattern&&) noexcept;
  FuzzyPattern& operator=(FuzzyPattern&&) noexcept;
  ~FuzzyPattern();

  [[nodiscard]] std::optional<FuzzyMatch> match(std::string_view text) const;
  [[nodiscard]] std::optional<std::int64_t> score(std::string_view text) const;

 private:
  struct Form;
  struct Forms;
  template <class Result>
  std::optional<Result> best(std::string_view text) const;

  std::unique_ptr<const Forms> forms_;
};

/// A text that contains a pattern: its index in the searched list, and its score.
struct RankedText {
  std::size_t index = 0;
  std::int64_t score = 0;

  bool operator==(const RankedText&) const = default;
};

/// Sorts matches by descending score; equal scores keep the order of the list.
void sortByScore(std::vector<RankedText>& matches);

/// The texts of a list that contain a pattern, best first. Any thread.
template <std::ranges::input_range Texts>
std::vector<RankedText> rankedByFuzzyScore(Texts&& texts, const FuzzyPattern& pattern) {
  std::vector<RankedText> matches;
  std::size_t index = 0;
  for (auto&& text : texts) {
    if (const auto score = pattern.score(text)) matches.push_back({index, *score});
    ++index;
  }
  sortByScore(matches);
  return matches;
}

/// A text prepared once for `levenshteinDistanceScore` with many others. Immutable; any thread. A
/// text of n distinct non-ASCII characters takes n * n / 8 bytes: 1.25 GB for 100,000.
class LevenshteinPattern {
 public:
  LevenshteinPattern(std::string_view text, bool ignoreCase, bool trimWhiteSpacesAndNewLines);
  LevenshteinPattern(LevenshteinPattern&&) noexcept;
  LevenshteinPattern& operator=(LevenshteinPattern&&) noexcept;
  ~LevenshteinPattern();

  /// Like `levenshteinDistanceScore` with these flags.
  [[nodiscard]] double scoreTo(std::string_view other) const;

 private:
  struct Prepared;
  std::unique_ptr<const Prepared> prepared_;
};

}  // namespace ombrix
