#pragma once

#include <variant>

#include "OmbrixPlatform/Measure/NSUnit.hpp"

namespace ombrix::platform {

/// A value and its unit.
template <class Unit>
struct Measurement {
  double value;
  Unit unit;

  /// The same quantity in another unit of the dimension. Between equal units the value stays
  /// exactly the same: converting through the base unit would lose bits.
  [[nodiscard]] Measurement converted(const Unit& to) const {
    if (to == unit) return *this;
    return {to.converter().value(unit.converter().baseUnitValue(value)), to};
  }

  /// Whether the quantities are equal; different units are compared in the base unit.
  friend bool operator==(const Measurement& a, const Measurement& b) noexcept {
    if (a.unit == b.unit) return a.value == b.value;
    return a.unit.converter().baseUnitValue(a.value) == b.unit.converter().baseUnitValue(b.value);
  }
};

/// A measurement of any of the dimensions.
using AnyMeasurement =
    std::variant<Measurement<NSUnitLength>, Measurement<NSUnitSpeed>, Measurement<NSUnitMass>,
                 Measurement<NSUnitTemperature>, Measurement<NSUnitEnergy>,
                 Measurement<NSUnitFrequency>, Measurement<NSUnitAngle>>;

}  // namespace ombrix::platform
