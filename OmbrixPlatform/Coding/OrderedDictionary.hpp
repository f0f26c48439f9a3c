#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "OmbrixPlatform/Values/HashSeed.hpp"

namespace ombrix::platform {

/// A dictionary with text keys that keeps its entries in the order they were first set.
///
/// Looking a key up takes constant time: it scans a few entries and uses an index for more, in
/// which keys chosen by an attacker collide no more than others. Not synchronised; equality ignores
/// the order.
template <class Value>
class OrderedDictionary {
 public:
  struct Entry {
    std::string key;
    Value value;
  };
  using key_type = std::string;
  using mapped_type = Value;
  using value_type = Entry;
  using const_iterator = typename std::vector<Entry>::const_iterator;

  OrderedDictionary() = default;

  /// Entries in the order given; of equal keys the last value stays.
  OrderedDictionary(std::initializer_list<Entry> entries) {
    for (const Entry& entry : entries) set(entry.key, entry.value);
  }

  [[nodiscard]] std::size_t size() const noexcept { return entries_.size(); }
  [[nodiscard]] bool empty() const noexcept { return entries_.empty(); }
  [[nodiscard]] const_iterator begin() const noexcept { return entries_.begin(); }
  [[nodiscard]] const_iterator end() const noexcept { return entries_.end(); }
  void reserve(std::size_t count) { entries_.reserve(count); }

  /// The value of a key, or null when there is none; valid until the dictionary changes.
  [[nodiscard]] const Value* find(std::string_view key) const {
    const std::size_t index = indexOf(key);
    return index == kNone ? nullptr : &entries_[index].value;
  }
  [[nodiscard]] Value* find(std::string_view key) {
    return const_cast<Value*>(std::as_const(*this).find(key));
  }
  [[nodiscard]] bool contains(std::string_view key) const { return indexOf(key) != kNone; }

  /// Sets a value: in place when the key exists already, otherwise at the end.
  Value& set(std::string key, Value value) {
    if (Value* there = find(key)) return *there = std::move(value);
    entries_.push_back({std::move(key), std::move(value)});
    if (entries_.size() > kScanned) indexLast();
    return entries_.back().value;
  }

  void insert_or_assign(std::string key, Value value) { set(std::move(key), std::move(value)); }

  void clear() noexcept {
    entries_.clear();
    slots_.clear();
  }

  /// Removes a key; false when there was none. The order of the others stays.
  bool erase(std::string_view key) {
    const std::size_t index = indexOf(key);
    if (index == kNone) return false;
    entries_.erase(entries_.begin() + static_cast<std::ptrdiff_t>(index));
    rebuild();
    return true;
  }

  friend bool operator==(const OrderedDictionary& a, const OrderedDictionary& b) {
    return a.size() == b.size() && std::ranges::all_of(a.entries_, [&](const Entry& entry) {
             const Value* other = b.find(entry.key);
             return other != nullptr && *other == entry.value;
           });
  }

 private:
  static constexpr std::size_t kScanned = 12;
  static constexpr std::size_t kNone = static_cast<std::size_t>(-1);

  [[nodiscard]] static std::size_t hashOf(std::string_view key) {
    return static_cast<std::size_t>(HashSeed::ofProcess().ofText(key));
  }

  [[nodiscard]] std::size_t indexOf(std::string_view key) const {
    if (entries_.size() <= kScanned) {
      for (std::size_t i = 0; i < entries_.size(); ++i) {
        if (entries_[i].key == key) return i;
      }
      return kNone;
    }
    const std::size_t mask = slots_.size() - 1;
    for (std::size_t at = hashOf(key);; ++at) {
      const std::uint32_t slot = slots_[at & mask];
      if (slot == 0) return kNone;
      if (entries_[slot - 1].key == key) return slot - 1;
    }
  }

  void indexLast() {
    if (slots_.size() < entries_.size() * 2) return rebuild();
    insertSlot(entries_.size() - 1);
  }

  void insertSlot(std::size_t index) {
    const std::size_t mask = slots_.size() - 1;
    std::size_t at = hashOf(entries_[index].key) & mask;
    while (slots_[at] != 0) at = (at + 1) & mask;
    slots_[at] = static_cast<std::uint32_t>(index + 1);
  }

  void rebuild() {
    slots_.clear();
    if (entries_.size() <= kScanned) return;
    std::size_t capacity = 64;
    while (capacity < entries_.size() * 4) capacity *= 2;
    slots_.resize(capacity, 0);
    for (std::size_t i = 0; i < entries_.size(); ++i) insertSlot(i);
  }

  std::vector<Entry> entries_;
  std::vector<std::uint32_t> slots_;  // open addressing: index + 1, 0 is free
};

}  // namespace ombrix::platform
