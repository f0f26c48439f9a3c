#pragma once

#include <algorithm>
#include <array>
#include <bit>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <optional>
#include <span>
#include <vector>

#include "OmbrixCore/Extensions/Fuzzy/Detail/Characters.hpp"
#include "OmbrixCore/Extensions/Fuzzy/String+Fuzzy.hpp"

namespace ombrix::detail {

/// Whether the text contains the pattern's characters in order: only this decides about a match.
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
// starts after the first match of the row above, so that the maximum always has a value.

/// Fills the matrix for a pattern that is a subsequence of the text.
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

/// Computes the score of a pattern that is a subsequence of the text, in one row of memory.
template <class Character, class Other>
std::int64_t scoreOnly(std::span<const Character> text, std::span<const Other> pattern) {
  if (pattern.empty()) return 0;
  constexpr std::int64_t kNoMatch = std::numeric_limits<std::int64_t>::min() / 2;
  std::vector<std::int64_t> row(text.size());
  // Cells hold v + column, so that a row needs only the maximum and no other arithmetic.
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

// For texts of up to 64 characters, such as names: the positions of each pattern character are the
// bits of a word, and only those positions are visited.
inline constexpr std::size_t kShortText = 64;

/// A short text, prepared for finding the positions of a character.
template <class Character>
class ShortText {
 public:
  explicit ShortText(std::span<const Character> text) noexcept : text_(text) {}

  [[nodiscard]] std::uint64_t placesOf(Symbol wanted) const noexcept {
    std::uint64_t places = 0;
    for (std::size_t i = 0; i < text_.size(); ++i) {
      places |= std::uint64_t{text_[i] == wanted} << i;
    }
    return places;
  }

 private:
  std::span<const Character> text_;
};

/// The same for ASCII, eight characters at a time.
template <>
class ShortText<Byte> {
 public:
  explicit ShortText(std::span<const Byte> text) noexcept : words_((text.size() + 7) / 8) {
    if (text.empty()) return;
    // Padded with bytes that are not ASCII.
    word_[words_ - 1] = ~std::uint64_t{0};
    std::memcpy(word_.data(), text.data(), text.size());
    if constexpr (std::endian::native == std::endian::big) {
      for (std::uint64_t& word : word_) word = __builtin_bswap64(word);
    }
  }

  [[nodiscard]] std::uint64_t placesOf(Symbol wanted) const noexcept {
    constexpr std::uint64_t kEachByte = 0x0101'0101'0101'0101U;
    constexpr std::uint64_t kLowBits = kEachByte * 0x7F;
    if (wanted > 0x7F) return 0;
    std::uint64_t places = 0;
    for (std::size_t i = 0; i < words_; ++i) {
      // The top bit of a byte ends up clear exactly where the bytes are equal.
      const std::uint64_t differences = word_[i] ^ kEachByte * wanted;
      const std::uint64_t equal = ~(((differences & kLowBits) + kLowBits) | differences | kLowBits);
      places |= ((equal >> 7) * 0x0102'0408'1020'4080U >> 56) << (8 * i);
    }
    return places;
  }

 private:
  std::size_t words_;
  std::array<std::uint64_t, kShortText / 8> word_;
};

/// Finds the positions of each pattern character that can match; false if one has none.
template <class Character, class Other>
bool findPlaces(std::span<const Character> text, std::span<const Other> pattern,
                std::array<std::uint64_t, kShortText>& rows) noexcept {
  if (pattern.size() > text.size()) return false;
  const ShortText<Character> shortText(text);
  std::uint64_t allowed = ~std::uint64_t{0};
  for (std::size_t r = 0; r < pattern.size(); ++r) {
    rows[r] = shortText.placesOf(pattern[r]) & allowed;
    if (rows[r] == 0) return false;
    allowed = ~std::uint64_t{1} << std::countr_zero(rows[r]);
  }
  return true;
}

/// Visits the cells of `rows`, row by row, and returns the score.
template <class UseCell>
std::int64_t visitCells(std::span<const std::uint64_t> rows, UseCell useCell) {
  if (rows.empty()) return 0;
  std::array<std::int64_t, kShortText> sums[2];  // v + column, of the row above and of this one
  std::int64_t score = std::numeric_limits<std::int64_t>::min();
  for (std::size_t r = 0; r < rows.size(); ++r) {
    const auto& above = sums[(r + 1) % 2];
    auto& here = sums[r % 2];
    std::uint64_t left = r == 0 ? 0 : rows[r - 1];
    std::int64_t best = r == 0 ? 0 : std::numeric_limits<std::int64_t>::min();
    for (std::uint64_t places = rows[r]; places != 0; places &= places - 1) {
      const auto column = static_cast<std::size_t>(std::countr_zero(places));
      for (; left != 0 && static_cast<std::size_t>(std::countr_zero(left)) < column;
           left &= left - 1) {
        best = std::max(best, above[static_cast<std::size_t>(std::countr_zero(left))]);
      }
      const std::int64_t value = r == 0 ? 1 : best + 2 - static_cast<std::int64_t>(column);
      here[column] = value + static_cast<std::int64_t>(column);
      useCell(r, column, value);
      if (r + 1 == rows.size()) score = std::max(score, value);
    }
  }
  return score;
}

/// `matchCharacters` for a text of at most `kShortText` characters.
template <class Result, class Character, class Other>
std::optional<Result> matchShort(std::span<const Character> text, std::span<const Other> pattern) {
  std::array<std::uint64_t, kShortText> storage;
  if (!findPlaces(text, pattern, storage)) return std::nullopt;
  const auto rows = std::span<const std::uint64_t>(storage).first(pattern.size());
  if constexpr (std::same_as<Result, FuzzyMatch>) {
    FuzzyMatch match;
    match.matrix.width = text.size();
    match.matrix.height = pattern.size();
    match.matrix.array.resize(text.size() * pattern.size());
    match.score = visitCells(rows, [&](std::size_t row, std::size_t column, std::int64_t value) {
      match.matrix.array[row * text.size() + column] = value;
    });
    return match;
  } else {
    return visitCells(rows, [](std::size_t, std::size_t, std::int64_t) {});
  }
}

/// The match, or only its score, of a pattern in a text; empty when there is no match.
template <class Result>
std::optional<Result> matchCharacters(const Characters& text, const Characters& pattern) {
  return text.visit([&](auto in) {
    return pattern.visit([&](auto wanted) -> std::optional<Result> {
      if (in.size() <= kShortText) return matchShort<Result>(in, wanted);
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
