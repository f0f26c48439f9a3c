#include "Examples/HostApp/TrackFile.hpp"

#include <fmt/format.h>

#include "Examples/HostApp/Commands.hpp"
#include "Examples/HostApp/Terminal.hpp"
#include "Examples/HostApp/WholeFile.hpp"
#include "OmbrixCore/Data/LocationCSVParser.hpp"
#include "OmbrixCore/Data/LocationCSVWriter.hpp"

namespace ombrix::hostapp {

Track readTrack(const std::string& path) {
  const auto stream = platform::InputStream::withPath(path);
  if (const auto opened = stream->open(); !opened) throw CommandFailure(opened.error().what());

  Track track;
  bool brokeOff = false;
  {
    ProgressBar bar("Reading");
    const CSVParseObserver observer([&](const CSVParseProgress& progress) {
      track.skipped = progress.rowsSkipped;
      brokeOff = progress.brokeOff;
      bar.show(progress.bytesRead, progress.bytesTotal.value_or(0));
    });
    auto fixes = LocationCSVParser().parse(*stream, observer);
    if (!fixes) throw CommandFailure(fmt::format("cannot read {}", path));
    track.fixes = std::move(*fixes);
  }
  if (brokeOff) throw CommandFailure(fmt::format("reading {} broke off before its end", path));
  return track;
}

void writeTrack(const std::string& path, std::span<const CLLocation> fixes) {
  writeFile(path, [fixes](const auto& stream) { LocationCSVWriter(stream).add(fixes); });
}

}  // namespace ombrix::hostapp
