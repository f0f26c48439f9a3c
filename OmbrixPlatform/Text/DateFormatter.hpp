#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "OmbrixPlatform/Text/Locale.hpp"
#include "OmbrixPlatform/Values/Date.hpp"

namespace ombrix::platform {

/// Writes and reads points in time by a pattern. Immutable: any thread.
///
/// Each thread caches the text of the last second, so a formatter that stamps log lines usually
/// costs a copy and its fraction digits.
class DateFormatter {
 public:
  /// @param dateFormat A pattern as Unicode's locale data defines it: "MM/dd/yyyy HH:mm:ss:SSS".
  /// @param locale The locale whose calendar, names and digits are used.
  /// @param timeZone Such as "Europe/Zurich"; empty for the system's, also one that TZ gives as
  ///   a POSIX rule. An unknown name means UTC.
  explicit DateFormatter(std::string_view dateFormat, const Locale& locale = Locale::current(),
                         std::string_view timeZone = {});
  ~DateFormatter();

  /// The pattern that shows the given fields in a locale's own order, words and clock.
  /// @param dateTemplate The fields in any order, for example "yMMMMd"; "j" is the hour by the
  ///   clock that the locale prefers.
  [[nodiscard]] static std::string dateFormatFromTemplate(std::string_view dateTemplate,
                                                          const Locale& locale = Locale::current());

  DateFormatter(const DateFormatter&) = delete;
  DateFormatter& operator=(const DateFormatter&) = delete;

  /// The text of a date, rounded to the microsecond, with further fraction digits cut off. Empty
  /// for a date that is not a number, or more than 8.64e12 seconds from 1970.
  [[nodiscard]] std::string stringFrom(Date date) const;

  /// The same, appended to a text.
  void appendTo(std::string& text, Date date) const;

  /// The date that the whole text names; empty when it does not match the pattern or names a date
  /// that is not in the calendar, and for numbers of more than 12 fraction digits.
  [[nodiscard]] std::optional<Date> dateFrom(std::string_view text) const;

 private:
  struct Backing;
  std::unique_ptr<Backing> backing_;
};

}  // namespace ombrix::platform
