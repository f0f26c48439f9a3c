#include <OmbrixCore/Data/LocationCSVParser.hpp>
#include <OmbrixCore/Formatting/OmbrixMeasurementFormatter.hpp>
#include <OmbrixCore/Settings/OmbrixSettings.hpp>
#include <cstdio>
#include <string_view>

int main() {
  using namespace ombrix;
  OmbrixSettings::shared().registerCoreSettings();

  constexpr std::string_view kTrack =
      "1700000000.000000,46.500000,7.250000,1500.000000,0.0,12.000000,3.0,4.0\n"
      "1700000100.000000,46.510000,7.250000,1500.000000,0.0,12.000000,3.0,4.0\n";
  const auto fixes = LocationCSVParser().parse(kTrack);
  if (!fixes || fixes->size() != 2) return 1;

  OmbrixMeasurementFormatter formatter(OmbrixMeasurementFormatter::MeasurementFormat::distance);
  const auto text = formatter.string(distanceAlong(*fixes));
  std::puts(text ? text->c_str() : "no text");
  return text ? 0 : 1;
}
