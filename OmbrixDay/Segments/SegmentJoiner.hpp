#pragma once

#include <cstddef>
#include <vector>

#include "OmbrixCore/Location/CLLocationCoordinate2D.hpp"
#include "OmbrixDay/Measuring/Day.hpp"

namespace ombrix::detail {

/// A stretch of one kind, before its figures are taken.
struct Stretch {
  SegmentKind kind = SegmentKind::pause;
  double begin = 0, end = 0;  ///< seconds since 1970
  std::size_t firstSample = 0, endSample = 0;
  double beginAltitude = 0, endAltitude = 0;  ///< metres, means around the ends
  double beginDistance = 0, endDistance = 0;  ///< metres since the day's beginning
  CLLocationCoordinate2D beginPlace, endPlace;
  bool isBreak = false;   ///< Nothing was recorded meanwhile; it joins with nothing.
  bool isSlow = false;    ///< A lift that was decoded as a walk.
  bool isAtLift = false;  ///< A lift was left, or will be boarded, without a halt.
};

/// Lets a stretch end where another one ends.
void extend(Stretch& stretch, const Stretch& by);

/// Makes of decoded stretches what skiers count: one run however often one stops on the slope, one
/// lift however often it halts, no run or lift of a few metres.
class SegmentJoiner {
 public:
  /// Adds the next stretch and appends to `final` the ones that cannot change any more. Two of the
  /// same kind may follow each other there, where the first was too little for a ride.
  void add(Stretch stretch, std::vector<Stretch>& final);

  /// Appends all that wait.
  void finish(std::vector<Stretch>& final);

  /// The stretches that may still change.
  [[nodiscard]] const std::vector<Stretch>& waiting() const { return waiting_; }

 private:
  void absorbSlides();
  void joinSlip(SegmentKind next);
  void joinGrown();
  bool joinsEarlier(const Stretch& stretch);
  bool goesOnAsLift(const Stretch& stretch);
  void handOver(std::size_t count, std::vector<Stretch>& final);

  std::vector<Stretch> waiting_;
};

}  // namespace ombrix::detail
