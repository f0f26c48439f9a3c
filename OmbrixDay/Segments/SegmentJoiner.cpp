#include "OmbrixDay/Segments/SegmentJoiner.hpp"

#include <algorithm>
#include <cmath>

namespace ombrix::detail {
namespace {

constexpr double kLeastRunDropMeters = 25;
constexpr double kLeastRunSlope = 0.03;  // Of the way: flatter ones are for other sports.
constexpr double kLeastLiftRiseMeters = 15;
constexpr double kLeastLiftSlope = 0.06;
constexpr double kLeastLinkSlope = 0.04;       // Of a lift that links two mountains
constexpr double kLinkRiseMeters = 100;        // and rises so much.
constexpr double kLeastLiftSeconds = 30;       // Unless it is a part of another.
constexpr double kShortLiftSeconds = 60;       // Too short to point anywhere.
constexpr double kLeastPartMeters = 8;         // Of height, for a part of a ride,
constexpr double kRunMetersPerSecond = 4;      // Noise makes no such speed,
constexpr double kLeastPartMetersAhead = 50;   // and ahead: at rest noise goes nowhere.
constexpr double kMostHaltSeconds = 300;       // Between two parts of one run or lift.
constexpr double kMostClimbMeters = 40;        // Between two parts of one run.
constexpr double kMostShiftMeters = 40;        // Between two parts of one lift,
constexpr double kMostLineShiftMeters = 500;   // the same straight ahead,
constexpr double kMostBendDegrees = 20;        // and how far they may point apart.
constexpr double kShortWalkSeconds = 30;       // Between two pauses.
constexpr double kSlideSeconds = 60;           // A walk before or behind a ride,
constexpr double kSlipSeconds = 40;            // or what noise made a ride of the other kind,
constexpr double kSlideMetersPerSecond = 1.6;  // too fast for walking, is a part of it.
constexpr double kSlowLiftSlope = 0.08;        // Nobody walks up so fast where it is so steep.
constexpr double kSameSpeed = 1.25;            // Ratio of a lift's speeds before and after a halt,
constexpr double kMostSeemingDrop = 20;        // metres that noise makes where it does not halt,
constexpr double kSameLineDegrees = 10;        // and how far it may seem to turn there.
constexpr double kSlowPartSlope = 0.04;        // Less will do for a part of a lift,
constexpr double kSlowPartMetersPerSecond = 1.1;  // Halts included, where it climbs as fast;
constexpr double kSlowPartRise = 0.12;            // metres a second
constexpr double kSlowPartSeconds = 20;           // if it is no shorter
constexpr double kSlowPartStraight = 0.85;        // and as straight as noise leaves it.
constexpr double kDragLiftSeconds = 90;           // A lift as slow by itself,
constexpr double kDragLiftStraight = 0.85;        // in a line,
constexpr double kDragLiftRise = 0.2;  // climbs faster, in metres a second, than most legs do.

bool isRide(const Stretch& stretch) {
  return stretch.kind == SegmentKind::run || stretch.kind == SegmentKind::lift;
}

SegmentKind checkedKind(const Stretch& stretch) {
  const double rise = stretch.endAltitude - stretch.beginAltitude;
  if (stretch.kind == SegmentKind::run) {
    const double way = stretch.endDistance - stretch.beginDistance;
    const bool isFlat = -rise < std::max(kLeastRunDropMeters, kLeastRunSlope * way);
    if (isFlat) return SegmentKind::walk;
  }
  if (stretch.kind == SegmentKind::lift) {
    const double length = stretch.beginPlace.distanceTo(stretch.endPlace);
    const double slope = rise < kLinkRiseMeters ? kLeastLiftSlope : kLeastLinkSlope;
    if (rise < std::max(kLeastLiftRiseMeters, slope * length)) return SegmentKind::walk;
  }
  return stretch.kind;
}

/// A walk that may be a part of a drag lift.
/// @param isSteep Whether it is enough that nobody would walk there.
bool isSlowPart(const Stretch& stretch, bool isSteep = false) {
  const double seconds = stretch.end - stretch.begin;
  const double rise = stretch.endAltitude - stretch.beginAltitude;
  const double line = stretch.beginPlace.distanceTo(stretch.endPlace);
  const bool climbsFast =
      rise >= kSlowPartRise * seconds || (isSteep && rise >= kSlowLiftSlope * line);
  const bool isTooFast =
      line >= (climbsFast ? kSlowPartMetersPerSecond : kSlideMetersPerSecond) * seconds;
  return stretch.kind == SegmentKind::walk && seconds >= kSlowPartSeconds &&
         rise >= kSlowPartSlope * line && isTooFast &&
         line >= kSlowPartStraight * (stretch.endDistance - stretch.beginDistance);
}

/// Whether two stretches follow one line.
bool isInLine(const Stretch& before, const Stretch& after, double mostDegrees = kMostBendDegrees) {
  return CLLocationDegreesDifference(before.beginPlace.courseTo(before.endPlace),
                                     after.beginPlace.courseTo(after.endPlace)) <= mostDegrees;
}

double lineSpeed(const Stretch& stretch) {
  return stretch.beginPlace.distanceTo(stretch.endPlace) / (stretch.end - stretch.begin);
}

/// Whether a stretch that noise made something else of goes on where a lift has halted, or where it
/// looked like that: straight ahead, and as fast.
bool isSameLift(const Stretch& lift, const Stretch& after) {
  const double ratio = lineSpeed(after) / lineSpeed(lift);
  const double mostDrop = after.begin > lift.end ? kLeastPartMeters : kMostSeemingDrop;
  return after.begin - lift.end <= kMostHaltSeconds &&
         after.endAltitude > after.beginAltitude - mostDrop && ratio <= kSameSpeed &&
         ratio * kSameSpeed >= 1 &&
         after.beginPlace.distanceTo(after.endPlace) >= kLeastPartMetersAhead &&
         lift.endPlace.distanceTo(after.beginPlace) <= kMostShiftMeters &&
         isInLine(lift, after, kSameLineDegrees);
}

/// A lift that is slow enough to look like a walk.
bool isDragLift(const Stretch& stretch) {
  const double seconds = stretch.end - stretch.begin;
  const double rise = stretch.endAltitude - stretch.beginAltitude;
  const double line = stretch.beginPlace.distanceTo(stretch.endPlace);
  return seconds >= kDragLiftSeconds && rise >= kDragLiftRise * seconds &&
         rise >= kSlowLiftSlope * line &&
         line >= kDragLiftStraight * (stretch.endDistance - stretch.beginDistance);
}

/// What a stretch is when nothing joins it any more.
SegmentKind finalKind(const Stretch& stretch) {
  if (stretch.isSlow && !isDragLift(stretch)) return SegmentKind::walk;
  const SegmentKind kind = checkedKind(stretch);
  const bool isShort = stretch.end - stretch.begin < kLeastLiftSeconds;
  return kind == SegmentKind::lift && isShort ? SegmentKind::walk : kind;
}

/// The end, or the beginning, of a lift that looked like something else in between.
bool isShortLift(const Stretch& stretch) {
  return stretch.end - stretch.begin < kShortLiftSeconds &&
         checkedKind(stretch) == SegmentKind::lift;
}

/// What noise may have made a ride of.
bool isSlip(const Stretch& stretch) {
  return stretch.end - stretch.begin <= kSlipSeconds && checkedKind(stretch) == SegmentKind::walk;
}

/// The same of a lift: a run that begins or ends there without a halt.
bool isSlipOfLift(const Stretch& stretch) { return isSlip(stretch) && stretch.isAtLift; }

/// Whether a stretch may be a part of a ride. Of a lift noise may leave no height, but its line; of
/// a run its speed.
bool isPart(const Stretch& stretch) {
  const double rise = stretch.endAltitude - stretch.beginAltitude;
  const double way = stretch.endDistance - stretch.beginDistance;
  const bool isFast = way >= kRunMetersPerSecond * (stretch.end - stretch.begin);
  const bool isRun = rise <= (isFast ? kLeastPartMeters : -kLeastPartMeters);
  return (stretch.kind == SegmentKind::lift ? rise > -kLeastPartMeters : isRun) &&
         stretch.beginPlace.distanceTo(stretch.endPlace) >= kLeastPartMetersAhead;
}

bool continues(const Stretch& before, const Stretch& after) {
  if (before.kind != after.kind || after.begin - before.end > kMostHaltSeconds) return false;
  if (after.kind == SegmentKind::lift && (isShortLift(before) || isShortLift(after)) &&
      checkedKind(before) == checkedKind(after) &&
      after.beginAltitude > before.endAltitude - kLeastPartMeters) {
    return true;
  }
  if (!isPart(before) || !isPart(after)) return false;
  if (after.kind == SegmentKind::run) {
    if (isSlipOfLift(before) || isSlipOfLift(after)) return false;
    const double climb = after.beginAltitude - before.endAltitude;
    const double way = after.beginDistance - before.endDistance;
    return climb <= kMostClimbMeters || way < climb;  // Who stands does not climb.
  }
  // The halt itself looks like a ride where nothing was received meanwhile.
  const double course = before.beginPlace.courseTo(before.endPlace);
  const double shift = before.endPlace.distanceTo(after.beginPlace);
  const bool isAhead = CLLocationDegreesDifference(
                           course, before.endPlace.courseTo(after.beginPlace)) <= kMostBendDegrees;
  return (shift <= kMostShiftMeters || (isAhead && shift <= kMostLineShiftMeters)) &&
         CLLocationDegreesDifference(course, after.beginPlace.courseTo(after.endPlace)) <=
             kMostBendDegrees;
}

}  // namespace

void extend(Stretch& stretch, const Stretch& by) {
  stretch.end = by.end;
  stretch.endSample = by.endSample;
  stretch.endAltitude = by.endAltitude;
  stretch.endPlace = by.endPlace;
  stretch.endDistance = by.endDistance;
  stretch.isSlow = stretch.isSlow && by.isSlow;
}

/// A ride that begins or ends gently looks like a walk there.
void SegmentJoiner::absorbSlides() {
  const auto isSlide = [](const Stretch& stretch) {
    const double seconds = stretch.end - stretch.begin;
    const double way = stretch.endDistance - stretch.beginDistance;
    return checkedKind(stretch) == SegmentKind::walk && !stretch.isSlow &&
           seconds <= (isRide(stretch) ? kSlipSeconds : kSlideSeconds) &&
           way >= kSlideMetersPerSecond * seconds;
  };
  if (waiting_.size() < 2) return;
  Stretch& last = waiting_.back();
  Stretch& before = waiting_[waiting_.size() - 2];
  if (isRide(last) && !isSlide(last) && isSlide(before)) {
    const SegmentKind kind = last.kind;
    extend(before, last);
    before.kind = kind;
    waiting_.pop_back();
  } else if (isRide(before) && !isSlide(before) && isSlide(last)) {
    extend(before, last);
    waiting_.pop_back();
  }
}

/// A short run joins the one before it only where it does not pass into a lift.
void SegmentJoiner::joinSlip(SegmentKind next) {
  if (waiting_.empty() || waiting_.back().kind != SegmentKind::run || !isSlip(waiting_.back())) {
    return;
  }
  waiting_.back().isAtLift |= next == SegmentKind::lift;
  joinGrown();
}

/// A ride that has grown may be large enough now to go on with the one before it.
void SegmentJoiner::joinGrown() {
  if (waiting_.empty() || !isRide(waiting_.back())) return;
  const Stretch grown = waiting_.back();
  waiting_.pop_back();
  if (!joinsEarlier(grown)) waiting_.push_back(grown);
}

/// Joins a ride with the ride before it, over pauses and walks between the two.
bool SegmentJoiner::joinsEarlier(const Stretch& stretch) {
  for (std::size_t i = waiting_.size(); i-- > 0;) {
    if (waiting_[i].isBreak) return false;
    if (!isRide(waiting_[i])) continue;
    if (!continues(waiting_[i], stretch)) {
      if (finalKind(waiting_[i]) == waiting_[i].kind) return false;
      continue;  // Too little to stand between two parts.
    }
    extend(waiting_[i], stretch);
    waiting_.resize(i + 1);
    return true;
  }
  return false;
}

/// Lets a lift go on over a stretch that noise made something else of.
bool SegmentJoiner::goesOnAsLift(const Stretch& stretch) {
  if (stretch.isBreak || stretch.kind == SegmentKind::pause) return false;
  if (checkedKind(stretch) != SegmentKind::walk) return false;
  std::size_t at = waiting_.size();
  while (at > 0 && waiting_[at - 1].kind == SegmentKind::pause && !waiting_[at - 1].isBreak) --at;
  if (at == 0 || waiting_[at - 1].kind != SegmentKind::lift) return false;
  if (!isSameLift(waiting_[at - 1], stretch)) return false;
  extend(waiting_[at - 1], stretch);
  waiting_.resize(at);
  return true;
}

void SegmentJoiner::add(Stretch stretch, std::vector<Stretch>& final) {
  joinSlip(isSlowPart(stretch) ? SegmentKind::lift : stretch.kind);
  if (goesOnAsLift(stretch)) return;
  const std::size_t count = waiting_.size();
  const bool follows = count > 0 && !stretch.isBreak && !waiting_.back().isBreak;
  const bool isAtLift = follows && waiting_.back().kind == SegmentKind::lift;
  if (isSlowPart(stretch, isAtLift) && (!isAtLift || isInLine(waiting_.back(), stretch))) {
    stretch.kind = SegmentKind::lift;
    stretch.isSlow = true;
  }
  if (follows && stretch.kind == SegmentKind::lift && isSlowPart(waiting_.back(), true) &&
      isInLine(waiting_.back(), stretch)) {
    waiting_.back().kind = SegmentKind::lift;
    waiting_.back().isSlow = true;
    joinGrown();
  }
  stretch.isAtLift = isAtLift && stretch.kind == SegmentKind::run;
  const bool mayPassIntoLift = stretch.kind == SegmentKind::run && isSlip(stretch);
  if (isRide(stretch) && !mayPassIntoLift && joinsEarlier(stretch)) return;
  if (follows && waiting_.back().kind == stretch.kind) {
    extend(waiting_.back(), stretch);
    joinGrown();
  } else if (follows && count > 1 && stretch.kind == SegmentKind::pause &&
             waiting_.back().kind == SegmentKind::walk &&
             waiting_[count - 2].kind == SegmentKind::pause && !waiting_[count - 2].isBreak &&
             waiting_.back().end - waiting_.back().begin <= kShortWalkSeconds) {
    waiting_.pop_back();
    extend(waiting_.back(), stretch);
  } else {
    waiting_.push_back(stretch);
    absorbSlides();
    if (!mayPassIntoLift) joinGrown();
  }

  // What lies before the last ride is final, unless that may grow and join; and a ride that ended
  // long ago is final too.
  const Stretch& last = waiting_.back();
  const bool mayJoin = isRide(last) && (isSlip(last) || !isPart(last) || isShortLift(last));
  std::size_t keep = waiting_.size() - 1;
  for (std::size_t i = keep + (mayJoin ? 0 : 1); i-- > 0;) {
    if (waiting_[i].isBreak) break;
    if (!isRide(waiting_[i])) continue;
    if ((mayJoin ? last.begin : last.end) - waiting_[i].end <= kMostHaltSeconds) keep = i;
    break;
  }
  handOver(keep, final);
}

void SegmentJoiner::finish(std::vector<Stretch>& final) {
  joinSlip(SegmentKind::pause);
  handOver(waiting_.size(), final);
}

void SegmentJoiner::handOver(std::size_t count, std::vector<Stretch>& final) {
  for (std::size_t i = 0; i < count; ++i) {
    waiting_[i].kind = finalKind(waiting_[i]);
    final.push_back(waiting_[i]);
  }
  waiting_.erase(waiting_.begin(), waiting_.begin() + static_cast<std::ptrdiff_t>(count));
}

}  // namespace ombrix::detail
