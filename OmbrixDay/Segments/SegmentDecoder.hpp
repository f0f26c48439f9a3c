#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "OmbrixDay/Measuring/Day.hpp"
#include "OmbrixDay/Segments/MotionTicks.hpp"

namespace ombrix::detail {

inline constexpr std::size_t kKinds = 4;

/// How well a motion fits each kind of segment: natural logarithms of densities, by the order of
/// `SegmentKind`.
std::array<double, kKinds> fitOf(const Motion& motion);

/// Finds the likeliest sequence of kinds behind a sequence of motions, one tick after another.
///
/// A hidden Markov model with a state for each kind, decoded by Viterbi's algorithm online: a tick
/// is decided when all surviving paths agree on it, at the latest `kMostPending` ticks later.
/// Sources: Rabiner, "A tutorial on hidden Markov models" (1989); Bloit and Rodet, "Short-time
/// Viterbi for online HMM decoding" (2008).
class SegmentDecoder {
 public:
  static constexpr std::size_t kMostPending = 256;

  /// Takes the motion of the next tick and appends the kinds of the ticks decided now.
  void push(const Motion& motion, std::vector<SegmentKind>& decided);

  /// Decides all ticks that are pending and starts again.
  void finish(std::vector<SegmentKind>& decided);

  /// The likeliest kind of the newest tick so far.
  [[nodiscard]] SegmentKind likeliest() const;

  [[nodiscard]] std::size_t pending() const { return ticks_ - decided_; }

 private:
  using Backs = std::array<std::uint8_t, kKinds>;  ///< For each state the best previous one.

  void decideUpTo(std::size_t tick, std::size_t state, std::vector<SegmentKind>& decided);

  std::array<double, kKinds> scores_{};
  std::array<Backs, kMostPending> backs_;
  std::size_t ticks_ = 0, decided_ = 0;
};

}  // namespace ombrix::detail
