#pragma once

#include <concepts>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "OmbrixPlatform/Coding/CodingFields.hpp"
#include "OmbrixPlatform/Coding/OrderedDictionary.hpp"
#include "OmbrixPlatform/Values/Data.hpp"
#include "OmbrixPlatform/Values/Date.hpp"

namespace ombrix::platform {

/// A value of a property list: a truth value, number, text, bytes, date, array or dictionary.
///
/// There is no null. Integers are signed 64-bit, and unsigned above that range. A plain value:
/// copies are deep, several threads may read one, equality goes by kind and content and ignores the
/// order of dictionary entries.
class PropertyList {
 public:
  using Array = std::vector<PropertyList>;
  using Dictionary = OrderedDictionary<PropertyList>;

  /// A reference number of keyed archives; it is only passed on, never followed.
  struct UID {
    std::uint64_t value = 0;
    friend bool operator==(const UID&, const UID&) = default;
  };

  enum class Kind { boolean, integer, real, text, data, date, array, dictionary, uid };

  /// An empty dictionary.
  PropertyList() : value_(Dictionary{}) {}

  PropertyList(std::same_as<bool> auto value) : value_(value) {}
  PropertyList(std::signed_integral auto value) : value_(std::int64_t{value}) {}
  template <std::unsigned_integral T>
    requires(!std::same_as<T, bool>)
  PropertyList(T value) : value_(fromUnsigned(value)) {}
  PropertyList(std::floating_point auto value) : value_(static_cast<double>(value)) {}
  PropertyList(std::string value) : value_(std::move(value)) {}
  PropertyList(std::string_view value) : value_(std::string{value}) {}
  PropertyList(const char* value) : value_(std::string{value}) {}
  PropertyList(Data value) : value_(std::move(value)) {}
  PropertyList(Date value) : value_(value) {}
  PropertyList(Array value) : value_(std::move(value)) {}
  PropertyList(Dictionary value) : value_(std::move(value)) {}
  PropertyList(UID value) : value_(value) {}

  [[nodiscard]] Kind kind() const noexcept;

  // Typed access: empty (or null) when the value is of another kind. An integer also reads as a
  // real; a real never reads as an integer, a truth value never as a number.
  [[nodiscard]] std::optional<bool> boolean() const noexcept;
  [[nodiscard]] std::optional<std::int64_t> integer() const noexcept;
  [[nodiscard]] std::optional<std::uint64_t> unsignedInteger() const noexcept;
  [[nodiscard]] std::optional<double> real() const noexcept;
  [[nodiscard]] std::optional<Date> date() const noexcept;
  [[nodiscard]] std::optional<UID> uid() const noexcept;
  [[nodiscard]] const std::string* text() const noexcept;
  [[nodiscard]] const Data* data() const noexcept;
  [[nodiscard]] const Array* array() const noexcept;
  [[nodiscard]] Array* array() noexcept;
  [[nodiscard]] const Dictionary* dictionary() const noexcept;
  [[nodiscard]] Dictionary* dictionary() noexcept;

  /// The value under a key; null when this is not a dictionary or has no such key.
  [[nodiscard]] const PropertyList* find(std::string_view key) const;

  friend bool operator==(const PropertyList&, const PropertyList&) = default;

 private:
  using Value = std::variant<bool, std::int64_t, std::uint64_t, double, std::string, Data, Date,
                             Array, Dictionary, UID>;

  static Value fromUnsigned(std::uint64_t value) {
    if (value <= static_cast<std::uint64_t>(INT64_MAX)) return static_cast<std::int64_t>(value);
    return value;
  }

  Value value_;  // std::uint64_t holds only what a signed integer cannot
};

/// A kind as messages name it, such as "a dictionary".
std::string_view nameOf(PropertyList::Kind kind) noexcept;

/// A property list may be a field of a type that the property-list coders code.
template <>
struct Coding<PropertyList> {
  template <class Writer>
    requires requires(Writer& writer, const PropertyList& value) { writer.propertyList(value); }
  static void encode(Writer& writer, const PropertyList& value) {
    writer.propertyList(value);
  }
  template <class Reader>
    requires requires(Reader& reader) { reader.readPropertyList(); }
  static void decode(Reader& reader, PropertyList& out) {
    out = reader.readPropertyList();
  }
};

}  // namespace ombrix::platform
