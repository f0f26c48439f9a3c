#include "OmbrixPlatform/Measure/NSUnit.hpp"

#include <numbers>
#include <string>

namespace ombrix::platform {
namespace {

using Linear = NSUnitConverterLinear;

constexpr UnitDefinition kKilometers{"km", Linear(1000), "kilometer"};
constexpr UnitDefinition kMeters{"m", Linear(1), "meter"};
constexpr UnitDefinition kCentimeters{"cm", Linear(0.01), "centimeter"};
constexpr UnitDefinition kMillimeters{"mm", Linear(0.001), "millimeter"};
constexpr UnitDefinition kMiles{"mi", Linear(1609.34), "mile"};
constexpr UnitDefinition kYards{"yd", Linear(0.9144), "yard"};
constexpr UnitDefinition kFeet{"ft", Linear(0.3048), "foot"};
constexpr UnitDefinition kInches{"in", Linear(0.0254), "inch"};

constexpr UnitDefinition kMetersPerSecond{"m/s", Linear(1), "meter-per-second"};
constexpr UnitDefinition kKilometersPerHour{"km/h", Linear(0.277778), "kilometer-per-hour"};
constexpr UnitDefinition kMilesPerHour{"mph", Linear(0.44704), "mile-per-hour"};
constexpr UnitDefinition kKnots{"kn", Linear(0.514444), "knot"};

constexpr UnitDefinition kKilograms{"kg", Linear(1), "kilogram"};
constexpr UnitDefinition kGrams{"g", Linear(0.001), "gram"};
constexpr UnitDefinition kPounds{"lb", Linear(0.45359237), "pound"};
constexpr UnitDefinition kOunces{"oz", Linear(0.028349523125), "ounce"};
constexpr UnitDefinition kStones{"st", Linear(6.35029318), "stone"};

constexpr UnitDefinition kKelvin{"K", Linear(1), "kelvin"};
constexpr UnitDefinition kCelsius{"°C", Linear(1, 273.15), "celsius"};
constexpr UnitDefinition kFahrenheit{"°F", Linear(0.55555555555556, 255.37222222222427),
                                     "fahrenheit"};

constexpr UnitDefinition kKilojoules{"kJ", Linear(1000), "kilojoule"};
constexpr UnitDefinition kJoules{"J", Linear(1), "joule"};
constexpr UnitDefinition kKilocalories{"kCal", Linear(4184), "kilocalorie"};
constexpr UnitDefinition kCalories{"cal", Linear(4.184), "calorie"};
constexpr UnitDefinition kKilowattHours{"kWh", Linear(3'600'000), "kilowatt-hour"};

constexpr UnitDefinition kHertz{"Hz", Linear(1), "hertz"};
constexpr UnitDefinition kKilohertz{"kHz", Linear(1e3), "kilohertz"};
constexpr UnitDefinition kMegahertz{"MHz", Linear(1e6), "megahertz"};
constexpr UnitDefinition kGigahertz{"GHz", Linear(1e9), "gigahertz"};

constexpr UnitDefinition kDegrees{"°", Linear(1), "degree"};
constexpr UnitDefinition kArcMinutes{"ʹ", Linear(1.0 / 60), "arc-minute"};
constexpr UnitDefinition kArcSeconds{"ʺ", Linear(1.0 / 3600), "arc-second"};
constexpr UnitDefinition kRadians{"rad", Linear(180 / std::numbers::pi), "radian"};
constexpr UnitDefinition kRevolutions{"rev", Linear(360), "revolution"};

/// A definition that owns its symbol, kept alive by the units that share it.
struct OwnDefinition {
  OwnDefinition(std::string_view symbol, Linear converter)
      : text(symbol), definition{text, converter, {}} {}
  std::string text;
  UnitDefinition definition;
};

}  // namespace

NSDimension::NSDimension(std::string_view symbol, NSUnitConverterLinear converter) {
  auto own = std::make_shared<const OwnDefinition>(symbol, converter);
  const UnitDefinition* definition = &own->definition;
  definition_ = {std::move(own), definition};
}

NSUnitLength NSUnitLength::kilometers() noexcept { return NSUnitLength(kKilometers); }
NSUnitLength NSUnitLength::meters() noexcept { return NSUnitLength(kMeters); }
NSUnitLength NSUnitLength::centimeters() noexcept { return NSUnitLength(kCentimeters); }
NSUnitLength NSUnitLength::millimeters() noexcept { return NSUnitLength(kMillimeters); }
NSUnitLength NSUnitLength::miles() noexcept { return NSUnitLength(kMiles); }
NSUnitLength NSUnitLength::yards() noexcept { return NSUnitLength(kYards); }
NSUnitLength NSUnitLength::feet() noexcept { return NSUnitLength(kFeet); }
NSUnitLength NSUnitLength::inches() noexcept { return NSUnitLength(kInches); }

NSUnitSpeed NSUnitSpeed::metersPerSecond() noexcept { return NSUnitSpeed(kMetersPerSecond); }
NSUnitSpeed NSUnitSpeed::kilometersPerHour() noexcept { return NSUnitSpeed(kKilometersPerHour); }
NSUnitSpeed NSUnitSpeed::milesPerHour() noexcept { return NSUnitSpeed(kMilesPerHour); }
NSUnitSpeed NSUnitSpeed::knots() noexcept { return NSUnitSpeed(kKnots); }

NSUnitMass NSUnitMass::kilograms() noexcept { return NSUnitMass(kKilograms); }
NSUnitMass NSUnitMass::grams() noexcept { return NSUnitMass(kGrams); }
NSUnitMass NSUnitMass::pounds() noexcept { return NSUnitMass(kPounds); }
NSUnitMass NSUnitMass::ounces() noexcept { return NSUnitMass(kOunces); }
NSUnitMass NSUnitMass::stones() noexcept { return NSUnitMass(kStones); }

NSUnitTemperature NSUnitTemperature::kelvin() noexcept { return NSUnitTemperature(kKelvin); }
NSUnitTemperature NSUnitTemperature::celsius() noexcept { return NSUnitTemperature(kCelsius); }
NSUnitTemperature NSUnitTemperature::fahrenheit() noexcept {
  return NSUnitTemperature(kFahrenheit);
}

NSUnitEnergy NSUnitEnergy::kilojoules() noexcept { return NSUnitEnergy(kKilojoules); }
NSUnitEnergy NSUnitEnergy::joules() noexcept { return NSUnitEnergy(kJoules); }
NSUnitEnergy NSUnitEnergy::kilocalories() noexcept { return NSUnitEnergy(kKilocalories); }
NSUnitEnergy NSUnitEnergy::calories() noexcept { return NSUnitEnergy(kCalories); }
NSUnitEnergy NSUnitEnergy::kilowattHours() noexcept { return NSUnitEnergy(kKilowattHours); }

NSUnitFrequency NSUnitFrequency::hertz() noexcept { return NSUnitFrequency(kHertz); }
NSUnitFrequency NSUnitFrequency::kilohertz() noexcept { return NSUnitFrequency(kKilohertz); }
NSUnitFrequency NSUnitFrequency::megahertz() noexcept { return NSUnitFrequency(kMegahertz); }
NSUnitFrequency NSUnitFrequency::gigahertz() noexcept { return NSUnitFrequency(kGigahertz); }

NSUnitAngle NSUnitAngle::degrees() noexcept { return NSUnitAngle(kDegrees); }
NSUnitAngle NSUnitAngle::arcMinutes() noexcept { return NSUnitAngle(kArcMinutes); }
NSUnitAngle NSUnitAngle::arcSeconds() noexcept { return NSUnitAngle(kArcSeconds); }
NSUnitAngle NSUnitAngle::radians() noexcept { return NSUnitAngle(kRadians); }
NSUnitAngle NSUnitAngle::revolutions() noexcept { return NSUnitAngle(kRevolutions); }

}  // namespace ombrix::platform
