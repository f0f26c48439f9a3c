#pragma once

#include <array>
#include <cstddef>
#include <span>

#include "OmbrixCore/Location/CLLocation.hpp"
#include "OmbrixDay/Measuring/Day.hpp"

namespace ombrix::detail {

/// A fix as it was fed in.
struct FedFix {
  CLLocation fix;
  double heartRate = 0;  ///< beats per minute; 0 for none
};

/// Passes fixes on whose times only go forward, and counts the others.
///
/// A fix that follows the one before closely passes at once. One that jumps ahead, and the very
/// first one, waits until `kWitnesses` fixes follow each other after the jump; fixes whose time the
/// recording takes back before that are outliers. So neither a receiver that does not know the time
/// yet nor a few wrong times in the middle cost any other fix. After a jump of more than a day
/// `kFarWitnesses` fixes are required, or ten minutes.
class TimeSieve {
 public:
  static constexpr std::size_t kWitnesses = 8;
  static constexpr std::size_t kFarWitnesses = 64;
  static constexpr double kFarSeconds = 600;
  static constexpr double kLongestBreak = 24 * 3600;  ///< A longer one needs the far witnesses.

  explicit TimeSieve(FixCounts& counts) : counts_(counts) {}

  /// Takes a fix with a finite time. @return those that pass now, valid until the next call
  std::span<const FedFix> push(const FedFix& fed);

  /// After the last fix. @return those that still waited and pass
  std::span<const FedFix> drain();

 private:
  std::span<const FedFix> passOne(const FedFix& fed);
  std::span<const FedFix> passWaiting();
  void dropWaiting();
  [[nodiscard]] bool isWitnessed() const;

  FixCounts& counts_;
  std::array<FedFix, kFarWitnesses> waiting_;  ///< Each later than the one before it.
  std::size_t waitingCount_ = 0;
  bool hasPassed_ = false;
  double last_ = 0;  ///< Seconds since 1970 of the last one that passed,
  double step_ = 0;  ///< and since the one before it.
};

}  // namespace ombrix::detail
