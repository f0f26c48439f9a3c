#include "OmbrixDay/Measuring/Detail/VerticalMeter.hpp"

#include <algorithm>

namespace ombrix::detail {

void VerticalMeter::addLeg(double to) {
  (to > turn_ ? ascent_ : descent_) += to > turn_ ? to - turn_ : turn_ - to;
  turn_ = to;
}

void VerticalMeter::push(double altitude) {
  high_ = std::max(high_, altitude);
  low_ = std::min(low_, altitude);
  if (heading_ != Heading::down && high_ - altitude >= turnaround_) {
    // A first swing below the turnaround is not worth a leg of its own.
    if (heading_ == Heading::up || high_ - turn_ >= turnaround_) addLeg(high_);
    heading_ = Heading::down;
    low_ = altitude;
  } else if (heading_ != Heading::up && altitude - low_ >= turnaround_) {
    if (heading_ == Heading::down || turn_ - low_ >= turnaround_) addLeg(low_);
    heading_ = Heading::up;
    high_ = altitude;
  }
}

void VerticalMeter::finish(double end) {
  if (heading_ == Heading::up && high_ - end >= turnaround_) addLeg(high_);
  if (heading_ == Heading::down && end - low_ >= turnaround_) addLeg(low_);
  addLeg(end);
}

}  // namespace ombrix::detail
