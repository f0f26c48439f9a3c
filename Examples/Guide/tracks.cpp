#include <Ombrix/Tracks.hpp>
#include <cstdio>

using namespace ombrix;

int main(int, char** arguments) {
  const URL file = URL::fileURL(std::string(arguments[1]) + "/track.csv");
  {
    LocationCSVWriter writer(file);  // appends; what is written survives a crash
    for (int second = 0; second < 60; ++second) {
      CLLocation fix;
      fix.timestamp = dateSince1970(1'700'000'000 + second);
      fix.coordinate = {.latitude = 46.5 + second * 1e-4, .longitude = 7.25};
      fix.altitude = 1500;
      fix.speed = 11;
      fix.horizontalAccuracy = fix.verticalAccuracy = 4;
      writer.add(fix);
    }
  }
  const auto fixes = LocationCSVParser().parse(file);
  if (!fixes) return 1;  // why is in the log
  std::printf("%zu fixes, %.0f m\n", fixes->size(), distanceAlong(*fixes));

  const auto& [from, to] = std::pair(fixes->front().coordinate, fixes->back().coordinate);
  std::printf("course %.0f degrees\n", from.courseTo(to));
}
