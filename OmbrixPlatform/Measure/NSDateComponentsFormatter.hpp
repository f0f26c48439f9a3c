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

/// How the parts of a time span are written: "1:02:05", "1h 2m 5s", "1 hr, 2 min, 5 sec", "1 hour,
/// 2 minutes, 5 seconds".
enum class NSDateComponentsFormatterUnitsStyle {
  positional = 0,
  abbreviated = 1,
  shortStyle = 2,
  full = 3,
};

/// Which zero parts are dropped. `defaultBehavior` drops the leading ones in positional text and
/// pads the others to two digits; in other styles it drops all. `dropLeading` drops those before
/// the first part that is not zero. A span of zero keeps its smallest unit.
enum class NSDateComponentsFormatterZeroFormattingBehavior { defaultBehavior = 1, dropLeading = 2 };

/// Writes time spans in days, hours, minutes and seconds, following a locale.
///
/// The parts are summed and distributed over the allowed units from the largest; the rest below the
/// smallest is cut off, and the largest allowed unit is unbounded (50 hours stay 50 h unless days
/// are allowed). A negative span has its sign on the first part. An instance serves one thread at a
/// time.
class NSDateComponentsFormatter : public NSFormatter {
 public:
  NSDateComponentsFormatter();
  ~NSDateComponentsFormatter() override;

  /// The locale to write in; if none is set, the current locale of each call.
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

  /// Has no effect: positional text is the same either way, and no other style collapses units.
  [[nodiscard]] bool collapsesLargestUnit() const noexcept { return collapsesLargestUnit_; }
  void setCollapsesLargestUnit(bool collapses) noexcept { collapsesLargestUnit_ = collapses; }

  /// The text of a span in UTF-8; empty when no unit is allowed or the locale data is missing.
  ///
  /// Positional text joins hours, minutes and seconds; with days, which no clock shows, every part
  /// has its label, as in abbreviated text.
  std::optional<std::string> stringFrom(const NSDateComponents& components);

  /// The same for an object that holds date components; empty for any other.
  std::optional<std::string> string(const FormatterObject& object) override;

 private:
  const detail::IcuDurationFormat* currentFormat();

  std::optional<Locale> locale_;
  NSCalendarUnit allowedUnits_;
  NSDateComponentsFormatterUnitsStyle unitsStyle_;
  NSDateComponentsFormatterZeroFormattingBehavior zeroFormattingBehavior_;
  bool collapsesLargestUnit_ = false;
  std::optional<Locale> formatLocale_;  // the locale of `format_`
  std::shared_ptr<const detail::IcuDurationFormat> format_;
};

}  // namespace ombrix::platform
