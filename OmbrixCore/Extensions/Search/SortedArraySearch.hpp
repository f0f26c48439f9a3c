#pragma once

#include <cstddef>
#include <functional>
#include <ranges>

#include "OmbrixPlatform/Values/FatalError.hpp"

namespace ombrix {

/// The way a search walks: towards lower or towards higher indices.
enum class SortedArraySearchDirection { left, right };

/// The index beside the first element, walking away from `start`, that satisfies `predicate`, on
/// the side of `start`; the element at `start` itself is never tested.
///
/// @param array sorted by what the predicate looks at, for example fixes by time.
/// @param start from -1 (right) or 0 (left) up to one less than the count (right) or the count
///   (left); anything else stops the program.
/// @return the last index before the match, or the last one on that side when nothing matches;
///   `start` when there is nothing to test, or when the result would lie outside the array.
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
