#pragma once

#include <array>
#include <cstddef>
#include <optional>

#include "OmbrixDay/Filters/TimeSieve.hpp"
#include "OmbrixDay/Measuring/Day.hpp"

namespace ombrix::detail {

/// A fix that passed the sieve, with the sieve's corrections.
struct CleanFix {
  double time = 0;              ///< seconds since 1970
  double latitude = 0;          ///< degrees
  double longitude = 0;         ///< degrees
  double east = 0, north = 0;   ///< metres from the first fix, on a plane at its latitude
  double altitude = 0;          ///< metres, without spikes, steps taken out
  double recordedAltitude = 0;  ///< metres, without spikes, steps left in
  bool knowsAltitude = false;   ///< False: altitudes of the last fix that did, or 0.
  double speed = 0;             ///< m/s, without spikes
  double steadySpeed = 0;       ///< m/s, also without the jolts of several fixes of bad positions
  double heartRate = 0;         ///< beats per minute; 0 for none
};

/// Takes fixes, passes those on by which a day can be measured, and counts the others.
///
/// A fix is judged by up to three neighbours on either side, so fixes come out three later than
/// they went in. Positions far from the line through their neighbours are dropped; single altitudes
/// and speeds far from their neighbours' are replaced by their neighbours' values; a lasting jump
/// of the altitude, faster than a free fall, is subtracted from all later altitudes. A fix without
/// an altitude gets that of the last one that had it.
///
/// Source: Hampel's identifier (median and median absolute deviation of a moving window) on
/// residuals against a straight line whose slope is the median of the successive slopes.
class FixSieve {
 public:
  explicit FixSieve(FixCounts& counts) : counts_(counts) {}

  /// Takes a plausible fix, later than the one before.
  /// @return the fix that has now been judged and passed, if any
  std::optional<CleanFix> push(const FedFix& fed);

  /// After the last fix: the fixes that still wait, one for each call, then none.
  std::optional<CleanFix> drain();

 private:
  static constexpr std::size_t kReach = 3;
  static constexpr std::size_t kRing = 8;
  static_assert(2 * kReach + 1 <= kRing);

  CleanFix& at(std::size_t index) { return ring_[index % kRing]; }
  const CleanFix& at(std::size_t index) const { return ring_[index % kRing]; }
  std::optional<CleanFix> judge(std::size_t index);
  void findWindow(std::size_t index);
  [[nodiscard]] bool isOffTheLine(std::size_t index) const;
  void mendAltitude(std::size_t index);
  void mendSpeed(std::size_t index);
  void takeOutStep(std::size_t index);

  FixCounts& counts_;
  std::array<CleanFix, kRing> ring_;
  std::size_t oldest_ = 0;         ///< First index still in the ring as a neighbour.
  std::size_t next_ = 0;           ///< Next to be judged.
  std::size_t end_ = 0;            ///< One past the last one taken in.
  std::size_t from_ = 0, to_ = 0;  ///< The window around the fix that is being judged.
  double originLatitude_ = 0, originLongitude_ = 0;
  double metersPerDegreeEast_ = 0, metersPerDegreeNorth_ = 0;
  double stepOffset_ = 0;  ///< Sum of the altitude steps taken out so far.
  std::optional<double> lastAltitude_;
  bool hasOrigin_ = false;
};

}  // namespace ombrix::detail
