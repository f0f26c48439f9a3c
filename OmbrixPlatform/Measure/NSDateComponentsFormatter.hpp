#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "OmbrixPlatform/Measure/NSDateComponents.hpp"
#include "OmbrixPlatform/Measure/NSFormatter.hpp"
#include "OmbrixPlatform/Text/Locale.hpp"

namespace ombrix::platform {

namespace detail {
class IcuDurationFormat;
}

/// How the parts of a span of time are written: "1:02:05", "1h 2m 5s", "1 hr, 2 min, 5 sec",
/// "1 hour, 2 minutes, 5 seconds".
enum class NSDateComponentsFormatterUnitsStyle {
  positional = 0,
  abbreviated = 1,
  shortStyle = 2,
  full = 3,
};

/// Which zero parts are left out. `defaultBehavior` drops leading ones of positional text, whose
/// others are padded to two digits, and all of them elsewhere; `dropLeading` drops those before
/// the first that is not zero. A span of zero keeps its smallest unit.
enum class NSDateComponentsFormatterZeroFormattingBehavior { defaultBehavior = 1, dropLeading = 2 };

/// Writes spans of time in days, hours, minutes and seconds, in the way of a locale.
///
/// The parts are summed and spread again over the allowed units from the largest, what is left
/// below the smallest is cut off; the largest allowed unit is unbounded (50 hours stay 50 h where
/// days are not allowed). A negative span carries its sign on the first part.
/// An instance serves one thread at a time.
class NSDateComponentsFormatter : public NSFormatter {
 public:
  NSDateComponentsFormatter();
  ~NSDateComponentsFormatter() override;

  /// The locale to write in; the one that is current at each call when nothing was set.
  [[nodiscard]] const std::optional<Locale>& locale() const noexcept { return locale_; }
  void setLocale(std::optional<Locale> locale) { locale_ = std::move(locale); }

  [[nodiscard]] NSCalendarUnit allowedUnits() const noexcept { return allowedUnits_; }
  void setAllowedUnits(NSCalendarUnit units) noexcept { allowedUnits_ = units; }

  [[nodiscard]] NSDateComponentsFormatterUnitsStyle unitsStyle() const noexcept {
    return unitsStyle_;
  }
  void setUnitsStyle(NSDateComponentsFormatterUnitsStyle style) noexcept { unitsStyle_ = style; }

  [[nodiscard]] NSDateComponentsFormatterZeroFormattingBehavior zeroFormattingBehavior()
      const noexcept {
    return zeroFormattingBehavior_;
  }
  void setZeroFormattingBehavior(
      NSDateComponentsFormatterZeroFormattingBehavior behavior) noexcept {
    zeroFormattingBehavior_ = behavior;
  }

  /// Positional text is the same either way, and no other style collapses here.
  [[nodiscard]] bool collapsesLargestUnit() const noexcept { return collapsesLargestUnit_; }
  void setCollapsesLargestUnit(bool collapses) noexcept { collapsesLargestUnit_ = collapses; }

  /// The text of a span in UTF-8; nothing when no unit is allowed or the locale data is missing.
  ///
  /// Positional text joins hours, minutes and seconds; next to days, which no clock shows, every
  /// part carries its label, as in abbreviated text.
  std::optional<std::string> stringFrom(const NSDateComponents& components);

  /// The same for an object that is date components; nothing for any other.
  std::optional<std::string> string(const FormatterObject& object) override;

 private:
  const detail::IcuDurationFormat* currentFormat();

  std::optional<Locale> locale_;
  NSCalendarUnit allowedUnits_;
  NSDateComponentsFormatterUnitsStyle unitsStyle_;
  NSDateComponentsFormatterZeroFormattingBehavior zeroFormattingBehavior_;
  bool collapsesLargestUnit_ = false;
  std::optional<Locale> formatLocale_;  // that `format_` writes in
  std::shared_ptr<const detail::IcuDurationFormat> format_;
};

}  // namespace ombrix::platform
