#include "Examples/HostApp/Terminal/DayChart.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <vector>

#include "Examples/HostApp/Terminal/StyledText.hpp"
#include "Examples/HostApp/Terminal/TextTable.hpp"
#include "Examples/HostApp/Texts/Text.hpp"

namespace ombrix::hostapp {
namespace {

using Format = FigureTexts::Format;
using platform::UIColor;

constexpr std::size_t kRows = 7;
constexpr std::size_t kMostColumns = 100, kLeastColumns = 20;
constexpr std::size_t kDotsAcross = 2, kDotsUp = 4;  // In a braille cell.

constexpr UIColor rgb(int red, int green, int blue) {
  return {red / 255.0, green / 255.0, blue / 255.0};
}

// From slow to fast, as on the page.
constexpr std::array kSpeedColours = {rgb(59, 111, 182), rgb(42, 157, 196), rgb(47, 174, 143),
                                      rgb(134, 184, 59), rgb(223, 174, 31), rgb(232, 118, 45),
                                      rgb(210, 51, 76)};
constexpr UIColor kLiftColour = rgb(138, 125, 95), kRestColour = rgb(120, 130, 138);

/// One column of dots.
struct Column {
  double altitude = 0;
  double speed = 0;
  SegmentKind kind = SegmentKind::pause;
};

/// The samples of equal shares of the day's time; a share without any is like the one before.
std::vector<Column> columnsOver(const Day& day, std::size_t count) {
  const auto begin = day.samples.front().time;
  const double span = std::max((day.samples.back().time - begin).count(), 1.0);
  std::vector<Column> columns(count);
  std::vector<std::size_t> samples(count, 0);
  auto segment = day.segments.begin();
  for (std::size_t i = 0; i < day.samples.size(); ++i) {
    while (segment != day.segments.end() && segment->endSample <= i) ++segment;
    const DaySample& sample = day.samples[i];
    const double share = (sample.time - begin).count() / span;
    const auto at =
        std::min(static_cast<std::size_t>(share * static_cast<double>(count)), count - 1);
    columns[at].altitude += sample.altitude;
    columns[at].speed += sample.speed;
    if (segment != day.segments.end()) columns[at].kind = segment->kind;
    ++samples[at];
  }
  for (std::size_t i = 0; i < count; ++i) {
    if (samples[i] > 0) {
      columns[i].altitude /= static_cast<double>(samples[i]);
      columns[i].speed /= static_cast<double>(samples[i]);
    } else if (i > 0) {
      columns[i] = {columns[i - 1].altitude, 0, SegmentKind::pause};
    }
  }
  return columns;
}

UIColor colourOf(const Column& column, double fastest) {
  if (column.kind == SegmentKind::lift) return kLiftColour;
  if (column.kind != SegmentKind::run || fastest <= 0) return kRestColour;
  const auto most = kSpeedColours.size();
  return kSpeedColours[std::min(
      static_cast<std::size_t>(column.speed / fastest * static_cast<double>(most)), most - 1)];
}

/// The braille character with these dots set: bit 4 * x + y, y from the top.
std::string brailleCell(unsigned dots) {
  // Unicode numbers the dots of the upper three rows first, then those of the lowest one.
  constexpr std::array kBits = {0x01, 0x02, 0x04, 0x40, 0x08, 0x10, 0x20, 0x80};
  unsigned code = 0x2800;
  for (std::size_t i = 0; i < kBits.size(); ++i) {
    if (((dots >> i) & 1U) != 0) code |= static_cast<unsigned>(kBits[i]);
  }
  return {static_cast<char>(0xE0 | (code >> 12)), static_cast<char>(0x80 | ((code >> 6) & 0x3F)),
          static_cast<char>(0x80 | (code & 0x3F))};
}

std::string paddedLeft(const std::string& text, std::size_t width) {
  const std::size_t columns = columnsOf(text);
  return std::string(width > columns ? width - columns : 0, ' ') + text;
}

/// Times at the chart's left edge, middle and right edge, if there is room.
std::string timeLine(const Day& day, FigureTexts& figures, std::size_t width) {
  const auto begin = day.samples.front().time, end = day.samples.back().time;
  const auto clock = [&](platform::Date time) {
    return figures.date(FigureTexts::DateStyle::clock, time);
  };
  std::string line = clock(begin);
  const std::string middle = clock(begin + (end - begin) / 2), last = clock(end);
  const std::size_t middleBegin = (width - std::min(width, columnsOf(middle))) / 2;
  if (middleBegin > columnsOf(line) && width / 2 > columnsOf(middle) / 2 + columnsOf(last) + 1) {
    line += paddedLeft(middle, middleBegin + columnsOf(middle) - columnsOf(line));
  }
  if (columnsOf(line) + columnsOf(last) < width) {
    line += paddedLeft(last, width - columnsOf(line));
  }
  return line;
}

}  // namespace

std::string dayChart(const Day& day, FigureTexts& figures, std::size_t columns, bool isStyled) {
  if (day.samples.empty() || !day.totals.maxAltitude) return {};
  const auto [lowest, highest] =
      std::ranges::minmax(day.samples, {}, [](const DaySample& each) { return each.altitude; });
  const double low = lowest.altitude, high = highest.altitude;
  const std::string top = figures.plain(Format::altitude, high),
                    bottom = figures.plain(Format::altitude, low);
  const std::size_t gutter = std::max(columnsOf(top), columnsOf(bottom)) + 3;
  if (columns < gutter + kLeastColumns) return {};
  const std::size_t width = std::min(columns, kMostColumns) - gutter;

  const auto dots = columnsOver(day, width * kDotsAcross);
  const double fastest = day.totals.run.maxSpeedMetersPerSecond;
  // A flat profile stays at the bottom, and the lowest point shows a dot.
  const double rise = std::max(high - low, 50.0);
  constexpr double kMostDots = kRows * kDotsUp - 1;
  std::string chart;
  for (std::size_t row = 0; row < kRows; ++row) {
    const std::string& label = row == 0 ? top : row + 1 == kRows ? bottom : "";
    chart += paddedLeft(label, gutter - 1) + " ";
    for (std::size_t cell = 0; cell < width; ++cell) {
      unsigned set = 0;
      for (std::size_t x = 0; x < kDotsAcross; ++x) {
        const double height =
            1 + std::round((dots[cell * kDotsAcross + x].altitude - low) / rise * kMostDots);
        for (std::size_t y = 0; y < kDotsUp; ++y) {
          const auto fromBottom = (kRows - row) * kDotsUp - y;
          if (static_cast<double>(fromBottom) <= height) set |= 1U << (kDotsUp * x + y);
        }
      }
      const std::string drawn = set == 0 ? " " : brailleCell(set);
      chart += isStyled && set != 0 ? inColour(drawn, colourOf(dots[cell * kDotsAcross], fastest))
                                    : drawn;
    }
    while (chart.ends_with(' ')) chart.pop_back();
    chart += '\n';
  }
  chart += std::string(gutter, ' ') + timeLine(day, figures, width) + '\n';
  if (!isStyled || fastest <= 0) return chart;
  std::string ramp;
  for (const UIColor& colour : kSpeedColours) ramp += inColour("▄", colour);
  return chart + fmt::format("{}{} {} {}   {} {}\n", std::string(gutter, ' '),
                             figures.plain(Format::speed, 0), ramp,
                             figures.plain(Format::speed, fastest), inColour("▄", kLiftColour),
                             text("Lift"));
}

std::string bar(double share, std::size_t columns) {
  constexpr std::array kParts = {"", "▏", "▎", "▍", "▌", "▋", "▊", "▉"};
  const double eighths = std::clamp(share, 0.0, 1.0) * static_cast<double>(columns) * 8;
  const auto whole = static_cast<std::size_t>(std::lround(eighths));
  std::string drawn;
  for (std::size_t i = 0; i < whole / 8; ++i) drawn += "█";
  return drawn + kParts[whole % 8];
}

}  // namespace ombrix::hostapp
