#pragma once

namespace ombrix::detail {

/// Adds up climbs and drops between two known altitudes, turning round only after a swing.
///
/// A swing smaller than the turnaround is noise and counts as nothing. Ascent minus descent always
/// equals the difference of the two known altitudes.
class VerticalMeter {
 public:
  /// @param begin metres  @param turnaround metres, more than 0
  VerticalMeter(double begin, double turnaround)
      : turnaround_(turnaround), turn_(begin), high_(begin), low_(begin) {}

  void push(double altitude);

  /// Ends at a known altitude.
  void finish(double end);

  [[nodiscard]] double ascent() const { return ascent_; }
  [[nodiscard]] double descent() const { return descent_; }

 private:
  enum class Heading { unknown, up, down };

  void addLeg(double to);

  double turnaround_;
  double turn_;        ///< Altitude of the last turning point.
  double high_, low_;  ///< Extremes since.
  double ascent_ = 0, descent_ = 0;
  Heading heading_ = Heading::unknown;
};

}  // namespace ombrix::detail
