#include "Examples/HostApp/Page/Profiles.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <span>

#include "Examples/HostApp/Page/Drawing.hpp"
#include "Examples/HostApp/Page/Markup.hpp"
#include "Examples/HostApp/Texts/Text.hpp"

namespace ombrix::hostapp {
namespace {

using Format = FigureTexts::Format;

// The plots are stretched to the page's width, so any view box will do.
constexpr double kWidth = 1000, kHeight = 100;
constexpr double kTolerance = 0.35;
constexpr double kMostTicks = 8;
constexpr double kBreakSeconds = 600;  // During such a silence nothing is drawn.

double ratio(double part, double whole) { return whole > 0 ? part / whole : 0; }

std::string tick(double position, const std::string& label) {
  constexpr double kNearEnd = 0.95;  // Beyond this the label ends at its place.
  return fmt::format("<span style=\"--at:{:.2f}%{}\">{}</span>", 100 * position,
                     position > kNearEnd ? ";--by:-100%" : "", escaped(label));
}

/// The distance to each sample; within each segment it adds up to the segment's own figure.
std::vector<double> waysOf(const Day& day) {
  std::vector<double> ways(day.samples.size());
  double before = 0;
  std::size_t i = 0;
  for (const DaySegment& segment : day.segments) {
    const std::size_t last = std::min(segment.endSample, ways.size() - 1);
    const double begin = day.samples[segment.firstSample].distance;
    const double all = day.samples[last].distance - begin, told = segment.figures.distanceMeters;
    for (; i < segment.firstSample; ++i) ways[i] = before;
    for (; i < segment.endSample && i < ways.size(); ++i) {
      ways[i] = before + told * ratio(day.samples[i].distance - begin, all);
    }
    before += told;
  }
  for (; i < ways.size(); ++i) ways[i] = before;
  return ways;
}

}  // namespace

/// One plot: a figure of each sample and the scale that it is drawn by.
struct Profiles::Plot {
  const char* name;
  const char* label;
  Format format;
  double (*figure)(const DaySample&);  ///< A sample without a heart rate gives 0.
  bool skipsZero;
  double low = 0, high = 1, step = 1;  ///< In the format's input unit.

  [[nodiscard]] double height(double value) const {
    return kHeight * (1 - std::clamp(ratio(value - low, high - low), 0.0, 1.0));
  }
};

Profiles::Profiles(const Day& day, FigureTexts& figures, double coarseness)
    : day_(day),
      figures_(figures),
      ways_(waysOf(day)),
      hasHeartRates_(std::ranges::any_of(day.samples,
                                         [](const DaySample& each) { return each.heartRate > 0; })),
      tolerance_(coarseness * kTolerance) {}

double Profiles::position(ProfileAxis axis, std::size_t sample) const {
  const DaySample& each = day_.samples[sample];
  if (axis == ProfileAxis::distance) return ratio(ways_[sample], ways_.back());
  const auto begin = day_.samples.front().time;
  return ratio((each.time - begin).count(), (day_.samples.back().time - begin).count());
}

bool Profiles::isBehindBreak(std::size_t sample) const {
  return sample > 0 &&
         (day_.samples[sample].time - day_.samples[sample - 1].time).count() > kBreakSeconds;
}

std::vector<Profiles::Plot> Profiles::plots() const {
  std::vector<Plot> plots = {
      {"altitude", "Altitude", Format::altitude,
       [](const DaySample& each) { return each.altitude; }, false},
      {"speed", "Speed", Format::speed, [](const DaySample& each) { return each.speed; }, false},
  };
  if (hasHeartRates_) {
    plots.push_back({"heart", "Heart rate", Format::heartRate,
                     [](const DaySample& each) { return each.heartRate; }, true});
  }
  if (!day_.totals.maxAltitude) plots.erase(plots.begin());
  for (Plot& plot : plots) {
    // Round figures in the user's unit, three or four in each plot.
    const double unit = plot.format == Format::heartRate ? 1 : unitSize(plot.format);
    double least = INFINITY, most = -INFINITY;
    for (const DaySample& sample : day_.samples) {
      const double value = plot.figure(sample) / unit;
      if (plot.skipsZero && value <= 0) continue;
      least = std::min(least, value);
      most = std::max(most, value);
    }
    if (plot.format == Format::speed) least = 0;
    plot.step = niceStep(std::max(most - least, 4.0) / 4) * unit;
    plot.low = std::floor(least * unit / plot.step) * plot.step;
    plot.high = std::max(std::ceil(most * unit / plot.step), plot.low / plot.step + 1) * plot.step;
  }
  return plots;
}

/// Runs and lifts as bands behind the plots.
std::string Profiles::bands(ProfileAxis axis) const {
  std::string elements;
  for (std::size_t i = 0; i < day_.segments.size(); ++i) {
    const DaySegment& segment = day_.segments[i];
    if (segment.kind != SegmentKind::run && segment.kind != SegmentKind::lift) continue;
    const double begin = position(axis, segment.firstSample);
    std::size_t last = std::min(segment.endSample, day_.samples.size() - 1);
    if (last > segment.firstSample && isBehindBreak(last)) --last;
    const double end = position(axis, last);
    elements += fmt::format(
        "<rect class=\"band {}\" data-segment=\"{}\" x=\"{}\" width=\"{}\" height=\"{}\"/>",
        platform::rawValue(segment.kind), i, coordinate(begin * kWidth),
        coordinate(std::max(0.0, end - begin) * kWidth), kHeight);
  }
  return elements;
}

std::string Profiles::plotHTML(const Plot& plot, ProfileAxis axis) const {
  std::vector<std::vector<Point>> lines(1);
  for (std::size_t i = 0; i < day_.samples.size(); ++i) {
    const double value = plot.figure(day_.samples[i]);
    if (isBehindBreak(i) && !lines.back().empty()) lines.emplace_back();
    if (plot.skipsZero && value <= 0) {
      if (!lines.back().empty()) lines.emplace_back();
      continue;
    }
    lines.back().push_back({position(axis, i) * kWidth, plot.height(value)});
  }
  std::string line, area;
  for (const auto& each : lines) {
    if (each.empty()) continue;
    const auto kept = simplified(each, tolerance_);
    const std::string data = pathData(kept);
    line += data;
    area += fmt::format("{}V{}H{}z", data, kHeight, coordinate(kept.front().x));
  }
  std::string scale, grid;
  for (double value = plot.low; value <= plot.high + plot.step / 2; value += plot.step) {
    const double y = plot.height(value);
    scale += tick(y / kHeight, figures_.plain(plot.format, value));
    grid += fmt::format("M0 {}h{}", coordinate(y), kWidth);
  }
  return fmt::format(
      "<div class=\"plot {}\"><h3>{}</h3><div class=\"canvas\">"
      "<svg viewBox=\"0 0 {} {}\" preserveAspectRatio=\"none\" aria-hidden=\"true\">{}"
      "<path class=\"grid\" d=\"{}\"/><path class=\"area\" d=\"{}\"/><path class=\"line\" "
      "d=\"{}\"/></svg><div class=\"scale-y\" aria-hidden=\"true\">{}</div></div></div>",
      plot.name, escaped(text(plot.label)), kWidth, kHeight, bands(axis), grid, area, line, scale);
}

std::string Profiles::timeScale() const {
  constexpr double kSteps[] = {60, 300, 600, 900, 1800, 3600, 7200, 14'400, 21'600, 43'200};
  const double begin = platform::timeIntervalSince1970(day_.samples.front().time);
  const double end = platform::timeIntervalSince1970(day_.samples.back().time);
  double step = 86'400;
  for (const double each : kSteps) {
    if ((end - begin) / each <= kMostTicks) {
      step = each;
      break;
    }
  }
  while ((end - begin) / step > kMostTicks) step *= 2;
  std::string scale;
  for (double time = std::ceil(begin / step) * step; time <= end; time += step) {
    scale += tick(ratio(time - begin, end - begin),
                  figures_.date(FigureTexts::DateStyle::clock, platform::dateSince1970(time)));
  }
  return scale;
}

std::string Profiles::distanceScale() const {
  const double all = ways_.back();
  const double unit = unitSize(Format::distance);
  if (all <= 0) return {};
  const double step = std::max(0.1, niceStep(all / unit / kMostTicks)) * unit;
  std::string scale;
  for (double distance = 0; distance <= all; distance += step) {
    scale += tick(distance / all, figures_.plain(Format::distance, distance));
  }
  return scale;
}

std::string Profiles::html(ProfileAxis axis) const {
  std::string html;
  for (const Plot& plot : plots()) html += plotHTML(plot, axis);
  return html + fmt::format("<div class=\"scale-x\" aria-hidden=\"true\">{}</div>",
                            axis == ProfileAxis::time ? timeScale() : distanceScale());
}

}  // namespace ombrix::hostapp
