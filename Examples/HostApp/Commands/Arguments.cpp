#include "Examples/HostApp/Commands/Arguments.hpp"

#include <fmt/format.h>

#include <charconv>
#include <concepts>
#include <optional>
#include <string>
#include <string_view>

#include "OmbrixPlatform/Csv/NumberText.hpp"

namespace ombrix::hostapp {
namespace {

template <class Number>
std::optional<Number> numberFrom(std::string_view text) {
  if (text.starts_with('+')) text.remove_prefix(1);
  if constexpr (std::same_as<Number, double>) {
    // A number too small for a double is zero, as everywhere in the program.
    return platform::doubleFromText(text);
  } else {
    Number number{};
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    const bool isNumber = error == std::errc() && end == text.data() + text.size();
    return isNumber ? std::optional(number) : std::nullopt;
  }
}

template <class Number>
CLI::Validator between(Number least, Number most, const char* what) {
  return {[=](std::string& text) {
            const auto number = numberFrom<Number>(text);
            // NaN lies within no limits.
            if (number && *number >= least && *number <= most) return std::string();
            return fmt::format("{:?} is not a {} from {} to {}", text, what, least, most);
          },
          ""};
}

}  // namespace

CLI::Validator numberBetween(double least, double most) { return between(least, most, "number"); }

CLI::Validator notEmpty() {
  return {[](const std::string& text) { return text.empty() ? "it is empty" : ""; }, ""};
}

CLI::Validator wholeNumberBetween(long long least, long long most) {
  return between(least, most, "whole number");
}

}  // namespace ombrix::hostapp
