#include "OmbrixPlatform/Defaults/Detail/Coercion.hpp"

#include <array>
#include <charconv>
#include <cmath>
#include <limits>
#include <string_view>

#include "OmbrixPlatform/Detail/DecimalToDouble.hpp"

namespace ombrix::platform::detail {
namespace {

constexpr bool isDigit(char c) noexcept { return c >= '0' && c <= '9'; }

/// The text after leading blanks and a plus sign.
std::string_view behindBlanks(std::string_view text) noexcept {
  const auto start = text.find_first_not_of(" \t\n\r\v\f");
  text.remove_prefix(start == std::string_view::npos ? text.size() : start);
  if (text.size() > 1 && text[0] == '+' && text[1] != '-') text.remove_prefix(1);
  return text;
}

bool boolFromText(std::string_view text) noexcept {
  text = behindBlanks(text);
  if (text.starts_with('-')) text.remove_prefix(1);
  while (text.starts_with('0')) text.remove_prefix(1);
  return !text.empty() && (std::string_view("YyTt").contains(text[0]) || isDigit(text[0]));
}

std::int64_t integerFromText(std::string_view text) noexcept {
  text = behindBlanks(text);
  std::int64_t value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc::result_out_of_range) return value;
  return text.starts_with('-') ? INT64_MIN : INT64_MAX;
}

double doubleFromText(std::string_view text) noexcept {
  text = behindBlanks(text);
  // Words such as "infinity" do not count as numbers here.
  const auto digits = text.find_first_not_of("-.");
  if (digits == std::string_view::npos || !isDigit(text[digits])) return 0;
  return detail::readDecimal(text).value;
}

std::int64_t truncated(double value) noexcept {
  if (std::isnan(value)) return 0;
  if (value >= 0x1p63) return INT64_MAX;
  if (value < -0x1p63) return INT64_MIN;
  return static_cast<std::int64_t>(value);
}

template <class Number>
std::string textOf(Number value) {
  std::array<char, 32> buffer;
  const auto [end, error] = std::to_chars(buffer.data(), buffer.data() + buffer.size(), value);
  return {buffer.data(), end};
}

}  // namespace

bool boolFrom(const PropertyList& value) noexcept {
  if (const auto truth = value.boolean()) return *truth;
  if (const auto* text = value.text()) return boolFromText(*text);
  if (const auto integer = value.integer()) return *integer != 0;
  if (const auto integer = value.unsignedInteger()) return *integer != 0;
  return value.real().value_or(0) != 0;
}

std::int64_t integerFrom(const PropertyList& value) noexcept {
  if (const auto truth = value.boolean()) return *truth ? 1 : 0;
  if (const auto* text = value.text()) return integerFromText(*text);
  if (const auto integer = value.integer()) return *integer;
  if (value.unsignedInteger()) return INT64_MAX;
  return truncated(value.real().value_or(0));
}

double doubleFrom(const PropertyList& value) noexcept {
  if (const auto truth = value.boolean()) return *truth ? 1 : 0;
  if (const auto* text = value.text()) return doubleFromText(*text);
  return value.real().value_or(0);
}

std::optional<std::string> stringFrom(const PropertyList& value) {
  if (const auto* text = value.text()) return *text;
  if (const auto truth = value.boolean()) return *truth ? "1" : "0";
  if (const auto integer = value.integer()) return textOf(*integer);
  if (const auto integer = value.unsignedInteger()) return textOf(*integer);
  if (const auto real = value.real()) return textOf(*real);
  return std::nullopt;
}

}  // namespace ombrix::platform::detail
