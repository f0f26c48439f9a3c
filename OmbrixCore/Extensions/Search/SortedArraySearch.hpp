#pragma once

#include <cstddef>
#include <functional>
#include <ranges>

#include "OmbrixPlatform/Values/FatalError.hpp"

namespace ombrix {

/// The direction of a search: towards lower or higher indices.
enum class SortedArraySearchDirection { left, right };

/// Searches from `start` for the first element that satisfies `predicate` and returns the index
/// just before it, on the side of `start`; never tests the element at `start` itself.
///
/// @param array sorted by the property that the predicate tests, for example fixes by time.
/// @param start from -1 (right) or 0 (left) up to one less than the count (right) or the count
///   (left); any other value stops the program.
/// @return the last index before the match, or the last one in that direction when none matches;
///   `start` when there is nothing to test, or when the result would be outside the array.
///
/// Elements are tested one by one, each once, so the predicate may hold state. Any thread.
template <std::ranges::random_access_range Range, class Predicate>
  requires std::ranges::sized_range<Range> &&
           std::predicate<Predicate&, std::ranges::range_reference_t<Range>>
std::ptrdiff_t findClosestMatchInSortedArray(Range&& array, Predicate predicate,
                                             std::ptrdiff_t start,
                                             SortedArraySearchDirection direction) {
  const auto count = static_cast<std::ptrdiff_t>(std::ranges::size(array));
  const auto matches = [&](std::ptrdiff_t index) -> bool {
    return std::invoke(predicate, std::ranges::begin(array)[index]);
  };
  // Kept: a result outside the array gives `start` back, even when that is the count itself (left)
  // or -1 (right). Callers tell "nothing found beyond the end" by it.
  const auto inside = [&](std::ptrdiff_t candidate) {
    return candidate >= 0 && candidate < count ? candidate : start;
  };
  if (direction == SortedArraySearchDirection::right) {
    if (start < -1 || start >= count) platform::fatalError("Search starts outside the array");
    for (std::ptrdiff_t index = start + 1; index < count; ++index) {
      if (matches(index)) return inside(index - 1);
    }
    return inside(count - 1);
  }
  if (start < 0 || start > count) platform::fatalError("Search starts outside the array");
  for (std::ptrdiff_t index = start - 1; index >= 0; --index) {
    if (matches(index)) return inside(index + 1);
  }
  return inside(0);
}

}  // namespace ombrix
