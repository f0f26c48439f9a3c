#include "Examples/HostApp/TrackFile.hpp"

#include <fmt/format.h>

#include <filesystem>
#include <memory>

#include "Examples/HostApp/Commands.hpp"
#include "Examples/HostApp/Terminal.hpp"
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
  // Written beside the target and renamed, so that a failure leaves an older file as it was.
  const std::string partial = path + ".partial";
  const std::shared_ptr<platform::OutputStream> stream =
      platform::OutputStream::withPath(partial, platform::OutputFileMode::replace);
  if (const auto opened = stream->open(); !opened) {
    throw CommandFailure(fmt::format("cannot write {}: {}", path, opened.error().what()));
  }
  try {
    LocationCSVWriter(stream).add(fixes);
    stream->close();
    if (const auto& late = stream->streamError()) throw *late;
    std::filesystem::rename(partial, path);
  } catch (...) {
    std::error_code ignored;
    std::filesystem::remove(partial, ignored);
    throw;
  }
}

}  // namespace ombrix::hostapp
