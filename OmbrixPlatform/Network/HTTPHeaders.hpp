#pragma once

#include <cstddef>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace ombrix::platform {

/// Header fields of a request or an answer, in the order in which they were first set. Names are
/// compared without regard to the case of ASCII letters (RFC 9110 section 5.1) and kept as written.
/// A value: any thread may read it.
class HTTPHeaders {
 public:
  struct Field {
    std::string name;
    std::string value;

    friend bool operator==(const Field&, const Field&) = default;
  };
  using const_iterator = std::vector<Field>::const_iterator;

  HTTPHeaders() = default;
  HTTPHeaders(std::initializer_list<Field> fields);

  /// The value of a field; empty when there is no such field. Valid until the headers change.
  [[nodiscard]] std::optional<std::string_view> value(std::string_view name) const noexcept;

  /// Whether the field is there, with any value.
  [[nodiscard]] bool contains(std::string_view name) const noexcept;

  /// Sets a field, which replaces one of the same name.
  void set(std::string_view name, std::string value);

  /// Adds to a field: values of one name are joined by ", " (RFC 9110 section 5.3).
  void add(std::string name, std::string value);

  /// Removes a field; false when there was none.
  bool remove(std::string_view name) noexcept;

  [[nodiscard]] std::size_t size() const noexcept { return fields_.size(); }
  [[nodiscard]] bool empty() const noexcept { return fields_.empty(); }
  [[nodiscard]] const_iterator begin() const noexcept { return fields_.begin(); }
  [[nodiscard]] const_iterator end() const noexcept { return fields_.end(); }

  /// Whether the text may stand as a field name: a token, not empty.
  [[nodiscard]] static bool isName(std::string_view text) noexcept;

  /// Whether the text may stand as a field value: no line feed, carriage return or NUL.
  [[nodiscard]] static bool isValue(std::string_view text) noexcept;

  /// Whether both have the same fields with the same values, in any order.
  friend bool operator==(const HTTPHeaders& a, const HTTPHeaders& b);

 private:
  [[nodiscard]] std::size_t indexOf(std::string_view name) const noexcept;
  void append(std::string name, std::string value);

  std::vector<Field> fields_;
};

/// Whether two header names are equal without regard to the case of ASCII letters.
[[nodiscard]] bool headerNamesEqual(std::string_view a, std::string_view b) noexcept;

}  // namespace ombrix::platform
