#include "OmbrixPlatform/Coding/JSON.hpp"

#include <cmath>

#include "OmbrixPlatform/Coding/CodingError.hpp"
#include "OmbrixPlatform/Coding/Detail/Numbers.hpp"
#include "OmbrixPlatform/Coding/Streams/JSONReader.hpp"
#include "OmbrixPlatform/Coding/Streams/JSONWriter.hpp"

namespace ombrix::platform {

JSON JSON::parse(DataView bytes) {
  try {
    JSONReader reader(bytes);
    JSON value = reader.readJSON();
    reader.finish();
    return value;
  } catch (const DecodingError& error) {
    throw JSONError(error.what());
  }
}

Data JSON::rawData() const {
  try {
    JSONWriter writer;
    writer.json(*this);
    return writer.finish();
  } catch (const EncodingError& error) {
    throw JSONError(error.what());
  }
}

JSON::Kind JSON::kind() const noexcept {
  static constexpr Kind kKinds[] = {Kind::null,   Kind::boolean, Kind::number, Kind::number,
                                    Kind::number, Kind::text,    Kind::array,  Kind::dictionary};
  static_assert(std::size(kKinds) == std::variant_size_v<Value>);
  return kKinds[value_.index()];
}

std::optional<bool> JSON::boolean() const noexcept {
  if (const bool* value = std::get_if<bool>(&value_)) return *value;
  return std::nullopt;
}

std::optional<std::int64_t> JSON::integer() const noexcept {
  if (const auto* value = std::get_if<std::int64_t>(&value_)) return *value;
  if (const double* value = std::get_if<double>(&value_)) {
    return detail::exactly<std::int64_t>(*value);
  }
  return std::nullopt;
}

std::optional<std::uint64_t> JSON::unsignedInteger() const noexcept {
  if (const auto* value = std::get_if<std::uint64_t>(&value_)) return *value;
  if (const double* value = std::get_if<double>(&value_)) {
    return detail::exactly<std::uint64_t>(*value);
  }
  const auto* value = std::get_if<std::int64_t>(&value_);
  if (value == nullptr || *value < 0) return std::nullopt;
  return static_cast<std::uint64_t>(*value);
}

std::optional<double> JSON::real() const noexcept {
  if (const double* value = std::get_if<double>(&value_)) return *value;
  if (const auto* value = std::get_if<std::int64_t>(&value_)) return static_cast<double>(*value);
  if (const auto* value = std::get_if<std::uint64_t>(&value_)) return static_cast<double>(*value);
  return std::nullopt;
}

const std::string* JSON::string() const noexcept { return std::get_if<std::string>(&value_); }
const JSON::Array* JSON::array() const noexcept { return std::get_if<Array>(&value_); }
JSON::Array* JSON::array() noexcept { return std::get_if<Array>(&value_); }
const JSON::Dictionary* JSON::dictionary() const noexcept {
  return std::get_if<Dictionary>(&value_);
}
JSON::Dictionary* JSON::dictionary() noexcept { return std::get_if<Dictionary>(&value_); }

std::string JSON::stringValue() const {
  if (const std::string* text = string()) return *text;
  if (kind() != Kind::boolean && kind() != Kind::number) return {};
  if (const auto number = real(); number && !std::isfinite(*number)) return {};
  return std::string{textOf(rawData())};
}

const JSON* JSON::find(std::string_view key) const {
  const Dictionary* entries = dictionary();
  return entries == nullptr ? nullptr : entries->find(key);
}

const JSON& JSON::operator[](std::string_view key) const {
  static const JSON& kNull = *new JSON;  // outlives exit: background threads read on
  const JSON* value = find(key);
  return value == nullptr ? kNull : *value;
}

const JSON& JSON::operator[](std::size_t index) const {
  static const JSON& kNull = *new JSON;  // outlives exit: background threads read on
  const Array* items = array();
  return items == nullptr || index >= items->size() ? kNull : (*items)[index];
}

bool operator==(const JSON& a, const JSON& b) {
  if (a.kind() != b.kind()) return false;
  if (a.kind() != JSON::Kind::number) return a.value_ == b.value_;
  if (const auto whole = a.integer()) return whole == b.integer();
  if (const auto whole = a.unsignedInteger()) return whole == b.unsignedInteger();
  return a.real() == b.real() && !b.integer() && !b.unsignedInteger();
}

std::string_view nameOf(JSON::Kind kind) noexcept {
  switch (kind) {
    case JSON::Kind::null:
      return "null";
    case JSON::Kind::boolean:
      return "a truth value";
    case JSON::Kind::number:
      return "a number";
    case JSON::Kind::text:
      return "a text";
    case JSON::Kind::array:
      return "an array";
    case JSON::Kind::dictionary:
      return "a dictionary";
  }
  return "a value";
}

}  // namespace ombrix::platform
