#include <algorithm>
#include <concepts>

#include "OmbrixCore/Extensions/Fuzzy/Detail/EditDistance.hpp"

namespace ombrix::detail {
namespace {

using Word = std::uint64_t;
constexpr std::size_t kWordBits = 64;

/// One column of one block: 64 vertical differences as bits; passes a carry through its lower edge.
struct Block {
  Word increases = ~Word{0};
  Word decreases = 0;

  /// Advances by one character of the text. `matches` has a bit for each position of the character
  /// in the block. The carries belong to the block's upper edge before the call, to its lower edge
  /// afterwards. `horizontal` is called with the differences before they are shifted.
  template <class Horizontal>
  void advance(Word matches, Word& carriedUp, Word& carriedDown, Horizontal horizontal) {
    const Word joined = matches | carriedDown;
    const Word diagonal = (((joined & increases) + increases) ^ increases) | joined | decreases;
    Word up = decreases | ~(diagonal | increases);
    Word down = diagonal & increases;
    horizontal(up, down);
    const Word nextUp = up >> (kWordBits - 1);
    const Word nextDown = down >> (kWordBits - 1);
    up = up << 1 | carriedUp;
    down = down << 1 | carriedDown;
    increases = down | ~(diagonal | up);
    decreases = up & diagonal;
    carriedUp = nextUp;
    carriedDown = nextDown;
  }
};

/// The distance of a pattern of 1 to 64 characters, given the positions of each character in it.
template <class Character, class Places>
std::size_t distanceByWord(std::size_t size, std::span<const Character> text, Places places) {
  Block block;
  std::size_t distance = size;
  const std::size_t last = size - 1;
  for (const Character character : text) {
    Word carriedUp = 1;
    Word carriedDown = 0;
    block.advance(places(character), carriedUp, carriedDown,
                  [&](Word up, Word down) { distance += (up >> last & 1) - (down >> last & 1); });
  }
  return distance;
}

/// Removes common prefixes and suffixes, which never cost an edit.
template <class Character>
void trimShared(std::span<const Character>& a, std::span<const Character>& b) {
  const auto front = std::ranges::mismatch(a, b).in1 - a.begin();
  a = a.subspan(static_cast<std::size_t>(front));
  b = b.subspan(static_cast<std::size_t>(front));
  std::size_t back = 0;
  while (back < std::min(a.size(), b.size()) && a[a.size() - 1 - back] == b[b.size() - 1 - back]) {
    ++back;
  }
  a = a.first(a.size() - back);
  b = b.first(b.size() - back);
}

template <class Character>
std::size_t distanceOfPair(std::span<const Character> a, std::span<const Character> b) {
  trimShared(a, b);
  if (a.size() > b.size()) std::swap(a, b);
  if (a.empty()) return b.size();
  if constexpr (std::same_as<Character, Byte>) {
    if (a.size() <= kWordBits) {
      // All zero between calls: clearing the changed words is cheaper than clearing all.
      thread_local constinit std::array<Word, 256> table{};
      Word* const places = table.data();
      for (std::size_t i = 0; i < a.size(); ++i) {
        places[a[i]] |= Word{1} << i;
      }
      const std::size_t distance =
          distanceByWord(a.size(), b, [places](Character character) { return places[character]; });
      for (const Character character : a) places[character] = 0;
      return distance;
    }
  }
  return EditPattern(a).distanceTo(b);
}

}  // namespace

template <class Character>
void EditPattern::prepare(std::span<const Character> pattern) {
  size_ = pattern.size();
  blocks_ = (size_ + kWordBits - 1) / kWordBits;
  direct_.resize(kDirectSymbols * blocks_);
  others_.resize(blocks_);
  for (std::size_t i = 0; i < size_; ++i) {
    rowToFill(pattern[i])[i / kWordBits] |= Word{1} << (i % kWordBits);
  }
}

EditPattern::Word* EditPattern::rowToFill(Symbol symbol) {
  if (symbol < kDirectSymbols) return direct_.data() + symbol * blocks_;
  const auto [entry, isNew] = numbers_.try_emplace(symbol, others_.size());
  if (isNew) others_.resize(others_.size() + blocks_);
  return others_.data() + entry->second;
}

const EditPattern::Word* EditPattern::row(Symbol symbol) const {
  if (symbol < kDirectSymbols) return direct_.data() + symbol * blocks_;
  const auto entry = numbers_.find(symbol);
  return others_.data() + (entry == numbers_.end() ? 0 : entry->second);
}

template <class Character>
std::size_t EditPattern::distance(std::span<const Character> text) const {
  if (size_ == 0 || text.empty()) return std::max(size_, text.size());
  if (blocks_ > 1) return distanceByBlocks(text);
  return distanceByWord(size_, text, [this](Character character) { return *row(character); });
}

template <class Character>
std::size_t EditPattern::distanceByBlocks(std::span<const Character> text) const {
  std::vector<Block> column(blocks_);
  std::size_t distance = size_;
  const std::size_t last = (size_ - 1) % kWordBits;
  for (const Character character : text) {
    const Word* const places = row(character);
    Word carriedUp = 1;
    Word carriedDown = 0;
    for (std::size_t i = 0; i + 1 < blocks_; ++i) {
      column[i].advance(places[i], carriedUp, carriedDown, [](Word, Word) {});
    }
    column.back().advance(places[blocks_ - 1], carriedUp, carriedDown, [&](Word up, Word down) {
      distance += (up >> last & 1) - (down >> last & 1);
    });
  }
  return distance;
}

template std::size_t EditPattern::distance(std::span<const Byte> text) const;
template std::size_t EditPattern::distance(std::span<const Symbol> text) const;
template void EditPattern::prepare(std::span<const Byte> pattern);
template void EditPattern::prepare(std::span<const Symbol> pattern);

std::size_t editDistance(std::span<const Byte> a, std::span<const Byte> b) {
  return distanceOfPair(a, b);
}

std::size_t editDistance(std::span<const Symbol> a, std::span<const Symbol> b) {
  return distanceOfPair(a, b);
}

}  // namespace ombrix::detail
