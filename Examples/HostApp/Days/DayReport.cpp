#include "Examples/HostApp/Days/DayReport.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <utility>
#include <vector>

#include "Examples/HostApp/Terminal/ReportLine.hpp"
#include "Examples/HostApp/Terminal/TextTable.hpp"
#include "Examples/HostApp/Texts/Text.hpp"
#include "OmbrixPlatform/Text/DateFormatter.hpp"

namespace ombrix::hostapp {
namespace {

using Format = OmbrixMeasurementFormatter::MeasurementFormat;

/// Labels and what they say, one below the other.
class Figures {
 public:
  void line(std::string_view label, std::string shown) {
    lines_.emplace_back(text(label), std::move(shown));
  }
  void value(std::string_view label, Format format, std::optional<double> number) {
    if (number) line(label, styledValue(format, *number));
  }
  [[nodiscard]] std::string lines() const {
    std::size_t width = 0;
    for (const auto& [label, shown] : lines_) width = std::max(width, columnsOf(label));
    std::string all;
    for (const auto& [label, shown] : lines_) {
      all += fmt::format("  {:<{}} {}\n", label, width, shown);
    }
    return all;
  }

 private:
  std::vector<std::pair<std::string, std::string>> lines_;
};

std::string fixesShown(const RecordedDay& recorded) {
  const FixCounts& counts = recorded.day.counts;
  std::string shown = fmt::format("{} {}, {} {}, {} {}", counts.read, text("read"),
                                  recorded.skipped, text("skipped"), counts.used, text("used"));
  if (counts.offTheGlobe > 0) {
    shown += fmt::format(", {} {}", counts.offTheGlobe, text("off the globe"));
  }
  if (counts.beyondLimit > 0) {
    shown += fmt::format(", {} {}", counts.beyondLimit, text("beyond the limit"));
  }
  return shown;
}

std::string figures(const RecordedDay& recorded) {
  const DayTotals& totals = recorded.day.totals;
  Figures figures;
  if (totals.begin) {
    const platform::DateFormatter date("EEEE, d MMMM y, HH:mm");
    figures.line("Start", date.stringFrom(*totals.begin));
    figures.line("Span", styledDuration(recorded.spanSeconds()));
    figures.line("Runs", fmt::format("{}", totals.runs));
    figures.line("Lifts", fmt::format("{}", totals.lifts));
    figures.value("Distance", Format::distance, totals.all.distanceMeters);
    figures.value("On runs", Format::distance, totals.run.distanceMeters);
    figures.value("Vertical up", Format::vertical, totals.all.ascentMeters);
    figures.value("Vertical down", Format::vertical, totals.all.descentMeters);
    figures.value("Top speed", Format::speed, totals.all.maxSpeedMetersPerSecond);
    figures.value("Average speed", Format::speed, totals.all.averageSpeedMetersPerSecond);
    figures.value("Lowest point", Format::altitude, totals.minAltitude);
    figures.value("Highest point", Format::altitude, totals.maxAltitude);
    figures.value("Average heart rate", Format::heartRate, totals.all.averageHeartRate);
    figures.value("Highest heart rate", Format::heartRate, totals.all.maxHeartRate);
    figures.value("Energy", Format::energy, recorded.kilocalories);
  }
  figures.line("Fixes", fixesShown(recorded));
  return figures.lines();
}

std::string rides(const Day& day) {
  const platform::DateFormatter clock("HH:mm");
  TextTable table({text("Ride"), text("Start"), text("Time"), text("Distance"), text("Vertical"),
                   text("Top speed"), text("Average speed")});
  for (const DaySegment& segment : day.segments) {
    const bool isRun = segment.kind == SegmentKind::run;
    if (!isRun && segment.kind != SegmentKind::lift) continue;
    const SegmentFigures& figures = segment.figures;
    table.add({fmt::format("{} {}", text(isRun ? "Run" : "Lift"), segment.number),
               clock.stringFrom(segment.begin), styledDuration(figures.seconds),
               styledValue(Format::distance, figures.distanceMeters),
               styledValue(Format::vertical, std::abs(segment.vertical())),
               styledValue(Format::speed, figures.maxSpeedMetersPerSecond),
               styledValue(Format::speed, figures.averageSpeedMetersPerSecond)});
  }
  return table.empty() ? "" : "\n" + table.lines();
}

}  // namespace

std::string dayReport(const RecordedDay& recorded) {
  return recorded.title + "\n" + figures(recorded) + rides(recorded.day);
}

}  // namespace ombrix::hostapp
