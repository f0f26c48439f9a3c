#include "OmbrixPlatform/Coding/Detail/JSONTree.hpp"

#include <cmath>
#include <limits>

#include "OmbrixPlatform/Coding/Detail/TextForms.hpp"

namespace ombrix::platform::detail {
namespace {

constexpr double kMillisecondsPerSecond = 1000.0;

template <class T>
CodingPrimitive require(std::optional<T> value, const JSON& json, CodingPrimitiveKind kind,
                        const CodingPath& path) {
  if (value) return *std::move(value);
  const bool isNumber = json.kind() == JSON::Kind::number;
  if (isNumber && kind != CodingPrimitiveKind::boolean && kind != CodingPrimitiveKind::text &&
      kind != CodingPrimitiveKind::data && kind != CodingPrimitiveKind::date) {
    const std::string number = json.stringValue();  // empty for one that is too large for a double
    throw DecodingError::dataCorrupted(
        number.empty() ? "The number does not fit" : "The number " + number + " does not fit",
        path);
  }
  if (json.isNull()) throw DecodingError::valueNotFound(nameOf(kind), path);
  throw DecodingError::typeMismatch(nameOf(kind), nameOf(json.kind()), path);
}

/// Nothing, too, for a number that was too large for a double when it was read.
std::optional<double> numberOf(const JSON& value) {
  const auto number = value.real();
  return number && std::isfinite(*number) ? number : std::nullopt;
}

std::optional<double> realOf(const JSON& value, const JSONCodingOptions& options) {
  if (const std::string* text = value.string()) return realFromText(*text, options);
  return numberOf(value);
}

CodingPrimitive dateOf(const JSON& value, const JSONCodingOptions& options,
                       const CodingPath& path) {
  constexpr auto kKind = CodingPrimitiveKind::date;
  std::optional<Date> date;
  if (options.dateStrategy == JSONDateStrategy::iso8601) {
    const std::string* text = value.string();
    if (text != nullptr) date = dateFromISO8601(*text);
    if (text != nullptr && !date) {
      throw DecodingError::dataCorrupted("No date is meant by \"" + *text + "\"", path);
    }
  } else if (const auto number = numberOf(value)) {
    date = dateFromNumber(*number, options);
  }
  return require(date, value, kKind, path);
}

CodingPrimitive dataOf(const JSON& value, const CodingPath& path) {
  std::optional<Data> data;
  if (const std::string* text = value.string()) {
    data = bytesFromBase64(*text, false);
    if (!data) throw DecodingError::dataCorrupted("The text is not base64", path);
  }
  return require(std::move(data), value, CodingPrimitiveKind::data, path);
}

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

CodingPrimitive JSONTree::primitive(const JSON& value, CodingPrimitiveKind kind,
                                    const JSONCodingOptions& options, const CodingPath& path) {
  switch (kind) {
    case CodingPrimitiveKind::boolean:
      return require(value.boolean(), value, kind, path);
    case CodingPrimitiveKind::integer:
      return require(value.integer(), value, kind, path);
    case CodingPrimitiveKind::unsignedInteger:
      return require(value.unsignedInteger(), value, kind, path);
    case CodingPrimitiveKind::real:
      return require(realOf(value, options), value, kind, path);
    case CodingPrimitiveKind::text:
      if (const std::string* text = value.string()) return *text;
      return require(std::optional<std::string>{}, value, kind, path);
    case CodingPrimitiveKind::data:
      return dataOf(value, path);
    case CodingPrimitiveKind::date:
      break;
  }
  return dateOf(value, options, path);
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
