#pragma once

#include <variant>

#include "OmbrixPlatform/Measure/NSUnit.hpp"

namespace ombrix::platform {

/// A number in a unit.
template <class Unit>
struct Measurement {
  double value;
  Unit unit;

  /// The same quantity in another unit of the dimension. Between equal units the value stays as it
  /// is, to the last bit: a detour through the base unit would lose some.
  [[nodiscard]] Measurement converted(const Unit& to) const {
    if (to == unit) return *this;
    return {to.converter().value(unit.converter().baseUnitValue(value)), to};
  }

  /// Equal quantities: compared as they are in equal units, in the base unit otherwise.
  friend bool operator==(const Measurement& a, const Measurement& b) noexcept {
    if (a.unit == b.unit) return a.value == b.value;
    return a.unit.converter().baseUnitValue(a.value) == b.unit.converter().baseUnitValue(b.value);
  }
};

/// A measurement of any dimension; the closed set of them.
using AnyMeasurement =
    std::variant<Measurement<NSUnitLength>, Measurement<NSUnitSpeed>, Measurement<NSUnitMass>,
                 Measurement<NSUnitTemperature>, Measurement<NSUnitEnergy>,
                 Measurement<NSUnitFrequency>, Measurement<NSUnitAngle>>;

}  // namespace ombrix::platform
