#include "OmbrixCore/Data/HRCSVParser.hpp"

#include <array>
#include <source_location>
#include <utility>

#include "OmbrixCore/Data/Detail/CSVParsing.hpp"
#include "OmbrixPlatform/Csv/NumberText.hpp"
#include "OmbrixPlatform/Values/FatalError.hpp"

namespace ombrix {
namespace {

constexpr std::string_view kFile = "OmbrixCore/Data/HRCSVParser";

constexpr std::size_t kTimeColumn = 0;
constexpr std::size_t kHeartRateColumn = 1;
constexpr std::size_t kColumnCount = 2;

using platform::HKQuantitySample;
using platform::HKQuantityType;
using platform::HKQuantityTypeIdentifier;

HKQuantitySample sampleFrom(HKQuantityType type, double heartRate, double time) {
  static const platform::HKUnit unit = platform::HKUnit::fromString("count/min").value();
  const platform::Date date = platform::dateSince1970(time);
  return {type, {unit, heartRate}, date, date};
}

template <class Source>
HRCSVParser::Samples parseSource(const HRCSVParser& parser, Source&& source,
                                 const CSVParseObserver& observer, LogTag tag,
                                 std::source_location where = std::source_location::current()) {
  const auto transform = [&parser](platform::CSVReader::Row row) {
    return parser.parseTransform(row);
  };
  constexpr auto kType = HKQuantityType::quantityType(HKQuantityTypeIdentifier::heartRate);
  static_assert(kType, "Rows of plain numbers take the type for granted");
  return detail::parseCSV<kColumnCount, HKQuantitySample>(
      source, observer,
      [kType](const std::array<double, kColumnCount>& numbers) {
        return sampleFrom(*kType, numbers[kHeartRateColumn], numbers[kTimeColumn]);
      },
      transform, tag, where);
}

platform::DispatchQueue& parserQueue() {
  static const auto& queue = *new std::shared_ptr(
      platform::DispatchQueue::concurrent("com.brannoway.ombrix.core.hrparser"));
  return *queue;
}

}  // namespace

HRCSVParser::Samples HRCSVParser::parse(const platform::URL& url,
                                        const CSVParseObserver& observer) const {
  const LogTag tag{kFile, "parse(url:)"};
  return detail::loggingFailure(tag, [&]() -> Samples {
    const auto stream = detail::openCSVStream(url, tag);
    if (stream == nullptr) return std::nullopt;
    return parseSource(*this, *stream, observer, tag);
  });
}

HRCSVParser::Samples HRCSVParser::parse(const std::filesystem::path& path,
                                        const CSVParseObserver& observer) const {
  return detail::loggingFailure({kFile, "parse(url:)"}, [&] {
    return parse(platform::URL::fileURL(path.string(), false), observer);
  });
}

HRCSVParser::Samples HRCSVParser::parse(std::string_view string,
                                        const CSVParseObserver& observer) const {
  return parseSource(*this, string, observer, {kFile, "parse(string:)"});
}

HRCSVParser::Samples HRCSVParser::parse(platform::InputStream& stream,
                                        const CSVParseObserver& observer) const {
  return parseSource(*this, stream, observer, {kFile, "parse(stream:)"});
}

HRCSVParser::Samples HRCSVParser::parse(platform::DataView data,
                                        const CSVParseObserver& observer) const {
  return detail::loggingFailure({kFile, "parse(data:)"}, [&] {
    return parse(*platform::InputStream::withView(data), observer);
  });
}

void HRCSVParser::parse(const platform::URL& url, Completion completion,
                        CSVParseObserver observer) const {
  detail::parseOn(parserQueue(), *this, [&] { return url; }, std::move(completion),
                  std::move(observer), {kFile, "parse(url:completion:)"});
}

void HRCSVParser::parse(const std::filesystem::path& path, Completion completion,
                        CSVParseObserver observer) const {
  detail::parseOn(parserQueue(), *this,
                  [&] { return platform::URL::fileURL(path.string(), false); },
                  std::move(completion), std::move(observer), {kFile, "parse(url:completion:)"});
}

void HRCSVParser::parse(std::string_view string, Completion completion,
                        CSVParseObserver observer) const {
  detail::parseOn(parserQueue(), *this, [&] { return std::string(string); }, std::move(completion),
                  std::move(observer), {kFile, "parse(string:completion:)"});
}

void HRCSVParser::parse(std::shared_ptr<platform::InputStream> stream, Completion completion,
                        CSVParseObserver observer) const {
  detail::parseOn(parserQueue(), *this, [&] { return std::move(stream); }, std::move(completion),
                  std::move(observer), {kFile, "parse(stream:completion:)"});
}

void HRCSVParser::parse(platform::Data data, Completion completion,
                        CSVParseObserver observer) const {
  detail::parseOn(parserQueue(), *this,
                  [&] { return std::shared_ptr(platform::InputStream::withData(std::move(data))); },
                  std::move(completion), std::move(observer), {kFile, "parse(data:completion:)"});
}

std::optional<HKQuantitySample> HRCSVParser::parseTransform(platform::CSVReader::Row row) const {
  // Kept: the count is not looked at before the fields are. A row of one field means that this is
  // no heart-rate file at all, and skipping it would import nonsense silently.
  if (row.size() < kColumnCount) platform::fatalError("Index out of range");
  const auto heartRate = platform::doubleFromText(row[kHeartRateColumn]);
  const auto time = heartRate ? platform::doubleFromText(row[kTimeColumn]) : std::nullopt;
  const auto type = HKQuantityType::quantityType(HKQuantityTypeIdentifier::heartRate);
  if (!heartRate || !time || !type) {
    // Kept: "CSV for migration" lacks a word; support looks for the line as it stands.
    logError({kFile, "parseTransform(_:)"},
             "Data: Error while trying to read CSV for migration, bad row");
    return std::nullopt;
  }
  return sampleFrom(*type, *heartRate, *time);
}

}  // namespace ombrix
