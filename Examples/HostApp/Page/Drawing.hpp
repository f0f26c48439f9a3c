#pragma once

#include <span>
#include <string>
#include <vector>

namespace ombrix::hostapp {

/// A place on the page's drawings, in units of their view box; y grows downwards.
struct Point {
  double x = 0, y = 0;
};

/// The points without those that lie within `tolerance` of the line through the points kept around
/// them; the first and the last one stay. After Douglas and Peucker (1973).
std::vector<Point> simplified(std::span<const Point> points, double tolerance);

/// A line through the points as the "d" of an SVG path, in tenths of a unit.
std::string pathData(std::span<const Point> points);

/// A number of a drawing in tenths, as short as it can be written.
std::string coordinate(double value);

/// The smallest number of the form 1, 2 or 5 times a power of ten that is at least `value`, which
/// is above 0.
double niceStep(double value);

}  // namespace ombrix::hostapp
