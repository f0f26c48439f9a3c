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
/// Every operation is pure and may run on any thread. Equality and hash look at the timestamp, the
/// coordinate on the microdegree grid, speed in cm/s, course in tenths of a degree and both
/// accuracies in decimetres, all cut towards zero; altitude, `courseAccuracy` and `speedAccuracy`
/// take no part. A value that is not finite, or too large for 64 bits, stops the program there.
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

  /// Value equality; see above for what it compares and when it stops the program.
  [[nodiscard]] bool isEqualToLocation(const CLLocation& other) const;

  /// The same for a location that may be missing: null gives false.
  [[nodiscard]] bool isEqualToLocation(const CLLocation* other) const {
    return other != nullptr && isEqualToLocation(*other);
  }

  /// Equality with anything: a location, or a pointer or optional that may hold one, by value;
  /// whatever is missing or is not a location gives false.
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

  /// Agrees with the equality. Stops the program as the equality does.
  [[nodiscard]] std::size_t hash() const;

  /// The largest accuracies, in metres, that count in statistics; 60 at start, process-wide, not
  /// stored. Read and written on any thread: a reader gets the old or the new value.
  static double MinHorizontalAccuracyForStats();
  static void setMinHorizontalAccuracyForStats(double metres);
  static double MinVerticalAccuracyForStats();
  static void setMinVerticalAccuracyForStats(double metres);

  /// Whether this fix counts in statistics: both accuracies within the limits and a valid speed.
  [[nodiscard]] bool isAccurateForStats() const;

  /// Degrees of latitude per metre; `lon` is used as a latitude in degrees. Series of the WGS-84
  /// meridian arc.
  static double metersToDegreesForLatAtLon(double lon);

  /// Degrees of longitude per metre at a latitude in degrees; grows without bound at the poles.
  /// Series of the WGS-84 parallel.
  static double metersToDegreesForLonAtLat(double lat);

  /// Metres along the WGS-84 geodesic between the coordinates; altitude is ignored.
  [[nodiscard]] double distanceFrom(const CLLocation& other) const;

  /// Initial great-circle bearing to, or from, the other location's coordinate, degrees.
  [[nodiscard]] double courseTo(const CLLocation& other) const;
  [[nodiscard]] double courseFrom(const CLLocation& other) const;

  /// This fix with its coordinate moved; everything else, time included, stays.
  [[nodiscard]] CLLocation move(double onCourse, double distance) const;
  [[nodiscard]] CLLocation move(double onCourse, double atSpeed, double duration) const;

  /// This fix with another speed (m/s).
  [[nodiscard]] CLLocation replacingSpeed(double newSpeed) const;

  /// The length of a velocity with these components, m/s.
  static double speedOfComponents(double horizontal, double vertical);

  /// This fix's speed taken as the horizontal (vertical) component, with the other one added.
  [[nodiscard]] double speedByAddingVertical(double vertical) const;
  [[nodiscard]] double speedByAddingHorizontal(double horizontal) const;

  /// Metres per second over ground since the other fix; never negative, 0 at equal timestamps.
  [[nodiscard]] double horizontalSpeedFrom(const CLLocation& other) const;

  /// Metres per second of altitude change since the other fix, without its sign; 0 at equal
  /// timestamps.
  [[nodiscard]] double verticalSpeedFrom(const CLLocation& other) const;

  /// Both components since the other fix as one speed.
  [[nodiscard]] double speedFrom(const CLLocation& other) const;
};

static_assert(std::is_trivially_copyable_v<CLLocation> && sizeof(CLLocation) == 80);

/// Metres along a track, from fix to fix; 0 for fewer than two fixes. Cheaper than adding up
/// `distanceFrom`, and the same sum.
double distanceAlong(std::span<const CLLocation> track);

}  // namespace ombrix

template <>
struct std::hash<ombrix::CLLocation> {
  std::size_t operator()(const ombrix::CLLocation& value) const { return value.hash(); }
};
