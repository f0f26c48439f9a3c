#include "OmbrixPlatform/Network/HTTPHeaders.hpp"
#include "OmbrixPlatform/Values/ASCII.hpp"

#include <algorithm>
#include <array>
#include <cstddef>
#include <utility>

namespace ombrix::platform {
namespace {

constexpr std::size_t kUsualFields = 8;

/// RFC 9110 section 5.6.2.
constexpr auto kIsTokenCharacter = [] {
  std::array<bool, 256> table{};
  for (const char character : std::string_view("0123456789!#$%&'*+-.^_`|~")) {
    table[static_cast<unsigned char>(character)] = true;
  }
  for (unsigned char letter = 'a'; letter <= 'z'; ++letter) {
    table[letter] = table[letter - ('a' - 'A')] = true;
  }
  return table;
}();

constexpr bool isTokenCharacter(char character) noexcept {
  return kIsTokenCharacter[static_cast<unsigned char>(character)];
}

}  // namespace

bool headerNamesEqual(std::string_view a, std::string_view b) noexcept {
  // Most names are written as they are asked for.
  return a == b || equalIgnoringASCIICase(a, b);
}

HTTPHeaders::HTTPHeaders(std::initializer_list<Field> fields) {
  for (const Field& field : fields) set(field.name, field.value);
}

std::size_t HTTPHeaders::indexOf(std::string_view name) const noexcept {
  const auto found = std::ranges::find_if(
      fields_, [&](const Field& field) { return headerNamesEqual(field.name, name); });
  return static_cast<std::size_t>(found - fields_.begin());
}

std::optional<std::string_view> HTTPHeaders::value(std::string_view name) const noexcept {
  const std::size_t index = indexOf(name);
  if (index == fields_.size()) return std::nullopt;
  return fields_[index].value;
}

bool HTTPHeaders::contains(std::string_view name) const noexcept {
  return indexOf(name) != fields_.size();
}

void HTTPHeaders::set(std::string_view name, std::string value) {
  const std::size_t index = indexOf(name);
  if (index == fields_.size()) {
    append(std::string(name), std::move(value));
  } else {
    fields_[index].value = std::move(value);
  }
}

void HTTPHeaders::append(std::string name, std::string value) {
  if (fields_.empty()) fields_.reserve(kUsualFields);
  fields_.push_back({std::move(name), std::move(value)});
}

void HTTPHeaders::add(std::string name, std::string value) {
  const std::size_t index = indexOf(name);
  if (index == fields_.size()) {
    append(std::move(name), std::move(value));
  } else {
    fields_[index].value.append(", ").append(value);
  }
}

bool HTTPHeaders::remove(std::string_view name) noexcept {
  const std::size_t index = indexOf(name);
  if (index == fields_.size()) return false;
  fields_.erase(fields_.begin() + static_cast<std::ptrdiff_t>(index));
  return true;
}

bool HTTPHeaders::isName(std::string_view text) noexcept {
  return !text.empty() && std::ranges::all_of(text, isTokenCharacter);
}

bool HTTPHeaders::isValue(std::string_view text) noexcept {
  bool isForbidden = false;  // of all characters at once: nearly every text is a value
  for (const char character : text) {
    isForbidden |= character == '\r' || character == '\n' || character == '\0';
  }
  return !isForbidden;
}

bool operator==(const HTTPHeaders& a, const HTTPHeaders& b) {
  return a.size() == b.size() && std::ranges::all_of(a, [&](const HTTPHeaders::Field& field) {
           return b.value(field.name) == field.value;
         });
}

}  // namespace ombrix::platform
