#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "OmbrixCore/Data/CSVParseObserver.hpp"
#include "OmbrixCore/Location/CLLocation.hpp"
#include "OmbrixPlatform/Csv/CSVReader.hpp"
#include "OmbrixPlatform/Files/InputStream.hpp"
#include "OmbrixPlatform/Files/URL.hpp"
#include "OmbrixPlatform/Values/Data.hpp"

namespace ombrix {

/// Reads recorded tracks: comma-separated text without a header, one fix per row, with the columns
/// timestamp (seconds since 1970), latitude, longitude (degrees), altitude (metres), course
/// (degrees), speed (m/s), vertical and horizontal accuracy (metres). See `LocationCSVWriter`.
///
/// Every form returns the fixes in file order, an empty list for an empty source, and nothing when
/// the source cannot be opened or read at all; that, and each skipped row, is logged as an error.
/// Nothing is thrown. When a source fails midway, or memory runs out, the fixes before are
/// returned and the failure is logged. Any number is accepted: fixes that are not finite or have
/// impossible latitudes are returned, too. `platform::CSVReader` describes the format of fields
/// and the effect of a stray quote. The file does not contain the accuracies of course and speed:
/// they are -1.
///
/// Stateless: one parser may serve any number of threads at once. The forms without a completion
/// work on the calling thread. The others return at once, work on a concurrent queue shared by all
/// parsers and call the completion there, not on the main thread.
///
///     const auto fixes = LocationCSVParser().parse(platform::URL::fileURL("day.csv"));
class LocationCSVParser {
 public:
  using Locations = std::optional<std::vector<CLLocation>>;
  using Completion = std::move_only_function<void(Locations)>;

  /// Parses the file at a file URL's path.
  Locations parse(const platform::URL& url, const CSVParseObserver& observer = {}) const;
  void parse(const platform::URL& url, Completion completion, CSVParseObserver observer = {}) const;

  /// Parses the file at a path. A literal could name a file or be the text itself, so it does not
  /// compile: write `std::filesystem::path("day.csv")` or `std::string_view("1,2")`.
  Locations parse(const std::filesystem::path& path, const CSVParseObserver& observer = {}) const;
  void parse(const std::filesystem::path& path, Completion completion,
             CSVParseObserver observer = {}) const;

  /// Parses the text itself, in place; with a completion, a copy of it. A `std::string` could also
  /// name a file, so neither it nor a literal compiles.
  Locations parse(std::string_view string, const CSVParseObserver& observer = {}) const;
  void parse(std::string_view string, Completion completion, CSVParseObserver observer = {}) const;

  /// Parses a stream; opens and closes it if it is not open yet.
  Locations parse(platform::InputStream& stream, const CSVParseObserver& observer = {}) const;
  void parse(std::shared_ptr<platform::InputStream> stream, Completion completion,
             CSVParseObserver observer = {}) const;

  /// Parses bytes, in place.
  Locations parse(platform::DataView data, const CSVParseObserver& observer = {}) const;
  void parse(platform::Data data, Completion completion, CSVParseObserver observer = {}) const;

  /// The fix of one row, ignoring fields after the eighth; if a field is missing or one of the
  /// eight is not entirely a number, logs an error and returns nothing.
  std::optional<CLLocation> parseTransform(platform::CSVReader::Row row) const;
};

}  // namespace ombrix
