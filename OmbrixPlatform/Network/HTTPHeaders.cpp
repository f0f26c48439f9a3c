#include "OmbrixPlatform/Network/HTTPHeaders.hpp"

#include <algorithm>
#include <utility>

namespace ombrix::platform {
namespace {

constexpr char lowered(char character) noexcept {
  return character >= 'A' && character <= 'Z' ? static_cast<char>(character + ('a' - 'A'))
                                              : character;
}

constexpr bool isTokenCharacter(char character) noexcept {
  const char letter = lowered(character);
  if ((letter >= 'a' && letter <= 'z') || (character >= '0' && character <= '9')) return true;
  return character != '\0' && std::string_view("!#$%&'*+-.^_`|~").contains(character);
}

}  // namespace

bool headerNamesEqual(std::string_view a, std::string_view b) noexcept {
  return std::ranges::equal(a, b, {}, lowered, lowered);
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
    fields_.push_back({std::string(name), std::move(value)});
  } else {
    fields_[index].value = std::move(value);
  }
}

void HTTPHeaders::add(std::string_view name, std::string_view value) {
  const std::size_t index = indexOf(name);
  if (index == fields_.size()) {
    fields_.push_back({std::string(name), std::string(value)});
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
  return text.find_first_of(std::string_view("\r\n\0", 3)) == std::string_view::npos;
}

bool operator==(const HTTPHeaders& a, const HTTPHeaders& b) {
  return a.size() == b.size() && std::ranges::all_of(a, [&](const HTTPHeaders::Field& field) {
           return b.value(field.name) == field.value;
         });
}

}  // namespace ombrix::platform
