#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "OmbrixPlatform/Text/Locale.hpp"
#include "OmbrixPlatform/Values/Date.hpp"

namespace ombrix::platform {

/// Writes and reads points in time by a pattern. Never changes once made: any thread.
///
/// The text of the last second is kept per thread, so a formatter that stamps log lines costs a
/// copy and its fraction digits on most calls.
class DateFormatter {
 public:
  /// @param dateFormat A pattern as Unicode's locale data defines it: "MM/dd/yyyy HH:mm:ss:SSS".
  /// @param locale Whose calendar, names and digits are used.
  /// @param timeZone As in "Europe/Zurich"; empty for the system's, also one that TZ gives as
  ///   a POSIX rule. An unknown name means UTC.
  explicit DateFormatter(std::string_view dateFormat, const Locale& locale = Locale::current(),
                         std::string_view timeZone = {});
  ~DateFormatter();

  /// The pattern that shows some fields in a locale's own order, words and clock.
  /// @param dateTemplate The fields in any order, as in "yMMMMd"; "j" stands for the hour by the
  ///   clock that the locale prefers.
  [[nodiscard]] static std::string dateFormatFromTemplate(std::string_view dateTemplate,
                                                          const Locale& locale = Locale::current());

  DateFormatter(const DateFormatter&) = delete;
  DateFormatter& operator=(const DateFormatter&) = delete;

  /// The text of a date; fractions of a second are cut after rounding to the microsecond. Empty for
  /// what is not a date: not a number, or more than 8.64e12 seconds from 1970.
  [[nodiscard]] std::string stringFrom(Date date) const;

  /// The same, appended to a text.
  void appendTo(std::string& text, Date date) const;

  /// The date that a whole text names; nothing when it does not follow the pattern or names a date
  /// that is not in the calendar, and for numbers of more than 12 fraction digits.
  [[nodiscard]] std::optional<Date> dateFrom(std::string_view text) const;

 private:
  struct Backing;
  std::unique_ptr<Backing> backing_;
};

}  // namespace ombrix::platform
