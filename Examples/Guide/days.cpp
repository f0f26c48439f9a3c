#include <Ombrix/Day.hpp>
#include <cstdio>

using namespace ombrix;

int main() {
  // Twenty minutes on a lift, ten down the slope, as a file of another program would hold them.
  Track recorded{.name = "A morning"};
  for (int second = 0; second < 1800; ++second) {
    const int metres = second < 1200 ? second : 1200 - 2 * (second - 1200);  // above the valley
    CLLocation fix;
    fix.timestamp = dateSince1970(1'700'000'000 + second);
    fix.coordinate = {.latitude = 46.5 + metres * 5e-5, .longitude = 7.25};
    fix.altitude = 1500 + metres;
    recorded.fixes.push_back(fix);
  }
  const std::string file = writeTrack(recorded, TrackFormat::gpx);

  Track track = readTrack(bytesOf(file), trackFormatOfBytes(bytesOf(file)));
  if (!track.fault.empty()) std::puts(track.fault.c_str());
  sortByTime(track.fixes);           // files hold fixes in any order,
  deriveMissingMotion(track.fixes);  // and many of them no speeds
  DayMeasurer measurer;
  for (const CLLocation& fix : track.fixes) measurer.feed(fix);
  measurer.finish();
  const Day day = measurer.takeDay();
  std::printf("%s: %zu run, %zu lift, %.0f m down\n", track.name.c_str(), day.totals.runs,
              day.totals.lifts, day.totals.run.descentMeters);
}
