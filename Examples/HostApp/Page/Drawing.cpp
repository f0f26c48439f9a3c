#include "Examples/HostApp/Page/Drawing.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <utility>

namespace ombrix::hostapp {
namespace {

double distanceToLine(Point point, Point a, Point b) {
  const double dx = b.x - a.x, dy = b.y - a.y;
  const double square = dx * dx + dy * dy;
  if (square == 0) return std::hypot(point.x - a.x, point.y - a.y);
  const double along = std::clamp(((point.x - a.x) * dx + (point.y - a.y) * dy) / square, 0.0, 1.0);
  return std::hypot(point.x - a.x - along * dx, point.y - a.y - along * dy);
}

std::int64_t tenths(double value) { return std::llround(value * 10); }

std::string tenthsText(std::int64_t value) {
  if (value % 10 == 0) return fmt::format("{}", value / 10);
  const std::int64_t magnitude = std::abs(value);
  return fmt::format("{}{}.{}", value < 0 ? "-" : "", magnitude / 10, magnitude % 10);
}

}  // namespace

std::vector<Point> simplified(std::span<const Point> points, double tolerance) {
  if (points.size() < 3) return {points.begin(), points.end()};
  std::vector<bool> kept(points.size(), false);
  kept.front() = kept.back() = true;
  std::vector<std::pair<std::size_t, std::size_t>> stretches{{0, points.size() - 1}};
  while (!stretches.empty()) {
    const auto [first, last] = stretches.back();
    stretches.pop_back();
    std::size_t furthest = first;
    double distance = tolerance;
    for (std::size_t i = first + 1; i < last; ++i) {
      const double away = distanceToLine(points[i], points[first], points[last]);
      if (away > distance) {
        distance = away;
        furthest = i;
      }
    }
    if (furthest == first) continue;
    kept[furthest] = true;
    stretches.emplace_back(first, furthest);
    stretches.emplace_back(furthest, last);
  }
  std::vector<Point> line;
  for (std::size_t i = 0; i < points.size(); ++i) {
    if (kept[i]) line.push_back(points[i]);
  }
  return line;
}

std::string coordinate(double value) { return tenthsText(tenths(value)); }

std::string pathData(std::span<const Point> points) {
  if (points.empty()) return {};
  std::int64_t x = tenths(points[0].x), y = tenths(points[0].y);
  std::string data = fmt::format("M{} {}l", tenthsText(x), tenthsText(y));
  for (const Point& point : points.subspan(1)) {
    const std::int64_t nextX = tenths(point.x), nextY = tenths(point.y);
    if (nextX == x && nextY == y) continue;
    data += fmt::format("{} {} ", tenthsText(nextX - x), tenthsText(nextY - y));
    x = nextX;
    y = nextY;
  }
  // A line without a length is drawn as a dot by its round ends.
  if (data.back() == 'l') return data + "0 0";
  data.pop_back();
  return data;
}

double niceStep(double value) {
  const double power = std::pow(10, std::floor(std::log10(value)));
  for (const double factor : {1.0, 2.0, 5.0}) {
    if (factor * power >= value) return factor * power;
  }
  return 10 * power;
}

}  // namespace ombrix::hostapp
