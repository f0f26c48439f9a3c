#pragma once

#include <string>
#include <vector>

#include "Examples/HostApp/Texts/FigureTexts.hpp"
#include "OmbrixDay/Measuring/Day.hpp"

namespace ombrix::hostapp {

/// The axis of the profiles.
enum class ProfileAxis { time, distance };

/// Altitude, speed and, if it was recorded, heart rate over time or distance.
class Profiles {
 public:
  /// @param day With at least one sample; must outlive the profiles, as `figures` must.
  /// @param coarseness How much further than usual a line may run beside its points, from 1 up.
  Profiles(const Day& day, FigureTexts& figures, double coarseness = 1);

  /// The plots over one axis, one below the other, with their scales.
  [[nodiscard]] std::string html(ProfileAxis axis) const;

  /// The place of a sample on an axis, from 0 to 1.
  [[nodiscard]] double position(ProfileAxis axis, std::size_t sample) const;

  /// The metres from the day's beginning to a sample, pauses left out as in the day's total.
  [[nodiscard]] double way(std::size_t sample) const { return ways_[sample]; }

  /// Whether nothing is drawn between a sample and the one before: recording had stopped for long.
  [[nodiscard]] bool isBehindBreak(std::size_t sample) const;

  [[nodiscard]] bool hasHeartRates() const noexcept { return hasHeartRates_; }

 private:
  struct Plot;

  [[nodiscard]] std::vector<Plot> plots() const;
  [[nodiscard]] std::string plotHTML(const Plot& plot, ProfileAxis axis) const;
  [[nodiscard]] std::string bands(ProfileAxis axis) const;
  [[nodiscard]] std::string timeScale() const;
  [[nodiscard]] std::string distanceScale() const;

  const Day& day_;
  FigureTexts& figures_;
  std::vector<double> ways_;  ///< By sample.
  bool hasHeartRates_ = false;
  double tolerance_;
};

}  // namespace ombrix::hostapp
