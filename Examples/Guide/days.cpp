#include <Ombrix/Day.hpp>
#include <cstdio>

using namespace ombrix;

int main() {
  // Ten minutes up, ten minutes down, as a file of another program would hold them.
  Track recorded{.name = "A morning"};
  for (int second = 0; second < 1200; ++second) {
    const int height = second < 600 ? second : 1200 - second;
    CLLocation fix;
    fix.timestamp = dateSince1970(1'700'000'000 + second);
    fix.coordinate = {.latitude = 46.5 + height * 3e-5, .longitude = 7.25};
    fix.altitude = 1500 + height;
    fix.horizontalAccuracy = fix.verticalAccuracy = 4;
    recorded.fixes.push_back(fix);
  }
  const std::string file = writeTrack(recorded, TrackFormat::gpx);

  const Track track = readTrack(bytesOf(file), trackFormatOfBytes(bytesOf(file)));
  if (!track.fault.empty()) std::puts(track.fault.c_str());
  DayMeasurer measurer;
  for (const CLLocation& fix : track.fixes) measurer.feed(fix);
  measurer.finish();
  const Day day = measurer.takeDay();
  std::printf("%s: %zu run, %zu lift, %.0f m down\n", track.name.c_str(), day.totals.runs,
              day.totals.lifts, day.totals.run.descentMeters);
}
