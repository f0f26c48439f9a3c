#pragma once

#include <concepts>
#include <cstddef>
#include <functional>
#include <span>
#include <type_traits>

#include "OmbrixCore/Location/CLLocationCoordinate2D.hpp"
#include "OmbrixPlatform/Values/Date.hpp"

namespace ombrix {

/// One recorded fix. A plain value of 80 bytes: tracks are `std::vector<CLLocation>`.
///
/// Every operation is pure and may run on any thread. Equality and hash use the timestamp, the
/// coordinate on the microdegree grid, speed in cm/s, course in tenths of a degree and both
/// accuracies in decimetres, all truncated towards zero; they ignore altitude, `courseAccuracy` and
/// `speedAccuracy`. They stop the program for a value that is not finite or too large for 64 bits.
struct CLLocation {
  CLLocationCoordinate2D coordinate;
  double altitude = 0.0;             ///< metres
  double horizontalAccuracy = -1.0;  ///< metres; negative: invalid
  double verticalAccuracy = -1.0;    ///< metres; negative: invalid
  double course = -1.0;              ///< degrees from north; negative: invalid
  double courseAccuracy = -1.0;      ///< degrees; negative: invalid
  double speed = -1.0;               ///< metres per second; negative: invalid
  double speedAccuracy = -1.0;       ///< metres per second; negative: invalid
  platform::Date timestamp;

  friend bool operator==(const CLLocation& a, const CLLocation& b) {
    return a.isEqualToLocation(b);
  }

  /// Value equality; see above for the compared values and when it stops the program.
  [[nodiscard]] bool isEqualToLocation(const CLLocation& other) const;

  /// The same for a location that may be missing: null gives false.
  [[nodiscard]] bool isEqualToLocation(const CLLocation* other) const {
    return other != nullptr && isEqualToLocation(*other);
  }

  /// Equality with any type: by value with a location, or with a pointer or optional that holds
  /// one; false for an empty one and for anything that is not a location.
  template <class Other>
  [[nodiscard]] bool isEqual(const Other& other) const {
    if constexpr (std::convertible_to<const Other&, const CLLocation&>) {
      return isEqualToLocation(static_cast<const CLLocation&>(other));
    } else if constexpr (requires {
                           static_cast<bool>(other);
                           { *other } -> std::convertible_to<const CLLocation&>;
                         }) {
      return static_cast<bool>(other) && isEqualToLocation(static_cast<const CLLocation&>(*other));
    } else {
      return false;
    }
  }

  /// Consistent with equality. Stops the program in the same cases.
  [[nodiscard]] std::size_t hash() const;

  /// The largest accuracies, in metres, that count in statistics; initially 60, process-wide, not
  /// stored. Read and written on any thread: a reader gets the old or the new value.
  static double MinHorizontalAccuracyForStats();
  static void setMinHorizontalAccuracyForStats(double metres);
  static double MinVerticalAccuracyForStats();
  static void setMinVerticalAccuracyForStats(double metres);

  /// Whether statistics use this fix: both accuracies are within the limits and the speed is valid.
  [[nodiscard]] bool isAccurateForStats() const;

  /// Degrees of latitude per metre; `lon` is a latitude in degrees in spite of its name. Series of
  /// the WGS-84 meridian arc.
  static double metersToDegreesForLatAtLon(double lon);

  /// Degrees of longitude per metre at a latitude in degrees; unbounded towards the poles. Series
  /// of the WGS-84 parallel.
  static double metersToDegreesForLonAtLat(double lat);

  /// Metres along the WGS-84 geodesic between the coordinates; ignores altitude.
  [[nodiscard]] double distanceFrom(const CLLocation& other) const;

  /// Initial great-circle bearing to, or from, the other location's coordinate, degrees.
  [[nodiscard]] double courseTo(const CLLocation& other) const;
  [[nodiscard]] double courseFrom(const CLLocation& other) const;

  /// This fix with its coordinate moved; all other values, time included, stay the same.
  [[nodiscard]] CLLocation move(double onCourse, double distance) const;
  [[nodiscard]] CLLocation move(double onCourse, double atSpeed, double duration) const;

  /// This fix with another speed (m/s).
  [[nodiscard]] CLLocation replacingSpeed(double newSpeed) const;

  /// The magnitude of a velocity with these components, m/s.
  static double speedOfComponents(double horizontal, double vertical);

  /// Combines this fix's speed as the horizontal (vertical) component with the other component.
  [[nodiscard]] double speedByAddingVertical(double vertical) const;
  [[nodiscard]] double speedByAddingHorizontal(double horizontal) const;

  /// Ground speed in m/s since the other fix; never negative, 0 at equal timestamps.
  [[nodiscard]] double horizontalSpeedFrom(const CLLocation& other) const;

  /// The absolute rate of altitude change since the other fix, in metres per second; 0 at equal
  /// timestamps.
  [[nodiscard]] double verticalSpeedFrom(const CLLocation& other) const;

  /// The speed since the other fix from both components.
  [[nodiscard]] double speedFrom(const CLLocation& other) const;
};

static_assert(std::is_trivially_copyable_v<CLLocation> && sizeof(CLLocation) == 80);

/// The length of a track in metres, from fix to fix; 0 for fewer than two fixes. Cheaper than
/// summing `distanceFrom`, with the same result.
double distanceAlong(std::span<const CLLocation> track);

}  // namespace ombrix

template <>
struct std::hash<ombrix::CLLocation> {
  std::size_t operator()(const ombrix::CLLocation& value) const { return value.hash(); }
};
