#include "OmbrixC/OmbrixUnits.h"

#include <algorithm>
#include <limits>
#include <string>
#include <utility>

#include "OmbrixC/Detail/Copies.hpp"
#include "OmbrixC/Detail/Units.hpp"
#include "OmbrixCore/Formatting/FormatNames.hpp"
#include "OmbrixCore/Formatting/NSUnit+Localized.hpp"
#include "OmbrixPlatform/Measure/Measurement.hpp"
#include "OmbrixPlatform/Values/FatalError.hpp"

namespace ombrix::c {

using platform::AnyUnit;
using NamedUnit = std::pair<std::string_view, AnyUnit>;

AnyUnit from(OmbrixUnit unit) {
  const auto index = static_cast<std::size_t>(unit);
  if (index >= unitNames().size()) {
    platform::fatalError("unexpected enum case 'OmbrixUnit(rawValue: " + std::to_string(index) +
                         ")'");
  }
  return unitNames()[index].second;
}

OmbrixUnit toC(const AnyUnit& unit) {
  const auto names = unitNames();
  const auto known = std::ranges::find(names, unit, &NamedUnit::second);
  if (known == names.end()) platform::fatalError("a unit that has no OmbrixUnit");
  return static_cast<OmbrixUnit>(known - names.begin());
}

}  // namespace ombrix::c

using ombrix::localized;
using ombrix::c::from;
using ombrix::c::textFrom;
using ombrix::c::toC;
namespace platform = ombrix::platform;

char* ombrix_NSUnit_symbol(OmbrixUnit self) {
  return std::visit([](const auto& unit) { return ombrix::c::copied(unit.symbol()); }, from(self));
}

double ombrix_NSMeasurement_valueByConvertingToUnit_(double value, OmbrixUnit unit, OmbrixUnit to) {
  return std::visit(
      [value]<class From, class To>(const From& source, const To& target) {
        if constexpr (std::is_same_v<From, To>) {
          return platform::Measurement<From>{value, source}.converted(target).value;
        } else {
          return std::numeric_limits<double>::quiet_NaN();
        }
      },
      from(unit), from(to));
}

OmbrixUnit ombrix_NSUnitLength_localizedForMeasurement_(OmbrixSkiMeasurement measurement) {
  return toC(localized(static_cast<ombrix::SkiMeasurement>(measurement)));
}
OmbrixUnit ombrix_NSUnitLength_localizedForMeasurement_inPreference_(
    OmbrixSkiMeasurement measurement, const char* preference) {
  return toC(localized(static_cast<ombrix::SkiMeasurement>(measurement), textFrom(preference)));
}

OmbrixUnit ombrix_NSUnitSpeed_localized() { return toC(localized<platform::NSUnitSpeed>()); }
OmbrixUnit ombrix_NSUnitSpeed_localizedInMetric_(const char* preference) {
  return toC(localized<platform::NSUnitSpeed>(textFrom(preference)));
}

OmbrixUnit ombrix_NSUnitMass_localized() { return toC(localized<platform::NSUnitMass>()); }
OmbrixUnit ombrix_NSUnitMass_localizedInMetric_(const char* preference) {
  return toC(localized<platform::NSUnitMass>(textFrom(preference)));
}

OmbrixUnit ombrix_NSUnitTemperature_localized() {
  return toC(localized<platform::NSUnitTemperature>());
}
OmbrixUnit ombrix_NSUnitTemperature_localizedInMetric_(const char* preference) {
  return toC(localized<platform::NSUnitTemperature>(textFrom(preference)));
}

OmbrixUnit ombrix_NSUnitEnergy_localized() { return toC(localized<platform::NSUnitEnergy>()); }
OmbrixUnit ombrix_NSUnitEnergy_localizedInMetric_(const char* preference) {
  return toC(localized<platform::NSUnitEnergy>(textFrom(preference)));
}

OmbrixUnit ombrix_NSUnitFrequency_localized() {
  return toC(localized<platform::NSUnitFrequency>());
}
OmbrixUnit ombrix_NSUnitFrequency_localizedInMetric_(const char* preference) {
  return toC(localized<platform::NSUnitFrequency>(textFrom(preference)));
}
OmbrixUnit ombrix_NSUnitFrequency_beatsPerMinute() { return toC(ombrix::beatsPerMinute()); }
