#include <Ombrix/Formatting.hpp>
#include <cstdio>

using namespace ombrix;

int main() {
  OmbrixSettings::shared().registerCoreSettings();
  OmbrixSettings::shared().setMetricType("kilometers");

  OmbrixMeasurementFormatter distance(OmbrixMeasurementFormatter::MeasurementFormat::distance);
  std::puts(distance.string(12'345.6)->c_str());  // a number is in metres
  std::puts(distance.string(Measurement{3.0, NSUnitLength::miles()})->c_str());

  OmbrixSettings::shared().setMetricType("miles");
  std::puts(distance.string(12'345.6)->c_str());
  distance.setLocale(Locale("de_DE"));
  std::puts(distance.string(12'345.6)->c_str());

  OmbrixDurationFormatter duration(NSCalendarUnit::second);
  OmbrixTimerFormatter timer(NSCalendarUnit::second);
  std::printf("%s, %s\n", duration.string(3725.0)->c_str(), timer.string(3725.0)->c_str());
}
