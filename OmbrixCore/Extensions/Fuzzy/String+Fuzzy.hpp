#pragma once

#include <compare>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace ombrix {

namespace String {

/// A number for ranking texts, with an optional remark; comparisons use only the number.
struct Score {
  std::int64_t value = 0;
  std::string log;

  friend bool operator==(const Score& a, const Score& b) noexcept { return a.value == b.value; }
  friend std::strong_ordering operator<=>(const Score& a, const Score& b) noexcept {
    return a.value <=> b.value;
  }
};

/// A grid stored row by row: cell (row, column) is `array[row * width + column]`.
template <class Cell>
struct Matrix {
  std::vector<Cell> array;
  std::size_t width = 0;
  std::size_t height = 0;

  [[nodiscard]] const Cell& at(std::size_t row, std::size_t column) const {
    return array[row * width + column];
  }
  bool operator==(const Matrix&) const = default;
};

}  // namespace String

/// Where a pattern was found in a text: one column for each character of the text, one row for each
/// of the pattern. A cell holds the best score of a match that ends there, or is empty.
struct FuzzyMatch {
  std::int64_t score = 0;
  String::Matrix<std::optional<std::int64_t>> matrix;

  bool operator==(const FuzzyMatch&) const = default;
};

// Characters below are user-perceived ones (grapheme clusters), and canonically equivalent ones are
// equal. Texts are UTF-8. Every function may run on any thread.

/// Searches a text for a pattern's characters in order, with gaps allowed.
///
/// The first character scores 1 and each further one 1, minus 1 for each character of the text
/// skipped before it; the result is the best score of all alignments, and may be negative. An empty
/// pattern scores 0.
///
/// @return empty when the text lacks a character of the pattern.
///
/// Time and memory grow with the product of both lengths, 16 bytes per cell: 1.6 GB for a pattern
/// and a text of 10,000 characters each. `fuzzyScore` needs no matrix.
std::optional<FuzzyMatch> fuzzyMatch(std::string_view text, std::string_view pattern);

/// The score of `fuzzyMatch` alone, without the matrix: memory grows linearly with the text.
std::optional<std::int64_t> fuzzyScore(std::string_view text, std::string_view pattern);

/// Like `fuzzyMatch`, but ignores case, and diacritics where that scores better.
///
/// The match of the lower-cased texts wins against the match of the texts without diacritics unless
/// the latter scores more; on its own, the latter needs a score of at least 1.
std::optional<FuzzyMatch> normalizedFuzzyMatch(std::string_view text, std::string_view pattern);

/// The score of `normalizedFuzzyMatch` alone.
std::optional<std::int64_t> normalizedFuzzyScore(std::string_view text, std::string_view pattern);

/// The similarity of two texts: 1 - d / n with d the Levenshtein distance (insertions, deletions
/// and replacements cost 1) and n the length of the longer text.
///
/// @param ignoreCase compares the texts in lower case.
/// @param trimWhiteSpacesAndNewLines ignores white space at both ends.
/// @return 0 to 1; not a number for two empty texts.
double levenshteinDistanceScore(std::string_view text, std::string_view other, bool ignoreCase,
                                bool trimWhiteSpacesAndNewLines);

}  // namespace ombrix
