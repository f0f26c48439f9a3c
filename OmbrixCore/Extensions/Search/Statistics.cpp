#include "OmbrixCore/Extensions/Search/Statistics.hpp"

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>

namespace ombrix {
namespace {

// For fewer values, partitioning a copy in the cache is faster than counting.
constexpr std::size_t kCountingThreshold = 2'048;
constexpr std::size_t kBucketBits = 11;

struct MiddlePair {
  std::int64_t lower;
  std::int64_t upper;
};

/// The values of ranks `lower` and `upper`, which are equal or adjacent; reorders `values`.
MiddlePair selectByPartition(std::span<std::int64_t> values, std::size_t lower, std::size_t upper) {
  const auto nth = values.begin() + static_cast<std::ptrdiff_t>(upper);
  std::nth_element(values.begin(), nth, values.end());
  return {lower == upper ? *nth : *std::max_element(values.begin(), nth), *nth};
}

/// The same without reordering: counts the values in buckets of equal width between the extremes,
/// then repeats with the bucket that holds the ranks. Each round narrows the width by 2^11.
MiddlePair select(std::span<const std::int64_t> values, std::size_t lower, std::size_t upper) {
  if (values.size() < kCountingThreshold) {
    std::vector<std::int64_t> copy(values.begin(), values.end());
    return selectByPartition(copy, lower, upper);
  }
  std::int64_t smallest = values[0];
  std::int64_t largest = values[0];
  for (const std::int64_t value : values) {
    smallest = value < smallest ? value : smallest;
    largest = value > largest ? value : largest;
  }
  if (smallest == largest) return {smallest, smallest};
  // Differences are computed modulo 2^64, where they are exact for any two values.
  const auto origin = static_cast<std::uint64_t>(smallest);
  const auto width = std::bit_width(static_cast<std::uint64_t>(largest) - origin);
  const auto shift = width > kBucketBits ? width - kBucketBits : 0;
  const auto bucketOf = [origin, shift](std::int64_t value) {
    return (static_cast<std::uint64_t>(value) - origin) >> shift;
  };
  std::array<std::size_t, std::size_t{1} << kBucketBits> counts{};
  for (const std::int64_t value : values) ++counts[bucketOf(value)];

  std::size_t below = 0;
  std::uint64_t bucket = 0;
  while (below + counts[bucket] <= lower) below += counts[bucket++];
  if (upper < below + counts[bucket]) {
    if (shift == 0) {
      const auto value = static_cast<std::int64_t>(origin + bucket);
      return {value, value};
    }
    std::vector<std::int64_t> inside;
    inside.reserve(counts[bucket]);
    for (const std::int64_t value : values) {
      if (bucketOf(value) == bucket) inside.push_back(value);
    }
    return select(inside, lower - below, upper - below);
  }
  // The two ranks are in different buckets.
  MiddlePair pair{smallest, largest};
  for (const std::int64_t value : values) {
    if (bucketOf(value) <= bucket) {
      pair.lower = std::max(pair.lower, value);
    } else {
      pair.upper = std::min(pair.upper, value);
    }
  }
  return pair;
}

}  // namespace

double median(std::span<const std::int64_t> values) {
  // Kept: no value has no median and stops the program, while the mean of nothing is 0. A median of
  // 0 would pass for a measured one; callers ask for emptiness first.
  if (values.empty()) platform::fatalError("The median of no values");
  const std::size_t middle = values.size() / 2;
  if (values.size() % 2 == 1) return static_cast<double>(select(values, middle, middle).upper);
  const MiddlePair pair = select(values, middle - 1, middle);
  std::int64_t sum = 0;
  if (__builtin_add_overflow(pair.lower, pair.upper, &sum)) {
    platform::fatalError("The sum of the two middle values overflows 64 bits");
  }
  return static_cast<double>(sum) * 0.5;
}

}  // namespace ombrix
