#pragma once

namespace ombrix {

/// Stateless estimates.
class Math {
 public:
  Math() = delete;

  /// The kilocalories that a skier burns.
  ///
  /// @param weight kilograms.
  /// @param overTime seconds.
  /// @return (pounds x 3.411 - 41.178) for each hour; negative for a weight below some 5.5 kg.
  ///
  /// Any thread.
  static double caloriesBurnedForUserWithWeight(double weight, double overTime);
};

}  // namespace ombrix
