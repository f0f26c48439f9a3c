#pragma once

#include <string_view>
#include <utility>

#include "OmbrixCore/Location/CLLocation.hpp"
#include "OmbrixPlatform/Values/RawValue.hpp"

namespace ombrix::platform {
class Decoder;
class Encoder;
}  // namespace ombrix::platform

namespace ombrix {

/// The coded form of one fix: a dictionary of its coordinate ("lat", "lon"), altitude, accuracies,
/// speed, course and time. It does not contain the accuracies of course and speed.
class CLLocationCodableWrapper {
 public:
  /// The keys, in the order in which they are written.
  // Kept: "cordinate" lacks an "o". Files hold it; correcting it would make them unreadable.
  enum class CodingKeys {
    cordinate,
    altitude,
    horizontalAccuracy,
    verticalAccuracy,
    speed,
    course,
    timestamp
  };

  explicit CLLocationCodableWrapper(const CLLocation& location) : location_(location) {}

  [[nodiscard]] const CLLocation& location() const noexcept { return location_; }

  /// Writes the keys in order; stops at the first failure with the encoder's error.
  void encode(platform::Encoder& encoder) const;

  /// Reads the keys in order; all are required. Throws the decoder's error for one that is missing
  /// or has another type.
  static CLLocationCodableWrapper decode(platform::Decoder& decoder);

 private:
  CLLocation location_;
};

}  // namespace ombrix

template <>
struct ombrix::platform::RawValues<ombrix::CLLocationCodableWrapper::CodingKeys> {
  using Keys = CLLocationCodableWrapper::CodingKeys;
  static constexpr std::pair<Keys, std::string_view> table[] = {
      {Keys::cordinate, "cordinate"},
      {Keys::altitude, "altitude"},
      {Keys::horizontalAccuracy, "horizontalAccuracy"},
      {Keys::verticalAccuracy, "verticalAccuracy"},
      {Keys::speed, "speed"},
      {Keys::course, "course"},
      {Keys::timestamp, "timestamp"},
  };
};
