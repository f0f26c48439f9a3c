#include <Ombrix/Core.hpp>
#include <Ombrix/Day.hpp>
#include <cstdio>

using namespace ombrix;

int main() {
  // Expected outcomes are values. What is wrong with a file is in the log.
  if (!LocationCSVParser().parse(std::filesystem::path("/nowhere.csv"))) std::puts("no track");

  // A damaged file gives what could be read, and says what is wrong.
  const Track track = readTrack(bytesOf("<gpx><trk><trkseg><trkpt lat=\"46\" lon=\"7\">"
                                        "<time>2026-01-01T10:00:00Z</time></trkpt><trkpt"),
                                TrackFormat::gpx);
  std::printf("%zu fix: %s\n", track.fixes.size(), track.fault.c_str());

  // Everything thrown is an `Error`, whose text is a sentence.
  try {
    static_cast<void>(JSONDecoder().decode<GeoJSONGeometry>(bytesOf("{\"type\": \"Point\"")));
  } catch (const Error& error) {
    std::printf("%s\n", error.what());
  }

  // What the web service, or the way to it, refuses is an HTTPError.
  const HTTPError error = HTTPError::unauthorizedError();
  std::puts(OmbrixServerAPI::errorMessageForError(&error).c_str());
}
