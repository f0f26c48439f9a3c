#pragma once

#include <cmath>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <limits>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "OmbrixPlatform/Values/HashSeed.hpp"

namespace ombrix::detail {

/// A value that hash tables can store.
template <class Value>
concept Hashable = std::equality_comparable<Value> && requires(const Value& value) {
  { std::hash<Value>{}(value) } -> std::convertible_to<std::size_t>;
};

/// Numbers distinct keys from 0 in the order in which they first occur.
///
/// Integers and texts chosen to collide do not: their hashes include a seed of the process. For
/// keys of other types the quality of `std::hash` decides. Uses open addressing over 8-byte slots
/// of hash and number. The top bits of a hash determine its slot, so that growing reads and writes
/// the table from front to back.
template <Hashable Key>
class FirstSeenTable {
 public:
  using Number = std::uint32_t;
  static constexpr Number kNone = std::numeric_limits<Number>::max();

  [[nodiscard]] std::uint32_t hashOf(const Key& key) const {
    if constexpr (std::same_as<Key, std::string> || std::same_as<Key, std::string_view>) {
      return static_cast<std::uint32_t>(seed_.ofText(key) >> 32);
    } else {
      return seed_.mix(static_cast<std::uint64_t>(std::hash<Key>{}(key)));
    }
  }

  /// Whether batched lookups pay off: the table is larger than the nearest caches.
  [[nodiscard]] bool isLarge() const noexcept { return slots_.size() > kNearSlots; }

  /// Prefetches the slot of a key with this hash before its lookup.
  void prefetch(std::uint32_t hash) const noexcept {
    __builtin_prefetch(slots_.data() + (hash >> shift_), 1);
  }

  /// The number of a key; adds the key if it is new.
  template <class AnyKey>
  Number insert(AnyKey&& key, std::uint32_t hash) {
    if constexpr (std::floating_point<Key>) {
      // Not-a-number equals nothing: each is new, and none can be found.
      if (std::isnan(key)) {
        keys_.push_back(key);
        return static_cast<Number>(keys_.size() - 1);
      }
    }
    const std::size_t place = placeOf(key, hash);
    const Number number = slots_[place].number;
    return number != kNone ? number : append(std::forward<AnyKey>(key), hash, place);
  }

  /// The number of a key, or `kNone`.
  [[nodiscard]] Number find(const Key& key) const {
    return slots_[placeOf(key, hashOf(key))].number;
  }

  [[nodiscard]] const std::vector<Key>& keys() const noexcept { return keys_; }
  [[nodiscard]] std::vector<Key> takeKeys() && noexcept { return std::move(keys_); }

 private:
  static constexpr std::size_t kSparseSlots = 2'048;  // 16 KiB
  static constexpr std::size_t kNearSlots = 16'384;   // 128 KiB

  struct Slot {
    std::uint32_t hash = 0;
    Number number = kNone;
  };

  /// The slot of a key, or the empty slot where it belongs.
  template <class AnyKey>
  std::size_t placeOf(const AnyKey& key, std::uint32_t hash) const {
    const Slot* const slots = slots_.data();
    const std::size_t mask = slots_.size() - 1;
    std::size_t place = hash >> shift_;
    while (slots[place].number != kNone &&
           !(slots[place].hash == hash && keys_[slots[place].number] == key)) {
      place = (place + 1) & mask;
    }
    return place;
  }

  template <class AnyKey>
  Number append(AnyKey&& key, std::uint32_t hash, std::size_t place) {
    const auto number = static_cast<Number>(keys_.size());
    keys_.push_back(std::forward<AnyKey>(key));
    slots_[place] = {hash, number};
    if (keys_.size() * spread() > slots_.size()) grow();
    return number;
  }

  /// The minimum number of slots per key. A table that fits into the first cache is kept sparse, so
  /// that nearly every key is in its natural slot and branches are predictable.
  [[nodiscard]] std::size_t spread() const noexcept {
    return slots_.size() <= kSparseSlots ? 8 : 2;
  }

  void grow() {
    if (shift_ == 0) throw std::length_error("more than 2^31 distinct keys");
    const std::size_t size = slots_.size() * 2;
    std::vector<Slot> larger(size);
    --shift_;
    for (const Slot& slot : slots_) {
      if (slot.number == kNone) continue;
      std::size_t place = slot.hash >> shift_;
      while (larger[place].number != kNone) place = (place + 1) & (size - 1);
      larger[place] = slot;
    }
    slots_ = std::move(larger);
  }

  platform::HashSeed seed_ = platform::HashSeed::ofProcess();
  std::vector<Key> keys_;
  // The natural slot of a hash is its top 32 - shift_ bits.
  std::vector<Slot> slots_ = std::vector<Slot>(32);
  int shift_ = 27;
};

// Keys are looked up in batches of this size, so that their slots are fetched at the same time.
inline constexpr std::size_t kLookUpBatch = 32;

}  // namespace ombrix::detail
