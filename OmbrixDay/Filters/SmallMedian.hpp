#pragma once

#include <array>
#include <cstddef>
#include <utility>

namespace ombrix::detail {

/// The median of a handful of numbers, the mean of the middle two for an even count.
///
/// @tparam Most Room; `add` beyond it is ignored.
template <std::size_t Most>
class SmallMedian {
 public:
  void add(double value) {
    if (size_ == Most) return;
    std::size_t at = size_++;
    for (; at > 0 && sorted_[at - 1] > value; --at) sorted_[at] = sorted_[at - 1];
    sorted_[at] = value;
  }

  [[nodiscard]] std::size_t size() const { return size_; }

  /// 0 for no numbers.
  [[nodiscard]] double median() const {
    if (size_ == 0) return 0;
    const std::size_t middle = size_ / 2;
    return size_ % 2 == 1 ? sorted_[middle] : (sorted_[middle - 1] + sorted_[middle]) / 2;
  }

 private:
  std::array<double, Most> sorted_;
  std::size_t size_ = 0;
};

}  // namespace ombrix::detail
