#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <iterator>
#include <memory>
#include <new>
#include <ranges>
#include <span>
#include <type_traits>
#include <utility>
#include <vector>

#include "OmbrixCore/Extensions/Search/FirstSeenTable.hpp"

namespace ombrix {
namespace detail {

/// Does not initialise trivial elements when a vector is sized: each is written right after.
template <class Element>
struct UnsetAllocator : std::allocator<Element> {
  template <class Other>
  struct rebind {
    using other = UnsetAllocator<Other>;
  };

  using std::allocator<Element>::allocator;

  template <class Other, class... Arguments>
  void construct(Other* place, Arguments&&... arguments) {
    if constexpr (sizeof...(Arguments) == 0) {
      ::new (static_cast<void*>(place)) Other;
    } else {
      std::construct_at(place, std::forward<Arguments>(arguments)...);
    }
  }
};

}  // namespace detail

/// A read-only dictionary from keys to arrays of elements, returned by `chunked`; the elements of a
/// group are contiguous in memory.
///
/// Groups are visited in the order in which their keys first occurred, but equality ignores that
/// order, like a dictionary's. Reading is safe on any thread.
template <detail::Hashable Key, class Element>
class Grouping {
 public:
  struct Group {
    typename std::vector<Key>::const_reference key;
    std::span<const Element> elements;
  };

  class Iterator {
   public:
    using value_type = Group;
    using difference_type = std::ptrdiff_t;

    Iterator() = default;
    Iterator(const Grouping* grouping, std::size_t index) : grouping_(grouping), index_(index) {}
    Group operator*() const { return grouping_->group(index_); }
    Iterator& operator++() {
      ++index_;
      return *this;
    }
    Iterator operator++(int) { return {grouping_, index_++}; }
    bool operator==(const Iterator&) const = default;

   private:
    const Grouping* grouping_ = nullptr;
    std::size_t index_ = 0;
  };

  Grouping() = default;

  /// The number of groups.
  [[nodiscard]] std::size_t size() const noexcept { return table_.keys().size(); }
  [[nodiscard]] bool empty() const noexcept { return size() == 0; }
  [[nodiscard]] Iterator begin() const noexcept { return {this, 0}; }
  [[nodiscard]] Iterator end() const noexcept { return {this, size()}; }

  [[nodiscard]] bool contains(const Key& key) const { return table_.find(key) != Table::kNone; }

  /// The elements under a key, in the order of the sequence; empty only for an unknown key, since
  /// no group is empty.
  [[nodiscard]] std::span<const Element> operator[](const Key& key) const {
    const auto number = table_.find(key);
    return number == Table::kNone ? std::span<const Element>() : group(number).elements;
  }

  /// Whether both have the same keys with the same elements in the same order in each group.
  friend bool operator==(const Grouping& a, const Grouping& b) {
    if (a.size() != b.size()) return false;
    for (const auto& [key, elements] : a) {
      if (!std::ranges::equal(elements, b[key])) return false;
    }
    return true;
  }

 private:
  using Table = detail::FirstSeenTable<Key>;

  template <std::ranges::input_range Range, class KeyFunction>
  friend auto chunked(Range&& sequence, KeyFunction key);

  [[nodiscard]] Group group(std::size_t number) const {
    return {table_.keys()[number],
            std::span(elements_).subspan(starts_[number], starts_[number + 1] - starts_[number])};
  }

  /// Adds the elements of a random-access range.
  template <class Range, class KeyFunction>
  void fill(Range&& source, KeyFunction& key);

  Table table_;
  std::vector<Element, detail::UnsetAllocator<Element>> elements_;  // group by group
  std::vector<std::size_t> starts_;  // of each group, then the end of the last
};

/// Groups a sequence by a key of each element: a function, or a pointer to a member.
///
/// Computes the key of each element once, in order. Linear; any thread.
template <std::ranges::input_range Range, class KeyFunction>
auto chunked(Range&& sequence, KeyFunction key) {
  using Element = std::ranges::range_value_t<Range>;
  using Key = std::remove_cvref_t<
      std::invoke_result_t<KeyFunction&, std::ranges::range_reference_t<Range>>>;
  Grouping<Key, Element> grouping;
  if constexpr (std::ranges::random_access_range<Range> && std::ranges::sized_range<Range> &&
                std::is_lvalue_reference_v<std::ranges::range_reference_t<Range>>) {
    grouping.fill(sequence, key);
  } else {
    std::vector<Element> kept;
    for (auto&& element : sequence) kept.push_back(std::forward<decltype(element)>(element));
    grouping.fill(kept, key);
  }
  return grouping;
}

template <detail::Hashable Key, class Element>
template <class Range, class KeyFunction>
void Grouping<Key, Element>::fill(Range&& source, KeyFunction& key) {
  using Difference = std::ranges::range_difference_t<Range>;
  const auto first = std::ranges::begin(source);
  const auto count = static_cast<std::size_t>(std::ranges::size(source));
  const auto keyAt = [&](std::size_t index) -> decltype(auto) {
    return std::invoke(key, first[static_cast<Difference>(index)]);
  };
  const auto numbers = std::make_unique_for_overwrite<std::uint32_t[]>(count);
  std::vector<std::size_t> sizes;
  const auto put = [&](std::size_t index, std::uint32_t number) {
    if (number == sizes.size()) sizes.push_back(0);
    ++sizes[number];
    numbers[index] = number;
  };
  std::size_t index = 0;
  for (; index < count && !table_.isLarge(); ++index) {
    auto&& keyHere = keyAt(index);
    const std::uint32_t hash = table_.hashOf(keyHere);
    put(index, table_.insert(std::forward<decltype(keyHere)>(keyHere), hash));
  }
  std::vector<Key> keys;
  keys.reserve(detail::kLookUpBatch);
  std::uint32_t hashes[detail::kLookUpBatch];
  for (; index < count; index += keys.size()) {
    keys.clear();
    for (std::size_t i = 0; i < std::min(detail::kLookUpBatch, count - index); ++i) {
      keys.push_back(keyAt(index + i));
      hashes[i] = table_.hashOf(keys.back());
      table_.prefetch(hashes[i]);
    }
    for (std::size_t i = 0; i < keys.size(); ++i) {
      put(index + i, table_.insert(std::move(keys[i]), hashes[i]));
    }
  }

  starts_.resize(sizes.size() + 1);
  for (std::size_t number = 0; number < sizes.size(); ++number) {
    starts_[number + 1] = starts_[number] + sizes[number];
  }
  std::vector<std::size_t> next(starts_.begin(), starts_.end());
  if constexpr (std::is_trivially_copyable_v<Element> && std::default_initializable<Element>) {
    elements_.resize(count);
    for (std::size_t i = 0; i < count; ++i) {
      elements_[next[numbers[i]]++] = first[static_cast<Difference>(i)];
    }
  } else {
    std::vector<std::size_t> order(count);
    for (std::size_t i = 0; i < count; ++i) order[next[numbers[i]]++] = i;
    elements_.reserve(count);
    for (const std::size_t i : order) elements_.push_back(first[static_cast<Difference>(i)]);
  }
}

}  // namespace ombrix
