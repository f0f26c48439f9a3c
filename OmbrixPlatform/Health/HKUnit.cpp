#include "OmbrixPlatform/Health/HKUnit.hpp"

#include <algorithm>
#include <array>
#include <cstddef>

namespace ombrix::platform {

struct HKUnit::Definition {
  Base base;
  std::string_view name;
  double factor;
  int timeExponent;
};

const HKUnit::Definition& HKUnit::definition(Base base) noexcept {
  static constexpr std::array<Definition, 6> kDefinitions = {{
      {Base::none, "", 1, 0},
      {Base::count, "count", 1, 0},
      {Base::second, "s", 1, 1},
      {Base::minute, "min", 60, 1},
      {Base::hour, "hr", 3600, 1},
      {Base::day, "d", 86400, 1},
  }};
  return kDefinitions[static_cast<std::size_t>(base)];
}

const HKUnit::Definition* HKUnit::find(std::string_view name) noexcept {
  for (const Base base : {Base::count, Base::second, Base::minute, Base::hour, Base::day}) {
    if (definition(base).name == name) return &definition(base);
  }
  return nullptr;
}

std::optional<HKUnit> HKUnit::fromString(std::string_view text) noexcept {
  const auto slash = text.find('/');
  const auto* const numerator = find(text.substr(0, slash));
  if (numerator == nullptr) return std::nullopt;
  if (slash == text.npos) return HKUnit(numerator->base, Base::none);
  const auto* const denominator = find(text.substr(slash + 1));
  if (denominator == nullptr) return std::nullopt;
  return HKUnit(numerator->base, denominator->base);
}

std::string HKUnit::unitString() const {
  std::string text(definition(numerator_).name);
  if (denominator_ != Base::none) text.append("/").append(definition(denominator_).name);
  return text;
}

double HKUnit::factor() const noexcept {
  return definition(numerator_).factor / definition(denominator_).factor;
}

int HKUnit::timeExponent() const noexcept {
  return definition(numerator_).timeExponent - definition(denominator_).timeExponent;
}

}  // namespace ombrix::platform
