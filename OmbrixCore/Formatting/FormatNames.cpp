#include "OmbrixCore/Formatting/FormatNames.hpp"

#include <vector>

#include "OmbrixCore/Formatting/NSUnit+Localized.hpp"

namespace ombrix {

using platform::AnyUnit;
using platform::NSUnitAngle;
using platform::NSUnitEnergy;
using platform::NSUnitFrequency;
using platform::NSUnitLength;
using platform::NSUnitMass;
using platform::NSUnitSpeed;
using platform::NSUnitTemperature;
using Format = OmbrixMeasurementFormatter::MeasurementFormat;
using UnitStyle = OmbrixMeasurementFormatter::UnitStyle;

std::span<const std::pair<std::string_view, Format>> measurementFormatNames() noexcept {
  static constexpr std::pair<std::string_view, Format> kNames[] = {
      {"speed", Format::speed},
      {"distance", Format::distance},
      {"altitude", Format::altitude},
      {"vertical", Format::vertical},
      {"altitudeChange", Format::altitudeChange},
      {"totalVertical", Format::totalVertical},
      {"seasonVertical", Format::seasonVertical},
      {"dailyVertical", Format::dailyVertical},
      {"weight", Format::weight},
      {"energy", Format::energy},
      {"heartRate", Format::heartRate},
      {"depth", Format::depth},
      {"temperature", Format::temperature},
      {"angle", Format::angle},
  };
  return kNames;
}

std::span<const std::pair<std::string_view, UnitStyle>> unitStyleNames() noexcept {
  static constexpr std::pair<std::string_view, UnitStyle> kNames[] = {
      {"valueOnly", UnitStyle::valueOnly},
      {"shortStyle", UnitStyle::shortStyle},
      {"mediumStyle", UnitStyle::mediumStyle},
      {"longStyle", UnitStyle::longStyle},
  };
  return kNames;
}

std::span<const std::pair<std::string_view, AnyUnit>> unitNames() {
  static const auto& names = [] -> auto& {
    const AnyUnit units[] = {
        NSUnitLength::kilometers(),     NSUnitLength::meters(),
        NSUnitLength::centimeters(),    NSUnitLength::millimeters(),
        NSUnitLength::miles(),          NSUnitLength::yards(),
        NSUnitLength::feet(),           NSUnitLength::inches(),
        NSUnitSpeed::metersPerSecond(), NSUnitSpeed::kilometersPerHour(),
        NSUnitSpeed::milesPerHour(),    NSUnitSpeed::knots(),
        NSUnitMass::kilograms(),        NSUnitMass::grams(),
        NSUnitMass::pounds(),           NSUnitMass::ounces(),
        NSUnitMass::stones(),           NSUnitTemperature::kelvin(),
        NSUnitTemperature::celsius(),   NSUnitTemperature::fahrenheit(),
        NSUnitEnergy::kilojoules(),     NSUnitEnergy::joules(),
        NSUnitEnergy::kilocalories(),   NSUnitEnergy::calories(),
        NSUnitEnergy::kilowattHours(),  NSUnitFrequency::hertz(),
        NSUnitFrequency::kilohertz(),   NSUnitFrequency::megahertz(),
        NSUnitFrequency::gigahertz(),   beatsPerMinute(),
        NSUnitAngle::degrees(),         NSUnitAngle::arcMinutes(),
        NSUnitAngle::arcSeconds(),      NSUnitAngle::radians(),
        NSUnitAngle::revolutions(),
    };
    auto& all = *new std::vector<std::pair<std::string_view, AnyUnit>>;
    for (const AnyUnit& unit : units) {
      const auto name = std::visit([](const auto& known) { return known.identifier(); }, unit);
      all.emplace_back(name.empty() ? "beat-per-minute" : name, unit);
    }
    return all;
  }();
  return names;
}

}  // namespace ombrix
