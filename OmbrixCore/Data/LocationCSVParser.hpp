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

/// Reads recorded tracks: comma-separated text without a header, one fix per row, in the columns
/// timestamp (seconds since 1970), latitude, longitude (degrees), altitude (metres), course
/// (degrees), speed (m/s), vertical and horizontal accuracy (metres). See `LocationCSVWriter`.
///
/// Every form gives the fixes in file order, an empty list for an empty source, and nothing when
/// the source cannot be opened or read at all; that, and each row that is skipped, is logged as an
/// error. Nothing is thrown. When a source fails midway, or memory runs out, the fixes before are
/// given and the failure is logged. Numbers only have to be numbers: a fix that is not finite or
/// off the globe is given, too. What a field may hold, and what a stray quote costs,
/// `platform::CSVReader` tells. Courses' and speeds' own accuracies are not in the file: they are
/// -1.
///
/// Stateless: one parser may serve any number of threads at once. The forms without a completion
/// work on the calling thread. Those with one return at once, work on a concurrent queue shared by
/// all parsers and call the completion there, not on the main thread.
class LocationCSVParser {
 public:
  using Locations = std::optional<std::vector<CLLocation>>;
  using Completion = std::move_only_function<void(Locations)>;

  /// The file at a file URL's path.
  Locations parse(const platform::URL& url, const CSVParseObserver& observer = {}) const;
  void parse(const platform::URL& url, Completion completion, CSVParseObserver observer = {}) const;

  /// The file at a path. A literal may name a file or be the text itself, so it does not compile:
  /// say `std::filesystem::path("day.csv")` or `std::string_view("1,2")`.
  Locations parse(const std::filesystem::path& path, const CSVParseObserver& observer = {}) const;
  void parse(const std::filesystem::path& path, Completion completion,
             CSVParseObserver observer = {}) const;

  /// The text itself, in place; with a completion, a copy of it. A `std::string` may name a file as
  /// well as a literal, so neither compiles.
  Locations parse(std::string_view string, const CSVParseObserver& observer = {}) const;
  void parse(std::string_view string, Completion completion, CSVParseObserver observer = {}) const;

  /// A stream, which is opened and closed here when it is not open yet.
  Locations parse(platform::InputStream& stream, const CSVParseObserver& observer = {}) const;
  void parse(std::shared_ptr<platform::InputStream> stream, Completion completion,
             CSVParseObserver observer = {}) const;

  /// Bytes, in place.
  Locations parse(platform::DataView data, const CSVParseObserver& observer = {}) const;
  void parse(platform::Data data, Completion completion, CSVParseObserver observer = {}) const;

  /// The fix of one row; fields behind the eighth are ignored. Nothing, and a line in the log, for
  /// a row with fewer fields or with one of the eight that is not a number from end to end.
  std::optional<CLLocation> parseTransform(platform::CSVReader::Row row) const;
};

}  // namespace ombrix
