#pragma once

#include <concepts>
#include <cstdint>
#include <limits>
#include <ranges>
#include <span>
#include <type_traits>
#include <utility>
#include <vector>

#include "OmbrixPlatform/Values/FatalError.hpp"

namespace ombrix {

/// A whole number that can be summed; not a truth value or a character.
template <class Value>
concept BinaryInteger =
    std::integral<Value> && !std::same_as<Value, bool> && !std::same_as<Value, char> &&
    !std::same_as<Value, wchar_t> && !std::same_as<Value, char8_t> &&
    !std::same_as<Value, char16_t> && !std::same_as<Value, char32_t>;

/// A range of values that start at zero and can be added.
template <class Range>
concept SummableRange =
    std::ranges::input_range<Range> && requires(std::ranges::range_value_t<Range> sum) {
      std::ranges::range_value_t<Range>(0);
      sum = sum + sum;
    };

/// The sum of the elements from left to right, in the element type; 0 for an empty range.
///
/// Stops the program if a sum of whole numbers overflows its type, even on the way. Any thread.
template <SummableRange Range>
std::ranges::range_value_t<Range> total(Range&& values) {
  using Value = std::ranges::range_value_t<Range>;
  Value sum(0);
  for (auto&& value : values) {
    if constexpr (BinaryInteger<Value>) {
      if (__builtin_add_overflow(sum, static_cast<Value>(value), &sum)) {
        platform::fatalError("A total overflows its type");
      }
    } else {
      sum = sum + value;
    }
  }
  return sum;
}

/// The mean of whole numbers; 0.0 for an empty range.
///
/// Stops the program like `total`, and when the total does not fit signed 64 bits. Any thread.
template <SummableRange Range>
  requires BinaryInteger<std::ranges::range_value_t<Range>> && std::ranges::forward_range<Range>
double average(Range&& values) {
  const auto count = std::ranges::distance(values);
  if (count == 0) return 0.0;
  const auto sum = total(values);
  if (!std::in_range<std::int64_t>(sum)) platform::fatalError("A total overflows 64 bits");
  return static_cast<double>(static_cast<std::int64_t>(sum)) / static_cast<double>(count);
}

/// The mean of floating-point values, in their type; 0 for an empty range. Any thread.
template <SummableRange Range>
  requires std::floating_point<std::ranges::range_value_t<Range>> &&
           std::ranges::forward_range<Range>
std::ranges::range_value_t<Range> average(Range&& values) {
  using Value = std::ranges::range_value_t<Range>;
  const auto count = std::ranges::distance(values);
  return count == 0 ? Value(0) : total(values) / static_cast<Value>(count);
}

/// The middle value, or half the sum of the two middle ones.
///
/// Linear even in the worst case; large inputs are not copied and sorted. Stops the program when
/// there is no value, or when the sum of the two middle ones overflows 64 bits. Any thread.
double median(std::span<const std::int64_t> values);

/// The same for any range of signed 64-bit integers.
template <std::ranges::input_range Range>
  requires std::same_as<std::ranges::range_value_t<Range>, std::int64_t> &&
           (!std::convertible_to<Range, std::span<const std::int64_t>>)
double median(Range&& values) {
  std::vector<std::int64_t> copy;
  for (const std::int64_t value : values) copy.push_back(value);
  return median(std::span<const std::int64_t>(copy));
}

}  // namespace ombrix
