#include "OmbrixDay/Filters/DerivedMotion.hpp"

#include <algorithm>

namespace ombrix {

bool deriveMissingMotion(std::span<CLLocation> fixes) {
  const auto hasSpeed = [](const CLLocation& fix) { return fix.speed >= 0; };
  if (fixes.size() < 2 || std::ranges::any_of(fixes, hasSpeed)) return false;
  for (std::size_t i = 1; i < fixes.size(); ++i) {
    const CLLocation& before = fixes[i - 1];
    if (!(fixes[i].timestamp > before.timestamp)) continue;
    fixes[i].speed = fixes[i].horizontalSpeedFrom(before);
    if (fixes[i].course < 0) fixes[i].course = before.courseTo(fixes[i]);
  }
  fixes[0].speed = fixes[1].speed;
  if (fixes[0].course < 0) fixes[0].course = fixes[1].course;
  return true;
}

}  // namespace ombrix
