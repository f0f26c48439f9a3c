#pragma once

#include <array>
#include <cstddef>
#include <vector>

#include "OmbrixDay/Filters/FixSieve.hpp"

namespace ombrix::detail {

/// Length of a tick, the step in which motion is judged, seconds.
inline constexpr double kTickSeconds = 5;

/// The motion around a tick.
struct Motion {
  double speed = 0;          ///< m/s over ground, by displacement or by the receiver
  double verticalSpeed = 0;  ///< m/s, up is positive
  double straightness = 1;   ///< displacement over path, 0 to 1
};

/// Averages fixes over ticks and computes the motion around each tick.
///
/// Averaging takes white noise out of positions; what stays is judged over two ticks to either
/// side, so a motion is known two ticks late. Ticks without a fix are filled along the straight
/// line between their neighbours: in a cabin without reception the lift ride goes on. The length
/// that noise adds to the distance between two ticks is subtracted, estimated by how far fixes lie
/// from their neighbours' line.
class MotionTicks {
 public:
  /// Starts again at a time (seconds); ticks count from here.
  void restart(double time);

  /// Takes a fix, and appends the motions of the ticks that are known now.
  void push(const CleanFix& fix, std::vector<Motion>& motions);

  /// Appends the motions of all ticks begun.
  void finish(std::vector<Motion>& motions);

 private:
  struct Tick {
    double time = 0, east = 0, north = 0, altitude = 0, speed = 0;
    double variance = 0;  ///< Of the noise that is left in a coordinate, square metres.
  };
  static constexpr std::size_t kReach = 2;
  static constexpr std::size_t kRing = 8;

  const Tick& at(std::size_t index) const { return ring_[index % kRing]; }
  void closeTick(std::vector<Motion>& motions);
  void append(const Tick& tick, std::vector<Motion>& motions);
  [[nodiscard]] Motion motionAround(std::size_t index) const;

  void learnNoise(const CleanFix& fix);

  double start_ = 0;
  double deviation_ = 4;  ///< Mean distance of a fix from the line between its neighbours, metres.
  CleanFix last_, lastButOne_;
  std::size_t taken_ = 0;
  Tick sum_;
  std::size_t count_ = 0;   ///< Fixes in the open tick.
  std::size_t open_ = 0;    ///< Index of the open tick.
  std::size_t closed_ = 0;  ///< Ticks in the ring so far.
  std::size_t told_ = 0;    ///< Motions handed out so far.
  std::array<Tick, kRing> ring_;
};

}  // namespace ombrix::detail
