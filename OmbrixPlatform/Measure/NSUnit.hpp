#pragma once

#include <memory>
#include <string_view>
#include <variant>

#include "OmbrixPlatform/Text/Locale.hpp"

namespace ombrix::platform {

/// A linear conversion from a unit to the base unit of its dimension: base = value · coefficient +
/// constant.
class NSUnitConverterLinear {
 public:
  constexpr explicit NSUnitConverterLinear(double coefficient, double constant = 0) noexcept
      : coefficient_(coefficient), constant_(constant) {}

  [[nodiscard]] constexpr double coefficient() const noexcept { return coefficient_; }
  [[nodiscard]] constexpr double constant() const noexcept { return constant_; }

  [[nodiscard]] constexpr double baseUnitValue(double value) const noexcept {
    return value * coefficient_ + constant_;
  }
  [[nodiscard]] constexpr double value(double baseUnitValue) const noexcept {
    return (baseUnitValue - constant_) / coefficient_;
  }

  friend constexpr bool operator==(const NSUnitConverterLinear&,
                                   const NSUnitConverterLinear&) = default;

 private:
  double coefficient_;
  double constant_;
};

/// The definition of a unit: its symbol, its conversion to the base unit and, for the units below
/// that Unicode's locale data names, that name ("kilometer-per-hour"; empty for a custom unit).
struct UnitDefinition {
  std::string_view symbol;
  NSUnitConverterLinear converter;
  std::string_view identifier;
};

/// The common part of the units of all dimensions. A unit is a small value: copies share one
/// immutable definition, so any thread may use any unit.
class NSDimension {
 public:
  [[nodiscard]] std::string_view symbol() const noexcept { return definition_->symbol; }
  [[nodiscard]] const NSUnitConverterLinear& converter() const noexcept {
    return definition_->converter;
  }
  /// The name in Unicode's locale data; empty for a unit that has none.
  [[nodiscard]] std::string_view identifier() const noexcept { return definition_->identifier; }

 protected:
  /// For definitions that live as long as the process.
  explicit NSDimension(const UnitDefinition& definition) noexcept
      : definition_(std::shared_ptr<void>(), &definition) {}
  NSDimension(std::string_view symbol, NSUnitConverterLinear converter);

  [[nodiscard]] bool isEqual(const NSDimension& other) const noexcept {
    return definition_ == other.definition_ ||
           (symbol() == other.symbol() && converter() == other.converter());
  }

 private:
  std::shared_ptr<const UnitDefinition> definition_;
};

/// Makes the units of a dimension comparable: by symbol and converter.
template <class Unit>
class NSDimensionOf : public NSDimension {
  friend Unit;
  NSDimensionOf() = delete;
  using NSDimension::NSDimension;

 public:
  friend bool operator==(const Unit& a, const Unit& b) noexcept {
    return static_cast<const NSDimensionOf&>(a).isEqual(b);
  }
};

/// Lengths; the base unit is the meter.
class NSUnitLength final : public NSDimensionOf<NSUnitLength> {
 public:
  /// A custom unit, in meters.
  NSUnitLength(std::string_view symbol, NSUnitConverterLinear converter)
      : NSDimensionOf(symbol, converter) {}

  static NSUnitLength kilometers() noexcept;
  static NSUnitLength meters() noexcept;
  static NSUnitLength centimeters() noexcept;
  static NSUnitLength millimeters() noexcept;
  static NSUnitLength miles() noexcept;
  static NSUnitLength yards() noexcept;
  static NSUnitLength feet() noexcept;
  static NSUnitLength inches() noexcept;
  static NSUnitLength baseUnit() noexcept { return meters(); }

 private:
  using NSDimensionOf::NSDimensionOf;
};

/// Speeds; the base unit is the meter per second.
class NSUnitSpeed final : public NSDimensionOf<NSUnitSpeed> {
 public:
  /// A custom unit, in meters per second.
  NSUnitSpeed(std::string_view symbol, NSUnitConverterLinear converter)
      : NSDimensionOf(symbol, converter) {}

  static NSUnitSpeed metersPerSecond() noexcept;
  static NSUnitSpeed kilometersPerHour() noexcept;
  static NSUnitSpeed milesPerHour() noexcept;
  static NSUnitSpeed knots() noexcept;
  static NSUnitSpeed baseUnit() noexcept { return metersPerSecond(); }

 private:
  using NSDimensionOf::NSDimensionOf;
};

/// Masses; the base unit is the kilogram.
class NSUnitMass final : public NSDimensionOf<NSUnitMass> {
 public:
  /// The kind of mass, which a locale's preference may depend on.
  enum class Usage { personWeight };

  /// A custom unit, in kilograms.
  NSUnitMass(std::string_view symbol, NSUnitConverterLinear converter)
      : NSDimensionOf(symbol, converter) {}

  static NSUnitMass kilograms() noexcept;
  static NSUnitMass grams() noexcept;
  static NSUnitMass pounds() noexcept;
  static NSUnitMass ounces() noexcept;
  static NSUnitMass stones() noexcept;
  static NSUnitMass baseUnit() noexcept { return kilograms(); }

  /// The unit that a locale prefers, by Unicode's locale data; pounds where that prefers stones and
  /// pounds together. Any thread.
  static NSUnitMass forLocale(const Locale& locale, Usage usage);

 private:
  using NSDimensionOf::NSDimensionOf;
};

/// Temperatures; the base unit is the kelvin.
class NSUnitTemperature final : public NSDimensionOf<NSUnitTemperature> {
 public:
  /// The kind of temperature, which a locale's preference may depend on.
  enum class Usage { weather };

  /// A custom unit, in kelvin.
  NSUnitTemperature(std::string_view symbol, NSUnitConverterLinear converter)
      : NSDimensionOf(symbol, converter) {}

  static NSUnitTemperature kelvin() noexcept;
  static NSUnitTemperature celsius() noexcept;
  static NSUnitTemperature fahrenheit() noexcept;
  static NSUnitTemperature baseUnit() noexcept { return kelvin(); }

  /// The unit that a locale prefers, by Unicode's locale data. Any thread.
  static NSUnitTemperature forLocale(const Locale& locale, Usage usage);

 private:
  using NSDimensionOf::NSDimensionOf;
};

/// Energies; the base unit is the joule.
class NSUnitEnergy final : public NSDimensionOf<NSUnitEnergy> {
 public:
  /// The kind of energy, which a locale's preference may depend on.
  enum class Usage { workout };

  /// A custom unit, in joules.
  NSUnitEnergy(std::string_view symbol, NSUnitConverterLinear converter)
      : NSDimensionOf(symbol, converter) {}

  static NSUnitEnergy kilojoules() noexcept;
  static NSUnitEnergy joules() noexcept;
  static NSUnitEnergy kilocalories() noexcept;
  static NSUnitEnergy calories() noexcept;
  static NSUnitEnergy kilowattHours() noexcept;
  static NSUnitEnergy baseUnit() noexcept { return joules(); }

  /// The unit that a locale prefers: kilocalories for a workout, in every locale. Any thread.
  static NSUnitEnergy forLocale(const Locale& locale, Usage usage);

 private:
  using NSDimensionOf::NSDimensionOf;
};

/// Frequencies; the base unit is the hertz.
class NSUnitFrequency final : public NSDimensionOf<NSUnitFrequency> {
 public:
  /// A custom unit, in hertz.
  NSUnitFrequency(std::string_view symbol, NSUnitConverterLinear converter)
      : NSDimensionOf(symbol, converter) {}

  static NSUnitFrequency hertz() noexcept;
  static NSUnitFrequency kilohertz() noexcept;
  static NSUnitFrequency megahertz() noexcept;
  static NSUnitFrequency gigahertz() noexcept;
  static NSUnitFrequency baseUnit() noexcept { return hertz(); }

 private:
  using NSDimensionOf::NSDimensionOf;
};

/// Angles; the base unit is the degree.
class NSUnitAngle final : public NSDimensionOf<NSUnitAngle> {
 public:
  /// A custom unit, in degrees.
  NSUnitAngle(std::string_view symbol, NSUnitConverterLinear converter)
      : NSDimensionOf(symbol, converter) {}

  static NSUnitAngle degrees() noexcept;
  static NSUnitAngle arcMinutes() noexcept;
  static NSUnitAngle arcSeconds() noexcept;
  static NSUnitAngle radians() noexcept;
  static NSUnitAngle revolutions() noexcept;
  static NSUnitAngle baseUnit() noexcept { return degrees(); }

 private:
  using NSDimensionOf::NSDimensionOf;
};

/// A unit of any dimension.
using AnyUnit = std::variant<NSUnitLength, NSUnitSpeed, NSUnitMass, NSUnitTemperature, NSUnitEnergy,
                             NSUnitFrequency, NSUnitAngle>;

}  // namespace ombrix::platform
