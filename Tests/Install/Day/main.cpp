#include <OmbrixDay/Measuring/DayMeasurer.hpp>
#include <OmbrixTesting/ManualClock.hpp>
#include <cstdio>

/// Ten minutes straight down a slope are one run.
int main() {
  using namespace ombrix;
  testing::ManualClock clock;
  DayMeasurer measurer;
  for (int second = 0; second < 600; ++second) {
    CLLocation fix;
    fix.timestamp = clock.now();
    fix.coordinate = {.latitude = 46.5 - second * 1e-4, .longitude = 7.25};
    fix.altitude = 2500 - second * 2.0;
    fix.speed = 11;
    fix.horizontalAccuracy = fix.verticalAccuracy = 4;
    measurer.feed(fix);
    clock.advance(platform::TimeInterval(1));
  }
  measurer.finish();
  std::printf("%zu run\n", measurer.takeDay().totals.runs);
  return 0;
}
