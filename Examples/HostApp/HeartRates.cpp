#include "Examples/HostApp/HeartRates.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "Examples/HostApp/Commands.hpp"
#include "Examples/HostApp/ReportLine.hpp"
#include "OmbrixCore/Data/HRCSVParser.hpp"
#include "OmbrixCore/Extensions/Search/Math.hpp"
#include "OmbrixCore/Extensions/Search/Statistics.hpp"

namespace ombrix::hostapp {

HeartRateSummary summarizeHeartRates(std::span<const platform::HKQuantitySample> samples,
                                     const DaySummary& day, std::optional<double> weightKilograms) {
  HeartRateSummary summary;
  if (!day.startTime) return summary;
  const auto beatsPerMinute = *platform::HKUnit::fromString("count/min");
  std::vector<double> rates;
  for (const auto& sample : samples) {
    if (sample.startDate() < *day.startTime || sample.startDate() > *day.endTime) continue;
    const double rate = sample.quantity().doubleValue(beatsPerMinute);
    if (std::isfinite(rate)) rates.push_back(rate);
  }
  summary.samples = rates.size();
  if (!rates.empty()) {
    summary.averageBeatsPerMinute = average(rates);
    summary.maxBeatsPerMinute = std::ranges::max(rates);
  }
  if (weightKilograms) {
    summary.kilocalories =
        Math::caloriesBurnedForUserWithWeight(*weightKilograms, day.spanSeconds());
  }
  return summary;
}

std::vector<platform::HKQuantitySample> readHeartRates(const std::string& path) {
  const auto stream = platform::InputStream::withPath(path);
  if (const auto opened = stream->open(); !opened) throw CommandFailure(opened.error().what());
  auto samples = HRCSVParser().parse(*stream);
  if (!samples) throw CommandFailure(fmt::format("cannot read {}", path));
  return std::move(*samples);
}

std::string heartRateReport(const HeartRateSummary& summary) {
  using Format = OmbrixMeasurementFormatter::MeasurementFormat;
  std::string text;
  if (summary.samples > 0) {
    text +=
        reportLine("Average heart", styledValue(Format::heartRate, summary.averageBeatsPerMinute));
    text += reportLine("Top heart", styledValue(Format::heartRate, summary.maxBeatsPerMinute));
  }
  if (summary.kilocalories) {
    text += reportLine("Energy", styledValue(Format::energy, *summary.kilocalories));
  }
  return text;
}

std::string toJSON(const HeartRateSummary& summary) {
  return fmt::format(
      "{{\"samples\":{},\"averageBeatsPerMinute\":{},\"maxBeatsPerMinute\":{},"
      "\"kilocalories\":{}}}",
      summary.samples, summary.averageBeatsPerMinute, summary.maxBeatsPerMinute,
      summary.kilocalories ? fmt::format("{}", *summary.kilocalories) : "null");
}

}  // namespace ombrix::hostapp
