#pragma once

#include <algorithm>
#include <array>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>
#include <span>
#include <vector>

#include "OmbrixCore/Extensions/Fuzzy/Detail/Characters.hpp"
#include "OmbrixCore/Extensions/Fuzzy/String+Fuzzy.hpp"

namespace ombrix::detail {

/// Whether the pattern's characters stand in the text in order: nothing else decides about a match.
template <class Character, class Other>
bool isSubsequence(std::span<const Character> text, std::span<const Other> pattern) noexcept {
  if (pattern.size() > text.size()) return false;
  std::size_t matched = 0;
  for (std::size_t column = 0; column < text.size() && matched < pattern.size(); ++column) {
    if (text[column] == pattern[matched]) ++matched;
  }
  return matched == pattern.size();
}

// The cell of a character at column c is 1 + max(v - (c - k - 1)) over the cells v at columns k < c
// of the row above, which is max(v + k) + 2 - c: a running maximum makes a row linear. Each row
// starts behind the first match of the row above, so that the maximum always has a value.

/// The matrix of a pattern that is a subsequence of the text.
template <class Character, class Other>
FuzzyMatch matchWithMatrix(std::span<const Character> text, std::span<const Other> pattern) {
  FuzzyMatch match;
  match.matrix.width = text.size();
  match.matrix.height = pattern.size();
  match.matrix.array.resize(text.size() * pattern.size());
  if (pattern.empty()) return match;
  std::optional<std::int64_t>* row = match.matrix.array.data();
  const auto width = static_cast<std::ptrdiff_t>(text.size());
  std::ptrdiff_t first = width;
  for (std::ptrdiff_t column = width - 1; column >= 0; --column) {
    if (text[static_cast<std::size_t>(column)] != pattern[0]) continue;
    row[column] = 1;
    first = column;
  }
  for (const Other wanted : pattern.subspan(1)) {
    const std::optional<std::int64_t>* const above = row;
    row += width;
    std::int64_t best = std::numeric_limits<std::int64_t>::min();
    std::ptrdiff_t firstHere = width;
    for (std::ptrdiff_t column = first + 1; column < width; ++column) {
      if (above[column - 1]) best = std::max(best, *above[column - 1] + (column - 1));
      if (text[static_cast<std::size_t>(column)] != wanted) continue;
      row[column] = best + 2 - column;
      firstHere = std::min(firstHere, column);
    }
    first = firstHere;
  }
  match.score = std::numeric_limits<std::int64_t>::min();
  for (std::ptrdiff_t column = 0; column < width; ++column) {
    match.score = std::max(match.score, row[column].value_or(match.score));
  }
  return match;
}

/// The score of a pattern that is a subsequence of the text, in one row of memory.
template <class Character, class Other>
std::int64_t scoreOnly(std::span<const Character> text, std::span<const Other> pattern) {
  if (pattern.empty()) return 0;
  constexpr std::int64_t kNoMatch = std::numeric_limits<std::int64_t>::min() / 2;
  constexpr std::size_t kShort = 128;
  std::array<std::int64_t, kShort> shortRow;
  std::vector<std::int64_t> longRow;
  std::int64_t* row = shortRow.data();
  if (text.size() > kShort) {
    longRow.resize(text.size());
    row = longRow.data();
  }
  // Cells hold v + column, so that a row needs no arithmetic but the maximum.
  const std::size_t width = text.size();
  std::size_t first = width;
  for (std::size_t column = width; column-- > 0;) {
    const bool matches = text[column] == pattern[0];
    row[column] = matches ? static_cast<std::int64_t>(column) + 1 : kNoMatch;
    first = matches ? column : first;
  }
  for (const Other wanted : pattern.subspan(1)) {
    std::int64_t best = row[first];
    std::size_t column = first + 1;
    while (text[column] != wanted) {
      best = std::max(best, row[column]);
      ++column;
    }
    first = column;
    for (; column < width; ++column) {
      const std::int64_t above = row[column];
      row[column] = text[column] == wanted ? best + 2 : kNoMatch;
      best = std::max(best, above);
    }
  }
  std::int64_t score = kNoMatch;
  for (std::size_t column = first; column < width; ++column) {
    const std::int64_t value = row[column] - static_cast<std::int64_t>(column);
    score = row[column] == kNoMatch ? score : std::max(score, value);
  }
  return score;
}

/// The match, or its score alone, of a pattern in a text; nothing when there is none.
template <class Result>
std::optional<Result> matchCharacters(const Characters& text, const Characters& pattern) {
  return text.visit([&](auto in) {
    return pattern.visit([&](auto wanted) -> std::optional<Result> {
      if (!isSubsequence(in, wanted)) return std::nullopt;
      if constexpr (std::same_as<Result, FuzzyMatch>) {
        return matchWithMatrix(in, wanted);
      } else {
        return scoreOnly(in, wanted);
      }
    });
  });
}

}  // namespace ombrix::detail
