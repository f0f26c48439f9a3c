#pragma once

#include <string>
#include <vector>

#include "Examples/HostApp/Page/Drawing.hpp"
#include "Examples/HostApp/Texts/FigureTexts.hpp"
#include "OmbrixDay/Measuring/Day.hpp"

namespace ombrix::hostapp {

/// The track of a day on a map without tiles: runs coloured by speed, lifts dashed, both numbered.
/// On a day without lifts the walks are coloured, too.
class TrackMap {
 public:
  static constexpr int kSpeedClasses = 7;

  /// @param day With at least one sample; must outlive the map, as `figures` must.
  /// @param coarseness How much further than usual a line may run beside its points, from 1 up.
  TrackMap(const Day& day, FigureTexts& figures, double coarseness = 1);

  /// The drawing's width and height in units of its view box.
  [[nodiscard]] double width() const noexcept { return kWidth; }
  [[nodiscard]] double height() const noexcept { return height_; }

  /// The part of the drawing's width that a narrow screen shows, in which a tall track fills it.
  [[nodiscard]] double narrowWidth() const noexcept { return narrowWidth_; }

  /// The place of a sample on the drawing.
  [[nodiscard]] const Point& place(std::size_t sample) const { return places_[sample]; }

  /// The SVG elements within the root: lines in the classes "run s0" to "run s6", "lift" and
  /// "walk", each group with its segment's index in data-segment, and the numbers.
  [[nodiscard]] std::string elements() const;

  /// The same lines for a small picture: one path a kind, in these colours. On a day without runs
  /// and lifts all tracks are drawn like runs.
  [[nodiscard]] std::string outline(const std::string& runColour,
                                    const std::string& liftColour) const;

  /// A bar of a round length in the user's units, with that length as its text.
  [[nodiscard]] std::string scaleBar() const;

  /// The speed in m/s at which the fastest class begins to be full.
  [[nodiscard]] double fastest() const noexcept { return fastest_; }

 private:
  static constexpr double kWidth = 1000;

  [[nodiscard]] std::vector<Point> placesOf(const DaySegment& segment) const;
  [[nodiscard]] int speedClass(double speed) const;
  [[nodiscard]] std::string runElements(const DaySegment& segment) const;
  [[nodiscard]] std::string badges() const;
  [[nodiscard]] bool isColoured(SegmentKind kind) const;

  const Day& day_;
  FigureTexts& figures_;
  std::vector<Point> places_;  // one a sample
  double height_ = 0, narrowWidth_ = kWidth;
  double unitsPerMeter_ = 1;
  double fastest_ = 1;
  double tolerance_;
};

}  // namespace ombrix::hostapp
