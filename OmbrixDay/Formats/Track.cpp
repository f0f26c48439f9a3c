#include "OmbrixDay/Formats/Track.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <iterator>
#include <memory>
#include <new>

#include "OmbrixCore/Data/LocationCSVParser.hpp"
#include "OmbrixCore/Data/LocationCSVWriter.hpp"
#include "OmbrixDay/Formats/Detail/TrackFormats.hpp"
#include "OmbrixPlatform/Coding/JSON.hpp"
#include "OmbrixPlatform/Coding/XMLReader.hpp"
#include "OmbrixPlatform/Csv/NumberText.hpp"
#include "OmbrixPlatform/Files/InputStream.hpp"
#include "OmbrixPlatform/Files/OutputStream.hpp"

namespace ombrix {
namespace {

struct Ending {
  std::string_view text;
  TrackFormat format;
};
constexpr Ending kEndings[] = {
    {".csv", TrackFormat::csv},         {".gpx", TrackFormat::gpx},      {".tcx", TrackFormat::tcx},
    {".geojson", TrackFormat::geoJSON}, {".json", TrackFormat::geoJSON}, {".fit", TrackFormat::fit},
};

/// The kinds of a track's last row if no line end follows it.
enum class LastRow { whole, cut, cutInItsLastNumber };

LastRow lastRow(std::string_view row) {
  const auto decimals = [](std::string_view number) {
    const std::size_t point = number.find('.');
    return point == number.npos ? 0 : number.size() - point - 1;
  };
  constexpr std::size_t kWritersDecimals[] = {6, 6, 6, 6, 1, 6, 1, 1};
  constexpr std::size_t kColumns = std::size(kWritersDecimals);
  if (row.find('"') != row.npos) return LastRow::whole;
  std::size_t likeWriters = 0;
  for (std::size_t column = 0; column < kColumns; ++column) {
    if (column > 0 && row.empty()) return LastRow::cut;
    if (column > 0) row.remove_prefix(1);
    const std::string_view field = row.substr(0, row.find(','));
    row.remove_prefix(field.size());
    if (!platform::doubleFromText(field)) return LastRow::cut;
    if (likeWriters == column && decimals(field) == kWritersDecimals[column]) ++likeWriters;
  }
  // A row in our own writer's form shows whether it is complete.
  const bool isCut = row.empty() && likeWriters == kColumns - 1;
  return isCut ? LastRow::cutInItsLastNumber : LastRow::whole;
}

constexpr std::size_t kTailBytes = 1024;

std::string_view tailOf(std::string_view text) {
  return text.substr(text.size() - std::min(text.size(), kTailBytes));
}

/// Passes a stream on and keeps its last bytes.
class TailStream final : public platform::InputStream {
 public:
  explicit TailStream(platform::InputStream& source) : source_(source) {
    setStatus(source.streamStatus());
  }
  platform::FileResult<void> open() override {
    auto opened = source_.open();
    setStatus(source_.streamStatus());
    return opened;
  }
  void close() noexcept override { source_.close(); }
  platform::FileResult<std::size_t> read(std::span<std::byte> buffer) override {
    const auto count = source_.read(buffer);
    if (!count) return fail(count.error());
    keep(platform::textOf(buffer.first(*count)));
    return count;
  }
  [[nodiscard]] int fileDescriptor() const noexcept override { return source_.fileDescriptor(); }
  [[nodiscard]] const std::string& tail() const noexcept { return tail_; }

 private:
  void keep(std::string_view bytes) {
    tail_ += tailOf(bytes);
    tail_.erase(0, tail_.size() - tailOf(tail_).size());
  }

  platform::InputStream& source_;
  std::string tail_;
};

/// @param tail Gives the last bytes, once all is read.
/// @param hasFailed Says whether it was the source that failed; else memory was short.
template <class Source, class Tail, class HasFailed>
void readCSV(Source&& source, Tail tail, HasFailed hasFailed, Track& track) {
  bool brokeOff = false;
  const CSVParseObserver observer([&](const CSVParseProgress& progress) {
    track.skipped = progress.rowsSkipped;
    brokeOff = progress.brokeOff;
  });
  auto fixes = LocationCSVParser().parse(source, observer);
  if (fixes) track.fixes = *std::move(fixes);
  if (!fixes || brokeOff) {
    if (!hasFailed()) throw std::bad_alloc();
    throw TrackFormatError("reading stopped before its end");
  }
  const std::string_view end = tail();
  const std::size_t line = end.find_last_of("\r\n") + 1;  // 0 for none
  // Of a row that is longer nothing is said, but that it ends in zeros no disk has written.
  const bool isUnended =
      line < end.size() && (line > 0 || end.size() < kTailBytes || end.back() == '\0');
  const LastRow last = isUnended ? lastRow(end.substr(line)) : LastRow::whole;
  if (last == LastRow::cutInItsLastNumber && !track.fixes.empty()) {
    track.fixes.pop_back();
    ++track.skipped;
  }
  if (track.fixes.empty() && track.skipped > 0) throw TrackFormatError("no row is a fix");
  if (last != LastRow::whole) throw TrackFormatError("it is cut off");
}

std::string writeCSV(const Track& track) {
  const std::shared_ptr<platform::OutputStream> stream = platform::OutputStream::toMemory();
  LocationCSVWriter writer(stream);
  for (CLLocation fix : track.fixes) {
    if (!detail::isWritable(fix)) continue;
    // A number that is not finite has no text, and a row without it would be no fix.
    for (double* figure :
         {&fix.speed, &fix.course, &fix.horizontalAccuracy, &fix.verticalAccuracy}) {
      if (!std::isfinite(*figure)) *figure = -1;
    }
    writer.add(fix);
  }
  const platform::DataView data = *stream->data();
  return {reinterpret_cast<const char*>(data.data()), data.size()};
}

void readUnnamed(platform::DataView bytes, TrackFormat format, Track& track) {
  switch (format) {
    case TrackFormat::csv:
      return readCSV(
          bytes, [bytes] { return tailOf(platform::textOf(bytes)); }, [] { return false; }, track);
    case TrackFormat::gpx:
      return detail::readGPX(bytes, track);
    case TrackFormat::tcx:
      return detail::readTCX(bytes, track);
    case TrackFormat::geoJSON:
      return detail::readGeoJSON(bytes, track);
    case TrackFormat::fit:
      break;
  }
  return detail::readFIT(bytes, track);
}

}  // namespace

std::string_view nameOf(TrackFormat format) {
  switch (format) {
    case TrackFormat::csv:
      return "CSV";
    case TrackFormat::gpx:
      return "GPX";
    case TrackFormat::tcx:
      return "TCX";
    case TrackFormat::geoJSON:
      return "GeoJSON";
    case TrackFormat::fit:
      break;
  }
  return "FIT";
}

std::optional<TrackFormat> trackFormatOfFile(std::string_view name) {
  const auto sameLetter = [](char a, char b) {
    return (a >= 'A' && a <= 'Z' ? static_cast<char>(a + ('a' - 'A')) : a) == b;
  };
  for (const Ending& ending : kEndings) {
    if (name.size() < ending.text.size()) continue;
    if (std::ranges::equal(name.substr(name.size() - ending.text.size()), ending.text,
                           sameLetter)) {
      return ending.format;
    }
  }
  return std::nullopt;
}

TrackFormat trackFormatOfBytes(platform::DataView bytes) {
  constexpr std::size_t kHeadBytes = 4096;
  const std::string_view text = platform::textOf(bytes);
  if (text.size() >= 12 && text.substr(8, 4) == ".FIT") return TrackFormat::fit;
  const auto first = text.find_first_not_of("\xEF\xBB\xBF \t\r\n");
  if (first == text.npos) return TrackFormat::csv;
  if (text[first] == '{') return TrackFormat::geoJSON;
  if (text[first] != '<') return TrackFormat::csv;
  const bool isTCX = text.substr(0, kHeadBytes).find("<TrainingCenterDatabase") != text.npos;
  return isTCX ? TrackFormat::tcx : TrackFormat::gpx;
}

namespace {

TrackFormatError noTrack(TrackFormat format, std::string_view why) {
  return TrackFormatError(fmt::format("This is not a {} track: {}.", nameOf(format), why));
}

/// What a reader leaves in the track when it is done, or when it comes no further.
template <class Read>
Track readAsFarAsItGoes(TrackFormat format, Read read) {
  Track track;
  const auto isEmpty = [&track] { return track.fixes.empty() && track.heartRates.empty(); };
  try {
    read(track);
  } catch (const platform::Error& error) {
    if (isEmpty()) throw noTrack(format, error.what());
    track.fault = error.what();
  } catch (const std::bad_alloc&) {
    if (isEmpty()) throw TrackFormatError("There is not memory enough to read the track.");
    track.fault = "there is not memory enough";
  }
  if (!track.breaks.empty() && track.breaks.back() >= track.fixes.size()) track.breaks.pop_back();
  return track;
}

}  // namespace

Track readTrack(platform::DataView bytes, TrackFormat format) {
  if (bytes.size() > kMostTrackBytes) throw noTrack(format, "it is larger than 1 GiB");
  return readAsFarAsItGoes(format, [&](Track& track) { readUnnamed(bytes, format, track); });
}

Track readCSVTrack(platform::InputStream& stream) {
  TailStream source(stream);
  return readAsFarAsItGoes(TrackFormat::csv, [&](Track& track) {
    readCSV(
        static_cast<platform::InputStream&>(source),
        [&]() -> std::string_view { return source.tail(); },
        [&] { return source.streamError().has_value(); }, track);
  });
}

std::string writeTrack(const Track& track, TrackFormat format) {
  switch (format) {
    case TrackFormat::csv:
      return writeCSV(track);
    case TrackFormat::gpx:
      return detail::writeGPX(track);
    case TrackFormat::tcx:
      return detail::writeTCX(track);
    case TrackFormat::geoJSON:
      return detail::writeGeoJSON(track);
    case TrackFormat::fit:
      break;
  }
  throw TrackFormatError("FIT files are read, not written.");
}

std::string convertTrack(platform::DataView bytes, TrackFormat from, TrackFormat to) {
  return writeTrack(readTrack(bytes, from), to);
}

}  // namespace ombrix
