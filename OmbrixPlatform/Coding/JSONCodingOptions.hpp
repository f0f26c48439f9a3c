#pragma once

#include <optional>
#include <string>

#include "OmbrixPlatform/Coding/CodingPath.hpp"

namespace ombrix::platform {

/// How dates are written in JSON.
enum class JSONDateStrategy {
  deferredToDate,         // a number, seconds since 2001-01-01 00:00:00 UTC
  secondsSince1970,       // a number
  millisecondsSince1970,  // a number
  iso8601                 // a text such as "2023-11-14T22:13:20Z", written without fractions
};

/// Texts for the numbers that JSON cannot express.
struct JSONNonConformingFloats {
  std::string positiveInfinity;
  std::string negativeInfinity;
  std::string nan;
};

/// The options of `JSONEncoder` and `JSONDecoder`.
struct JSONCodingOptions {
  JSONDateStrategy dateStrategy = JSONDateStrategy::deferredToDate;
  /// Empty: such numbers are errors.
  std::optional<JSONNonConformingFloats> nonConformingFloats;
  CodingUserInfo userInfo;
};

}  // namespace ombrix::platform
