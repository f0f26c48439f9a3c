#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "OmbrixCore/Data/CSVParseObserver.hpp"
#include "OmbrixPlatform/Csv/CSVReader.hpp"
#include "OmbrixPlatform/Files/InputStream.hpp"
#include "OmbrixPlatform/Files/URL.hpp"
#include "OmbrixPlatform/Health/HKQuantitySample.hpp"
#include "OmbrixPlatform/Values/Data.hpp"

namespace ombrix {

/// Reads heart-rate recordings: comma-separated text without a header, one measurement per row,
/// with the columns time (seconds since 1970) and heart rate (beats per minute); further columns
/// are ignored. Each row becomes a sample of the heart-rate type in "count/min" at that instant.
///
/// Every form returns the samples in file order, an empty list for an empty source, and nothing
/// when the source cannot be opened or read at all; that, and each skipped row, is logged as an
/// error. Nothing is thrown. When a source fails midway, or memory runs out, the samples before are
/// returned and the failure is logged. A row with fewer than two fields stops the program; empty
/// lines are not rows.
///
/// Stateless: one parser may serve any number of threads at once. The forms without a completion
/// work on the calling thread. The others return at once, work on a concurrent queue shared by all
/// these parsers and call the completion there, not on the main thread.
class HRCSVParser {
 public:
  using Samples = std::optional<std::vector<platform::HKQuantitySample>>;
  using Completion = std::move_only_function<void(Samples)>;

  /// Parses the file at the URL's path.
  Samples parse(const platform::URL& url, const CSVParseObserver& observer = {}) const;
  void parse(const platform::URL& url, Completion completion, CSVParseObserver observer = {}) const;

  /// Parses the file at a path. A literal could name a file or be the text itself, so it does not
  /// compile: write `std::filesystem::path("day.csv")` or `std::string_view("1,2")`.
  Samples parse(const std::filesystem::path& path, const CSVParseObserver& observer = {}) const;
  void parse(const std::filesystem::path& path, Completion completion,
             CSVParseObserver observer = {}) const;

  /// Parses the text itself, in place; with a completion, a copy of it. A `std::string` could also
  /// name a file, so neither it nor a literal compiles.
  Samples parse(std::string_view string, const CSVParseObserver& observer = {}) const;
  void parse(std::string_view string, Completion completion, CSVParseObserver observer = {}) const;

  /// Parses a stream; opens and closes it if it is not open yet.
  Samples parse(platform::InputStream& stream, const CSVParseObserver& observer = {}) const;
  void parse(std::shared_ptr<platform::InputStream> stream, Completion completion,
             CSVParseObserver observer = {}) const;

  /// Parses bytes, in place.
  Samples parse(platform::DataView data, const CSVParseObserver& observer = {}) const;
  void parse(platform::Data data, Completion completion, CSVParseObserver observer = {}) const;

  /// The sample of one row of at least two fields; if one of the two is not entirely a number, logs
  /// an error and returns nothing.
  std::optional<platform::HKQuantitySample> parseTransform(platform::CSVReader::Row row) const;
};

}  // namespace ombrix
