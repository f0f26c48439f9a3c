#include "OmbrixPlatform/Coding/Detail/JSONTree.hpp"

#include <cmath>
#include <limits>

#include "OmbrixPlatform/Detail/TextForms.hpp"

namespace ombrix::platform::detail {
namespace {

constexpr double kMillisecondsPerSecond = 1000.0;

}  // namespace

Date dateFromNumber(double number, const JSONCodingOptions& options) {
  switch (options.dateStrategy) {
    case JSONDateStrategy::secondsSince1970:
      return dateSince1970(number);
    case JSONDateStrategy::millisecondsSince1970:
      return dateSince1970(number / kMillisecondsPerSecond);
    default:
      return dateSinceReferenceDate(number);
  }
}

double numberFromDate(Date date, const JSONCodingOptions& options) {
  switch (options.dateStrategy) {
    case JSONDateStrategy::secondsSince1970:
      return timeIntervalSince1970(date);
    case JSONDateStrategy::millisecondsSince1970:
      return timeIntervalSince1970(date) * kMillisecondsPerSecond;
    default:
      return timeIntervalSinceReferenceDate(date);
  }
}

std::optional<double> realFromText(std::string_view text, const JSONCodingOptions& options) {
  if (!options.nonConformingFloats) return std::nullopt;
  constexpr double kInfinity = std::numeric_limits<double>::infinity();
  if (text == options.nonConformingFloats->positiveInfinity) return kInfinity;
  if (text == options.nonConformingFloats->negativeInfinity) return -kInfinity;
  if (text == options.nonConformingFloats->nan) return std::numeric_limits<double>::quiet_NaN();
  return std::nullopt;
}

std::optional<std::string_view> textFromReal(double value, const JSONCodingOptions& options) {
  if (!options.nonConformingFloats) return std::nullopt;
  if (std::isnan(value)) return options.nonConformingFloats->nan;
  return value > 0 ? options.nonConformingFloats->positiveInfinity
                   : options.nonConformingFloats->negativeInfinity;
}

JSON JSONTree::primitive(const CodingPrimitive& value, const JSONCodingOptions& options,
                         const CodingPath& path) {
  if (const Date* date = std::get_if<Date>(&value)) {
    if (options.dateStrategy != JSONDateStrategy::iso8601) {
      return primitive(CodingPrimitive{numberFromDate(*date, options)}, options, path);
    }
    std::string text = iso8601Text(*date);
    if (text.empty()) throw EncodingError::invalidValue("The date has no ISO 8601 form", path);
    return text;
  }
  if (const Data* data = std::get_if<Data>(&value)) {
    std::string text;
    appendBase64(text, *data);
    return text;
  }
  if (const double* real = std::get_if<double>(&value); real != nullptr && !std::isfinite(*real)) {
    if (const auto text = textFromReal(*real, options)) return *text;
    throw EncodingError::invalidValue("JSON has no form for a number that is not finite", path);
  }
  return std::visit(
      []<class T>(const T& scalar) -> JSON {
        if constexpr (std::same_as<T, Data> || std::same_as<T, Date>)
          return {};
        else
          return scalar;
      },
      value);
}

}  // namespace ombrix::platform::detail
