#include "Examples/HostApp/Days/DayReport.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <utility>
#include <vector>

#include "Examples/HostApp/Terminal/ShownName.hpp"
#include "Examples/HostApp/Terminal/Terminal.hpp"
#include "Examples/HostApp/Terminal/TextTable.hpp"
#include "Examples/HostApp/Texts/Text.hpp"

namespace ombrix::hostapp {
namespace {

using Format = FigureTexts::Format;
using DateStyle = FigureTexts::DateStyle;

/// Labels and their values, one below the other.
class Figures {
 public:
  explicit Figures(FigureTexts& texts) : texts_(texts) {}

  void line(std::string_view label, std::string shown) {
    lines_.emplace_back(text(label), std::move(shown));
  }
  void value(std::string_view label, Format format, std::optional<double> number) {
    if (number) line(label, texts_.value(format, *number));
  }
  [[nodiscard]] std::string lines() const {
    std::size_t width = 0;
    for (const auto& [label, shown] : lines_) width = std::max(width, columnsOf(label));
    std::string all;
    for (const auto& [label, shown] : lines_) {
      all += fmt::format("  {}{} {}\n", label, std::string(width - columnsOf(label), ' '), shown);
    }
    return all;
  }

 private:
  FigureTexts& texts_;
  std::vector<std::pair<std::string, std::string>> lines_;
};

std::string fixesShown(const RecordedDay& recorded) {
  const FixCounts& counts = recorded.day.counts;
  const auto counted = [](std::size_t count, std::string_view what) {
    return fmt::format("{} {}", countText(count), text(what));
  };
  std::string shown =
      fmt::format("{}, {}, {}", counted(counts.read, "read"), counted(recorded.skipped, "skipped"),
                  counted(counts.used, "used"));
  if (counts.offTheGlobe > 0) shown += ", " + counted(counts.offTheGlobe, "off the globe");
  if (counts.beyondLimit > 0) shown += ", " + counted(counts.beyondLimit, "beyond the limit");
  if (!recorded.fault.empty()) shown += fmt::format(", {}", text("incomplete"));
  return shown;
}

std::string figuresOf(const RecordedDay& recorded, FigureTexts& texts) {
  const DayTotals& totals = recorded.day.totals;
  Figures figures(texts);
  if (totals.begin) {
    figures.line("Start", texts.date(DateStyle::dayAndTime, *totals.begin));
    figures.line("Span", texts.duration(recorded.spanSeconds()));
    figures.line("Moving time", texts.duration(totals.all.movingSeconds));
    figures.line("Runs", texts.count(totals.runs));
    figures.line("Lifts", texts.count(totals.lifts));
    figures.value("Distance", Format::distance, totals.all.distanceMeters);
    figures.value("On runs", Format::distance, totals.run.distanceMeters);
    if (totals.minAltitude) {
      figures.value("Vertical up", Format::vertical, totals.all.ascentMeters);
      figures.value("Vertical down", Format::vertical, totals.all.descentMeters);
    }
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

std::string rides(const Day& day, FigureTexts& texts) {
  TextTable table({text("Ride"), text("Start"), text("Time"), text("Distance"), text("Vertical"),
                   text("Top speed"), text("Average speed")});
  for (const DaySegment& segment : day.segments) {
    const bool isRun = segment.kind == SegmentKind::run;
    if (!isRun && segment.kind != SegmentKind::lift) continue;
    const SegmentFigures& figures = segment.figures;
    table.add({fmt::format("{} {}", text(isRun ? "Run" : "Lift"), segment.number),
               texts.date(DateStyle::clock, segment.begin), texts.duration(figures.seconds),
               texts.value(Format::distance, figures.distanceMeters),
               texts.value(Format::vertical, std::abs(segment.vertical())),
               texts.value(Format::speed, figures.maxSpeedMetersPerSecond),
               texts.value(Format::speed, figures.averageSpeedMetersPerSecond)});
  }
  return table.empty() ? "" : "\n" + table.lines(columnsForTables());
}

}  // namespace

std::string dayReport(const RecordedDay& recorded, FigureTexts& figures) {
  return shownName(recorded.title) + "\n" + figuresOf(recorded, figures) +
         rides(recorded.day, figures);
}

}  // namespace ombrix::hostapp
