#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <unordered_map>
#include <vector>

#include "OmbrixCore/Extensions/Fuzzy/Detail/Characters.hpp"

namespace ombrix::detail {

/// A text prepared for edit distances to many others: a bit set of the positions of each
/// character.
///
/// Bit-parallel in blocks of 64 characters: G. Myers, A fast bit-vector algorithm for approximate
/// string matching (1999), in the form of H. Hyyro, A bit-vector algorithm for computing
/// Levenshtein and Damerau edit distances (2003). Immutable; any thread.
class EditPattern {
 public:
  explicit EditPattern(std::span<const Byte> pattern) { prepare(pattern); }
  explicit EditPattern(std::span<const Symbol> pattern) { prepare(pattern); }

  /// The smallest number of insertions, deletions and replacements between the two texts.
  [[nodiscard]] std::size_t distanceTo(std::span<const Byte> text) const { return distance(text); }
  [[nodiscard]] std::size_t distanceTo(std::span<const Symbol> text) const {
    return distance(text);
  }

 private:
  using Word = std::uint64_t;
  static constexpr std::size_t kDirectSymbols = 128;

  template <class Character>
  void prepare(std::span<const Character> pattern);
  template <class Character>
  std::size_t distance(std::span<const Character> text) const;
  template <class Character>
  std::size_t distanceByBlocks(std::span<const Character> text) const;

  Word* rowToFill(Symbol symbol);
  [[nodiscard]] const Word* row(Symbol symbol) const;

  std::size_t size_ = 0;
  std::size_t blocks_ = 0;
  std::vector<Word> direct_;                         // one row for each ASCII character
  std::vector<Word> others_;                         // rows by number; the first is empty
  std::unordered_map<Symbol, std::size_t> numbers_;  // of symbols beyond ASCII
};

/// The same distance for one pair of texts.
std::size_t editDistance(std::span<const Byte> a, std::span<const Byte> b);
std::size_t editDistance(std::span<const Symbol> a, std::span<const Symbol> b);

}  // namespace ombrix::detail
