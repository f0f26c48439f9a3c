#pragma once

#include <cstdint>
#include <optional>
#include <string_view>
#include <utility>

#include "OmbrixPlatform/Health/HKQuantity.hpp"
#include "OmbrixPlatform/Values/Date.hpp"
#include "OmbrixPlatform/Values/RawValue.hpp"

namespace ombrix::platform {

/// The kinds of quantities that can be measured.
enum class HKQuantityTypeIdentifier : std::uint8_t { heartRate };

template <>
struct RawValues<HKQuantityTypeIdentifier> {
  static constexpr std::pair<HKQuantityTypeIdentifier, std::string_view> table[] = {
      {HKQuantityTypeIdentifier::heartRate, "HKQuantityTypeIdentifierHeartRate"},
  };
};

/// A kind of quantity that this platform supports.
class HKQuantityType {
 public:
  /// @return empty for a kind that is not supported here
  static constexpr std::optional<HKQuantityType> quantityType(
      HKQuantityTypeIdentifier identifier) noexcept {
    if (rawValue(identifier).empty()) return std::nullopt;
    return HKQuantityType(identifier);
  }

  [[nodiscard]] constexpr HKQuantityTypeIdentifier identifier() const noexcept {
    return identifier_;
  }

  friend bool operator==(HKQuantityType, HKQuantityType) = default;

 private:
  explicit constexpr HKQuantityType(HKQuantityTypeIdentifier identifier) noexcept
      : identifier_(identifier) {}

  HKQuantityTypeIdentifier identifier_;
};

/// A quantity measured over a time span, or at one instant. Creating a sample stores nothing. Any
/// thread.
class HKQuantitySample {
 public:
  constexpr HKQuantitySample(HKQuantityType quantityType, HKQuantity quantity, Date startDate,
                             Date endDate) noexcept
      : quantityType_(quantityType),
        quantity_(quantity),
        startDate_(startDate),
        endDate_(endDate) {}

  [[nodiscard]] HKQuantityType quantityType() const noexcept { return quantityType_; }
  [[nodiscard]] const HKQuantity& quantity() const noexcept { return quantity_; }
  [[nodiscard]] Date startDate() const noexcept { return startDate_; }
  [[nodiscard]] Date endDate() const noexcept { return endDate_; }

  friend bool operator==(const HKQuantitySample&, const HKQuantitySample&) = default;

 private:
  HKQuantityType quantityType_;
  HKQuantity quantity_;
  Date startDate_;
  Date endDate_;
};

}  // namespace ombrix::platform
