#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "OmbrixPlatform/Coding/CodingFields.hpp"
#include "OmbrixPlatform/Coding/OrderedDictionary.hpp"
#include "OmbrixPlatform/Values/Data.hpp"
#include "OmbrixPlatform/Values/Error.hpp"

namespace ombrix::platform {

/// Bytes that are not a JSON document, or a value that JSON cannot hold; `what()` says why and
/// where.
class JSONError : public Error {
 public:
  using Error::Error;
};

/// A JSON document, or a part of one.
///
/// Keys keep the order they were written in, and of equal keys the last value stays. Integers are
/// exact over the signed and unsigned 64-bit ranges, other numbers are the nearest double and are
/// written in the shortest form that reads back as the same. A plain value: copies are deep,
/// several threads may read one. Numbers are equal when they mean the same number.
class JSON {
 public:
  using Array = std::vector<JSON>;
  using Dictionary = OrderedDictionary<JSON>;

  enum class Kind { null, boolean, number, text, array, dictionary };

  /// Null.
  JSON() = default;
  JSON(std::nullptr_t) {}
  JSON(std::same_as<bool> auto value) : value_(value) {}
  JSON(std::signed_integral auto value) : value_(std::int64_t{value}) {}
  template <std::unsigned_integral T>
    requires(!std::same_as<T, bool>)
  JSON(T value) : value_(fromUnsigned(value)) {}
  JSON(std::floating_point auto value) : value_(static_cast<double>(value)) {}
  JSON(std::string value) : value_(std::move(value)) {}
  JSON(std::string_view value) : value_(std::string{value}) {}
  JSON(const char* value) : value_(std::string{value}) {}
  JSON(Array value) : value_(std::move(value)) {}
  JSON(Dictionary value) : value_(std::move(value)) {}

  /// Reads a whole document. Throws `JSONError`, also for nesting beyond 512 levels.
  static JSON parse(DataView bytes);
  static JSON parse(std::string_view text) { return parse(bytesOf(text)); }

  /// The document as bytes, without white space. Throws `JSONError` for text that is not UTF-8,
  /// for numbers that are not finite and for nesting beyond 512 levels.
  [[nodiscard]] Data rawData() const;

  [[nodiscard]] Kind kind() const noexcept;
  [[nodiscard]] bool isNull() const noexcept { return kind() == Kind::null; }

  // Typed access: empty (or null) when the value is of another kind, or when the number does not
  // fit the requested type.
  [[nodiscard]] std::optional<bool> boolean() const noexcept;
  [[nodiscard]] std::optional<std::int64_t> integer() const noexcept;
  [[nodiscard]] std::optional<std::uint64_t> unsignedInteger() const noexcept;
  [[nodiscard]] std::optional<double> real() const noexcept;
  [[nodiscard]] const std::string* string() const noexcept;
  [[nodiscard]] const Array* array() const noexcept;
  [[nodiscard]] Array* array() noexcept;
  [[nodiscard]] const Dictionary* dictionary() const noexcept;
  [[nodiscard]] Dictionary* dictionary() noexcept;

  /// The value as text: a text itself, numbers and truth values in their JSON form, otherwise
  /// empty.
  [[nodiscard]] std::string stringValue() const;

  /// The value under a key or at an index; a null where there is none.
  [[nodiscard]] const JSON& operator[](std::string_view key) const;
  [[nodiscard]] const JSON& operator[](const char* key) const {
    return (*this)[std::string_view{key}];
  }
  [[nodiscard]] const JSON& operator[](std::size_t index) const;
  [[nodiscard]] const JSON& operator[](int index) const {
    return (*this)[static_cast<std::size_t>(index)];
  }

  /// The value under a key; null when this is not a dictionary or has no such key.
  [[nodiscard]] const JSON* find(std::string_view key) const;

  friend bool operator==(const JSON& a, const JSON& b);

 private:
  using Value = std::variant<std::monostate, bool, std::int64_t, std::uint64_t, double, std::string,
                             Array, Dictionary>;

  static Value fromUnsigned(std::uint64_t value) {
    if (value <= static_cast<std::uint64_t>(INT64_MAX)) return static_cast<std::int64_t>(value);
    return value;
  }

  Value value_;  // std::uint64_t holds only what a signed integer cannot
};

/// The kind of a value as messages name it, such as "a text".
std::string_view nameOf(JSON::Kind kind) noexcept;

/// A JSON value may be a field of a type that JSON's own coders code.
template <>
struct Coding<JSON> {
  template <class Writer>
    requires requires(Writer& writer, const JSON& value) { writer.json(value); }
  static void encode(Writer& writer, const JSON& value) {
    writer.json(value);
  }
  template <class Reader>
    requires requires(Reader& reader) { reader.readJSON(); }
  static void decode(Reader& reader, JSON& out) {
    out = reader.readJSON();
  }
};

}  // namespace ombrix::platform
