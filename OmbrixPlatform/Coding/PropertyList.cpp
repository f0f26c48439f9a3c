#include "OmbrixPlatform/Coding/PropertyList.hpp"

namespace ombrix::platform {

PropertyList::Kind PropertyList::kind() const noexcept {
  static constexpr Kind kKinds[] = {Kind::boolean,    Kind::integer, Kind::integer, Kind::real,
                                    Kind::text,       Kind::data,    Kind::date,    Kind::array,
                                    Kind::dictionary, Kind::uid};
  static_assert(std::size(kKinds) == std::variant_size_v<Value>);
  return kKinds[value_.index()];
}

std::optional<bool> PropertyList::boolean() const noexcept {
  if (const bool* value = std::get_if<bool>(&value_)) return *value;
  return std::nullopt;
}

std::optional<std::int64_t> PropertyList::integer() const noexcept {
  if (const auto* value = std::get_if<std::int64_t>(&value_)) return *value;
  return std::nullopt;
}

std::optional<std::uint64_t> PropertyList::unsignedInteger() const noexcept {
  if (const auto* value = std::get_if<std::uint64_t>(&value_)) return *value;
  const auto* value = std::get_if<std::int64_t>(&value_);
  if (value == nullptr || *value < 0) return std::nullopt;
  return static_cast<std::uint64_t>(*value);
}

std::optional<double> PropertyList::real() const noexcept {
  if (const auto* value = std::get_if<double>(&value_)) return *value;
  if (const auto* value = std::get_if<std::int64_t>(&value_)) return static_cast<double>(*value);
  if (const auto* value = std::get_if<std::uint64_t>(&value_)) return static_cast<double>(*value);
  return std::nullopt;
}

std::optional<Date> PropertyList::date() const noexcept {
  if (const Date* value = std::get_if<Date>(&value_)) return *value;
  return std::nullopt;
}

std::optional<PropertyList::UID> PropertyList::uid() const noexcept {
  if (const UID* value = std::get_if<UID>(&value_)) return *value;
  return std::nullopt;
}

const std::string* PropertyList::text() const noexcept { return std::get_if<std::string>(&value_); }
const Data* PropertyList::data() const noexcept { return std::get_if<Data>(&value_); }
const PropertyList::Array* PropertyList::array() const noexcept {
  return std::get_if<Array>(&value_);
}
PropertyList::Array* PropertyList::array() noexcept { return std::get_if<Array>(&value_); }
const PropertyList::Dictionary* PropertyList::dictionary() const noexcept {
  return std::get_if<Dictionary>(&value_);
}
PropertyList::Dictionary* PropertyList::dictionary() noexcept {
  return std::get_if<Dictionary>(&value_);
}

const PropertyList* PropertyList::find(std::string_view key) const {
  const Dictionary* entries = dictionary();
  return entries == nullptr ? nullptr : entries->find(key);
}

std::string_view nameOf(PropertyList::Kind kind) noexcept {
  switch (kind) {
    case PropertyList::Kind::boolean:
      return "a truth value";
    case PropertyList::Kind::integer:
      return "an integer";
    case PropertyList::Kind::real:
      return "a real number";
    case PropertyList::Kind::text:
      return "a text";
    case PropertyList::Kind::data:
      return "data";
    case PropertyList::Kind::date:
      return "a date";
    case PropertyList::Kind::array:
      return "an array";
    case PropertyList::Kind::dictionary:
      return "a dictionary";
    case PropertyList::Kind::uid:
      return "a reference";
  }
  return "a value";
}

}  // namespace ombrix::platform
