#include "Examples/HostApp/Commands/Arguments.hpp"

#include <fmt/format.h>

#include <charconv>
#include <string>
#include <string_view>

namespace ombrix::hostapp {
namespace {

template <class Number>
CLI::Validator between(Number least, Number most, const char* what) {
  return {[=](std::string& text) {
            std::string_view digits = text;
            if (digits.starts_with('+')) digits.remove_prefix(1);
            Number number{};
            const auto [end, error] =
                std::from_chars(digits.data(), digits.data() + digits.size(), number);
            const bool isNumber = error == std::errc() && end == digits.data() + digits.size();
            // What is not a number lies between nothing.
            if (isNumber && number >= least && number <= most) return std::string();
            return fmt::format("{:?} is not a {} from {} to {}", text, what, least, most);
          },
          ""};
}

}  // namespace

CLI::Validator numberBetween(double least, double most) { return between(least, most, "number"); }

CLI::Validator wholeNumberBetween(long long least, long long most) {
  return between(least, most, "whole number");
}

}  // namespace ombrix::hostapp
