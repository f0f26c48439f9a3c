#include "OmbrixCore/Data/LocationCSVParser.hpp"

#include <array>
#include <source_location>
#include <utility>

#include "OmbrixCore/Data/Detail/CSVParsing.hpp"
#include "OmbrixCore/Data/Detail/TrackColumns.hpp"
#include "OmbrixPlatform/Csv/NumberText.hpp"

namespace ombrix {
namespace {

constexpr std::string_view kFile = "OmbrixCore/Data/LocationCSVParser";

/// The columns in the order of reading.
// Kept: neither the file's order nor the properties'. It says which of several bad fields ends a
// row; sorting it would change where a debugger or a trace sees that happen, and gain nothing.
constexpr std::array kReadingOrder = {
    kLatitudeColumn,         kLongitudeColumn, kAltitudeColumn, kHorizontalAccuracyColumn,
    kVerticalAccuracyColumn, kCourseColumn,    kSpeedColumn,    kTimestampColumn};

CLLocation locationFromNumbers(const std::array<double, kTrackColumnCount>& numbers) {
  CLLocation location;
  location.coordinate = {numbers[kLatitudeColumn], numbers[kLongitudeColumn]};
  location.altitude = numbers[kAltitudeColumn];
  location.horizontalAccuracy = numbers[kHorizontalAccuracyColumn];
  location.verticalAccuracy = numbers[kVerticalAccuracyColumn];
  location.course = numbers[kCourseColumn];
  location.speed = numbers[kSpeedColumn];
  location.timestamp = platform::dateSince1970(numbers[kTimestampColumn]);
  return location;
}

template <class Source>
LocationCSVParser::Locations parseSource(
    const LocationCSVParser& parser, Source&& source, const CSVParseObserver& observer, LogTag tag,
    std::source_location where = std::source_location::current()) {
  return detail::parseCSV<kTrackColumnCount, CLLocation>(
      source, observer, &locationFromNumbers,
      [&parser](platform::CSVReader::Row row) { return parser.parseTransform(row); }, tag, where);
}

platform::DispatchQueue& parserQueue() {
  static const auto& queue = *new std::shared_ptr(
      platform::DispatchQueue::concurrent("com.brannoway.ombrix.core.csvparser"));
  return *queue;
}

}  // namespace

LocationCSVParser::Locations LocationCSVParser::parse(const platform::URL& url,
                                                      const CSVParseObserver& observer) const {
  const LogTag tag{kFile, "parse(url:)"};
  return detail::loggingFailure(tag, [&]() -> Locations {
    const auto stream = detail::openCSVStream(url, tag);
    if (stream == nullptr) return std::nullopt;
    return parseSource(*this, *stream, observer, tag);
  });
}

LocationCSVParser::Locations LocationCSVParser::parse(const std::filesystem::path& path,
                                                      const CSVParseObserver& observer) const {
  return detail::loggingFailure({kFile, "parse(url:)"}, [&] {
    return parse(platform::URL::fileURL(path.string(), false), observer);
  });
}

LocationCSVParser::Locations LocationCSVParser::parse(std::string_view string,
                                                      const CSVParseObserver& observer) const {
  return parseSource(*this, string, observer, {kFile, "parse(string:)"});
}

LocationCSVParser::Locations LocationCSVParser::parse(platform::InputStream& stream,
                                                      const CSVParseObserver& observer) const {
  return parseSource(*this, stream, observer, {kFile, "parse(stream:)"});
}

LocationCSVParser::Locations LocationCSVParser::parse(platform::DataView data,
                                                      const CSVParseObserver& observer) const {
  return detail::loggingFailure({kFile, "parse(data:)"}, [&] {
    return parse(*platform::InputStream::withView(data), observer);
  });
}

void LocationCSVParser::parse(const platform::URL& url, Completion completion,
                              CSVParseObserver observer) const {
  detail::parseOn(parserQueue(), *this, [&] { return url; }, std::move(completion),
                  std::move(observer), {kFile, "parse(url:completion:)"});
}

void LocationCSVParser::parse(const std::filesystem::path& path, Completion completion,
                              CSVParseObserver observer) const {
  detail::parseOn(parserQueue(), *this,
                  [&] { return platform::URL::fileURL(path.string(), false); },
                  std::move(completion), std::move(observer), {kFile, "parse(url:completion:)"});
}

void LocationCSVParser::parse(std::string_view string, Completion completion,
                              CSVParseObserver observer) const {
  detail::parseOn(parserQueue(), *this, [&] { return std::string(string); }, std::move(completion),
                  std::move(observer), {kFile, "parse(string:completion:)"});
}

void LocationCSVParser::parse(std::shared_ptr<platform::InputStream> stream, Completion completion,
                              CSVParseObserver observer) const {
  detail::parseOn(parserQueue(), *this, [&] { return std::move(stream); }, std::move(completion),
                  std::move(observer), {kFile, "parse(stream:completion:)"});
}

void LocationCSVParser::parse(platform::Data data, Completion completion,
                              CSVParseObserver observer) const {
  detail::parseOn(parserQueue(), *this,
                  [&] { return std::shared_ptr(platform::InputStream::withData(std::move(data))); },
                  std::move(completion), std::move(observer), {kFile, "parse(data:completion:)"});
}

std::optional<CLLocation> LocationCSVParser::parseTransform(platform::CSVReader::Row row) const {
  const LogTag tag{kFile, "parseTransform(_:)"};
  if (row.size() < kTrackColumnCount) {
    logError(tag, "Data: Location row didn't have complete data");
    return std::nullopt;
  }
  std::array<double, kTrackColumnCount> numbers{};
  for (const std::size_t column : kReadingOrder) {
    const auto number = platform::doubleFromText(row[column]);
    if (!number) {
      // Kept: the text speaks of a migration, being the heart-rate import's as well. With another
      // one, whoever searches logs for it would find half of the bad rows.
      logError(tag, "Data: Error while trying to read CSV for migration, bad row");
      return std::nullopt;
    }
    numbers[column] = *number;
  }
  return locationFromNumbers(numbers);
}

}  // namespace ombrix
