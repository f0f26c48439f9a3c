#pragma once

#include <algorithm>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <ranges>
#include <span>
#include <type_traits>
#include <utility>
#include <vector>

#include "OmbrixCore/Extensions/Search/FirstSeenTable.hpp"

namespace ombrix {
namespace detail {

/// `unique` with one bit for every number between the extremes; false when their distance is too
/// large for the number of values.
template <std::integral Value>
bool uniqueByBits(std::span<const Value> values, std::vector<Value>& result) {
  constexpr std::size_t kFewest = 64;
  constexpr std::size_t kBitsPerValue = 16;
  if (values.size() < kFewest) return false;
  // Not std::ranges::minmax: it branches on each pair, which is slow for random values.
  Value smallest = values[0];
  Value largest = values[0];
  for (const Value value : values) {
    smallest = value < smallest ? value : smallest;
    largest = value > largest ? value : largest;
  }
  // Exact modulo 2^64 for any two values.
  const auto origin = static_cast<std::uint64_t>(smallest);
  const std::uint64_t width = static_cast<std::uint64_t>(largest) - origin;
  if (width >= values.size() * kBitsPerValue) return false;
  std::vector<std::uint64_t> seen(width / 64 + 1);
  for (const Value value : values) {
    const std::uint64_t offset = static_cast<std::uint64_t>(value) - origin;
    std::uint64_t& word = seen[offset / 64];
    const std::uint64_t bit = std::uint64_t{1} << (offset % 64);
    if ((word & bit) == 0) result.push_back(value);
    word |= bit;
  }
  return true;
}

}  // namespace detail

/// The elements of a range without duplicates, in the order of their first occurrence.
///
/// Keeps all values that are not equal to themselves. Linear; any thread.
template <std::ranges::input_range Range>
  requires detail::Hashable<std::ranges::range_value_t<Range>>
std::vector<std::ranges::range_value_t<Range>> unique(Range&& values) {
  using Value = std::ranges::range_value_t<Range>;
  detail::FirstSeenTable<Value> table;
  if constexpr (std::ranges::contiguous_range<Range> && std::ranges::sized_range<Range>) {
    const std::span<const Value> span(std::ranges::data(values), std::ranges::size(values));
    if constexpr (std::integral<Value>) {
      std::vector<Value> result;
      if (detail::uniqueByBits(span, result)) return result;
    }
    std::uint32_t hashes[detail::kLookUpBatch];
    std::size_t start = 0;
    for (; start < span.size() && !table.isLarge(); ++start) {
      table.insert(span[start], table.hashOf(span[start]));
    }
    for (; start < span.size(); start += detail::kLookUpBatch) {
      const auto batch = span.subspan(start, std::min(detail::kLookUpBatch, span.size() - start));
      for (std::size_t i = 0; i < batch.size(); ++i) {
        hashes[i] = table.hashOf(batch[i]);
        table.prefetch(hashes[i]);
      }
      for (std::size_t i = 0; i < batch.size(); ++i) table.insert(batch[i], hashes[i]);
    }
  } else {
    for (auto&& value : values) {
      const std::uint32_t hash = table.hashOf(value);
      table.insert(std::forward<decltype(value)>(value), hash);
    }
  }
  return std::move(table).takeKeys();
}

}  // namespace ombrix
