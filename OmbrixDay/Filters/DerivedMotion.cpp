#include "OmbrixDay/Filters/DerivedMotion.hpp"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>
#include <vector>

#include "OmbrixDay/Filters/PlausibleFix.hpp"
#include "OmbrixDay/Filters/TimeSieve.hpp"

namespace ombrix {
namespace {

constexpr double kFarSeconds = 60;    // A neighbour further off gives way to a nearer one.
constexpr double kChordSeconds = 20;  // Places so far apart tell a way in spite of their noise,
constexpr double kChordMeters = 40;   // if this many metres apart;
constexpr double kMostChordSeconds = 60;
constexpr double kLeastWayMeters = 1000;  // this much of it is needed to judge,
constexpr double kLeastShare = 0.5;       // and true speeds explain this much of it.
constexpr double kMostShare = 2;          // Skiers turn, but not that much.

double timeOf(const CLLocation& fix) { return platform::timeIntervalSince1970(fix.timestamp); }

/// Whether a fix would count in statistics if it had a speed.
bool hasPlace(const CLLocation& fix) {
  CLLocation moving = fix;
  moving.speed = 0;
  return isOnGlobe(fix) && moving.isAccurateForStats();
}

/// The fixes whose places count, each later than the one before.
std::vector<CLLocation*> placesOf(std::span<CLLocation> fixes) {
  std::vector<CLLocation*> places;
  places.reserve(fixes.size());
  for (CLLocation& fix : fixes) {
    if (!hasPlace(fix)) continue;
    if (places.empty() || fix.timestamp > places.back()->timestamp) places.push_back(&fix);
  }
  return places;
}

/// Whether the speeds, if any, agree with the distances.
bool areSpeedsTrue(std::span<CLLocation* const> places) {
  double bySpeed = 0, byPlace = 0, speedWay = 0;
  const CLLocation* anchor = nullptr;
  const CLLocation* before = nullptr;
  for (const CLLocation* fix : places) {
    if (fix->speed < 0) {
      anchor = nullptr;
      continue;
    }
    if (anchor == nullptr || timeOf(*fix) - timeOf(*anchor) > kMostChordSeconds) {
      anchor = fix;
      speedWay = 0;
    } else {
      speedWay += (before->speed + fix->speed) / 2 * (timeOf(*fix) - timeOf(*before));
      if (timeOf(*fix) - timeOf(*anchor) >= kChordSeconds) {
        if (const double chord = fix->distanceFrom(*anchor); chord >= kChordMeters) {
          byPlace += chord;
          bySpeed += speedWay;
        }
        anchor = fix;
        speedWay = 0;
      }
    }
    before = fix;
  }
  return byPlace < kLeastWayMeters ||
         (bySpeed >= kLeastShare * byPlace && bySpeed <= kMostShare * byPlace);
}

}  // namespace

void sortByTime(std::span<CLLocation> fixes) {
  const auto time = [](const CLLocation& fix) {
    const double seconds = timeOf(fix);
    return std::isfinite(seconds) ? seconds : std::numeric_limits<double>::infinity();
  };
  if (!std::ranges::is_sorted(fixes, {}, time)) std::ranges::stable_sort(fixes, {}, time);
  constexpr std::size_t kFew = detail::TimeSieve::kFarWitnesses;
  std::size_t strayed = 0;
  for (std::size_t i = 1; i < fixes.size() && i - strayed < kFew; ++i) {
    if (time(fixes[i - 1]) - time(fixes[strayed]) >= detail::TimeSieve::kFarSeconds) break;
    if (time(fixes[i]) - time(fixes[i - 1]) > detail::TimeSieve::kLongestBreak) strayed = i;
  }
  // Few fixes days apart are a recording of their own kind.
  if (fixes.size() - strayed < kFew) return;
  std::ranges::rotate(fixes, fixes.begin() + static_cast<std::ptrdiff_t>(strayed));
}

bool deriveMissingMotion(std::span<CLLocation> fixes) {
  const std::vector<CLLocation*> places = placesOf(fixes);
  const bool areTrue = areSpeedsTrue(places);
  std::vector<bool> isMissing(places.size());
  for (std::size_t i = 0; i < places.size(); ++i) isMissing[i] = !areTrue || places[i]->speed < 0;
  bool hasDerived = false;
  for (std::size_t i = 0; i < places.size(); ++i) {
    if (!isMissing[i] || places.size() < 2) continue;
    CLLocation& fix = *places[i];
    const bool isLast = i + 1 == places.size();
    const double sinceBefore = i > 0 ? timeOf(fix) - timeOf(*places[i - 1]) : 0;
    const double untilNext = isLast ? 0 : timeOf(*places[i + 1]) - timeOf(fix);
    if (i > 0 && !isLast && !isMissing[i - 1] && !isMissing[i + 1] &&
        sinceBefore + untilNext <= kFarSeconds) {
      const double part = sinceBefore / (sinceBefore + untilNext);
      fix.speed = places[i - 1]->speed + part * (places[i + 1]->speed - places[i - 1]->speed);
    } else {
      const bool takesNext =
          i == 0 || (!isLast && sinceBefore > kFarSeconds && untilNext < sinceBefore);
      const CLLocation& from = takesNext ? fix : *places[i - 1];
      const CLLocation& to = takesNext ? *places[i + 1] : fix;
      fix.speed = to.horizontalSpeedFrom(from);
      if (fix.course < 0) fix.course = from.courseTo(to);
    }
    hasDerived = true;
  }
  return hasDerived;
}

}  // namespace ombrix
