#pragma once

#include "OmbrixPlatform/Health/HKUnit.hpp"

namespace ombrix::platform {

/// A value and its unit. Any thread.
class HKQuantity {
 public:
  constexpr HKQuantity(HKUnit unit, double value) noexcept : unit_(unit), value_(value) {}

  [[nodiscard]] HKUnit unit() const noexcept { return unit_; }

  [[nodiscard]] bool isCompatible(HKUnit unit) const noexcept { return unit_.isCompatible(unit); }

  /// The value in another unit; unchanged in the quantity's own. Stops the program for a unit that
  /// is not compatible.
  [[nodiscard]] double doubleValue(HKUnit unit) const;

  /// Equal in unit and value.
  friend bool operator==(const HKQuantity&, const HKQuantity&) = default;

 private:
  HKUnit unit_;
  double value_;
};

}  // namespace ombrix::platform
