#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <utility>

#include "OmbrixDay/Filters/FixSieve.hpp"

namespace ombrix::detail {

/// Smooths the speeds of fixes according to their noise.
///
/// The noise is estimated from the second differences of the speeds. Quiet speeds (a receiver's
/// own) are fitted by a parabola over five fixes, which keeps the height of a peak (Savitzky and
/// Golay, 1964); noisy ones (differences of positions) are averaged over up to eleven. The steady
/// speed is the median of up to eleven if the fitted one is far from it and one of them jumps, so
/// that a receiver which corrects its position within some seconds causes no top speed. Fixes come
/// out five later than they went in.
class SpeedSmoother {
 public:
  /// @return the fix that is smooth now, if any
  std::optional<CleanFix> push(const CleanFix& fix);

  /// After the last fix: the fixes that still wait, one for each call, then none.
  std::optional<CleanFix> drain();

 private:
  static constexpr std::size_t kReach = 5;
  static constexpr std::size_t kRing = 16;

  const CleanFix& at(std::size_t index) const { return ring_[index % kRing]; }
  [[nodiscard]] CleanFix smooth(std::size_t index) const;
  [[nodiscard]] double fittedSpeed(std::size_t index) const;
  [[nodiscard]] bool isGradual(std::size_t from, std::size_t to) const;
  /// The first and the last of the fixes around one: at most this many on either side, and close to
  /// it.
  [[nodiscard]] std::pair<std::size_t, std::size_t> reach(std::size_t index,
                                                          std::size_t most) const;

  std::array<CleanFix, kRing> ring_;
  std::size_t next_ = 0, end_ = 0;
  double roughness_ = 0.3;  ///< Mean absolute second difference, m/s.
};

}  // namespace ombrix::detail
