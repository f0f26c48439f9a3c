#pragma once

#include <memory>
#include <string_view>
#include <variant>

#include "OmbrixPlatform/Text/Locale.hpp"

namespace ombrix::platform {

/// A linear way from a unit to the base unit of its dimension: base = value · coefficient +
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

/// What a unit is: its symbol, its way to the base unit and, for the units below that Unicode's
/// locale data names, that name ("kilometer-per-hour"; empty for a unit of one's own).
struct UnitDefinition {
  std::string_view symbol;
  NSUnitConverterLinear converter;
  std::string_view identifier;
};

/// What the units of all dimensions share. A unit is a small value: copies share one immutable
/// definition, so any thread may use any unit.
class NSDimension {
 public:
  [[nodiscard]] std::string_view symbol() const noexcept { return definition_->symbol; }
  [[nodiscard]] const NSUnitConverterLinear& converter() const noexcept {
    return definition_->converter;
  }
  /// The name in Unicode's locale data, or empty for a unit that has none.
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

/// Gives a dimension's units equality among themselves: by symbol and converter.
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
  /// A unit of one's own, in meters.
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
  /// A unit of one's own, in meters per second.
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
  /// What the mass is of, where a locale's preference depends on it.
  enum class Usage { personWeight };

  /// A unit of one's own, in kilograms.
  NSUnitMass(std::string_view symbol, NSUnitConverterLinear converter)
      : NSDimensionOf(symbol, converter) {}

  static NSUnitMass kilograms() noexcept;
  static NSUnitMass grams() noexcept;
  static NSUnitMass pounds() noexcept;
  static NSUnitMass ounces() noexcept;
  static NSUnitMass stones() noexcept;
  static NSUnitMass baseUnit() noexcept { return kilograms(); }

  /// The unit that a locale prefers, as Unicode's locale data has it; where that is stones and
  /// pounds together, pounds. Any thread.
  static NSUnitMass forLocale(const Locale& locale, Usage usage);

 private:
  using NSDimensionOf::NSDimensionOf;
};

/// Temperatures; the base unit is the kelvin.
class NSUnitTemperature final : public NSDimensionOf<NSUnitTemperature> {
 public:
  /// What the temperature is of, where a locale's preference depends on it.
  enum class Usage { weather };

  /// A unit of one's own, in kelvin.
  NSUnitTemperature(std::string_view symbol, NSUnitConverterLinear converter)
      : NSDimensionOf(symbol, converter) {}

  static NSUnitTemperature kelvin() noexcept;
  static NSUnitTemperature celsius() noexcept;
  static NSUnitTemperature fahrenheit() noexcept;
  static NSUnitTemperature baseUnit() noexcept { return kelvin(); }

  /// The unit that a locale prefers, as Unicode's locale data has it. Any thread.
  static NSUnitTemperature forLocale(const Locale& locale, Usage usage);

 private:
  using NSDimensionOf::NSDimensionOf;
};

/// Energies; the base unit is the joule.
class NSUnitEnergy final : public NSDimensionOf<NSUnitEnergy> {
 public:
  /// What the energy is of, where a locale's preference depends on it.
  enum class Usage { workout };

  /// A unit of one's own, in joules.
  NSUnitEnergy(std::string_view symbol, NSUnitConverterLinear converter)
      : NSDimensionOf(symbol, converter) {}

  static NSUnitEnergy kilojoules() noexcept;
  static NSUnitEnergy joules() noexcept;
  static NSUnitEnergy kilocalories() noexcept;
  static NSUnitEnergy calories() noexcept;
  static NSUnitEnergy kilowattHours() noexcept;
  static NSUnitEnergy baseUnit() noexcept { return joules(); }

  /// The unit that a locale prefers: kilocalories for a workout, everywhere. Any thread.
  static NSUnitEnergy forLocale(const Locale& locale, Usage usage);

 private:
  using NSDimensionOf::NSDimensionOf;
};

/// Frequencies; the base unit is the hertz.
class NSUnitFrequency final : public NSDimensionOf<NSUnitFrequency> {
 public:
  /// A unit of one's own, in hertz.
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
  /// A unit of one's own, in degrees.
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
