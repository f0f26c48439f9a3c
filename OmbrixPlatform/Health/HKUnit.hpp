#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace ombrix::platform {

/// The unit of a health quantity: a count or a time, or a quotient of two such as "count/min". A
/// value of two bytes. Any thread.
class HKUnit {
 public:
  /// Reads a unit string: "count", "s", "min", "hr" or "d", or two of them with "/" between.
  /// @return empty for any other text
  static std::optional<HKUnit> fromString(std::string_view text) noexcept;

  /// The text that `fromString` reads.
  [[nodiscard]] std::string unitString() const;

  /// The size of this unit in coherent units (1 for a count, seconds for times).
  [[nodiscard]] double factor() const noexcept;

  /// Whether a quantity in this unit can be expressed in the other; counts are dimensionless.
  [[nodiscard]] bool isCompatible(HKUnit other) const noexcept {
    return timeExponent() == other.timeExponent();
  }

  friend bool operator==(HKUnit, HKUnit) = default;

 private:
  enum class Base : std::uint8_t { none, count, second, minute, hour, day };
  struct Definition;

  constexpr HKUnit(Base numerator, Base denominator) noexcept
      : numerator_(numerator), denominator_(denominator) {}

  static const Definition* find(std::string_view name) noexcept;
  static const Definition& definition(Base base) noexcept;
  [[nodiscard]] int timeExponent() const noexcept;

  Base numerator_;
  Base denominator_;
};

}  // namespace ombrix::platform
