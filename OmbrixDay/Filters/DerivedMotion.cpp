#include "OmbrixDay/Filters/DerivedMotion.hpp"

#include <algorithm>

#include "OmbrixDay/Filters/PlausibleFix.hpp"

namespace ombrix {

bool deriveMissingMotion(std::span<CLLocation> fixes) {
  const auto tellsSpeed = [](const CLLocation& fix) { return isOnGlobe(fix) && fix.speed >= 0; };
  if (std::ranges::any_of(fixes, tellsSpeed)) return false;
  CLLocation* first = nullptr;
  CLLocation* before = nullptr;
  bool hasDerived = false;
  for (CLLocation& fix : fixes) {
    if (!isOnGlobe(fix)) continue;
    if (before == nullptr) {
      first = &fix;
    } else if (fix.timestamp > before->timestamp) {
      fix.speed = fix.horizontalSpeedFrom(*before);
      if (fix.course < 0) fix.course = before->courseTo(fix);
      if (!hasDerived) {
        first->speed = fix.speed;
        if (first->course < 0) first->course = fix.course;
        hasDerived = true;
      }
    }
    before = &fix;
  }
  return hasDerived;
}

}  // namespace ombrix
