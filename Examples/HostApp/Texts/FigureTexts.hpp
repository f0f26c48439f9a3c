#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "OmbrixCore/Formatting/OmbrixDurationFormatter.hpp"
#include "OmbrixCore/Formatting/OmbrixMeasurementFormatter.hpp"
#include "OmbrixPlatform/Text/DateFormatter.hpp"
#include "OmbrixPlatform/Text/NSAttributedString.hpp"

namespace ombrix::hostapp {

/// The style of values: bold numbers, and unit letters in a quieter grey.
const platform::NSAttributedString::Attributes& valueAttributes();

/// The figures of a day as the user reads them: units, language, order of a date, and style.
///
/// Each formatter behind it is made once, on first need, and keeps the locale of that moment. One
/// thread at a time.
class FigureTexts {
 public:
  using Format = OmbrixMeasurementFormatter::MeasurementFormat;

  /// Converts an attributed text to the text of a terminal or of a page.
  using Rendering = std::string (*)(const platform::NSAttributedString&);

  /// The parts of a point in time to show.
  enum class DateStyle {
    day,            ///< "Sunday, February 11, 2024"
    dayAndTime,     ///< the same with the time of day
    shortDay,       ///< "Sun, Feb 11"
    clock,          ///< "8:15 AM"
    clockToSecond,  ///< "8:15:07 AM"
  };

  explicit FigureTexts(Rendering rendering) : rendering_(rendering) {}

  /// A number in its format's input unit, styled.
  std::string value(Format format, double number);

  /// A span of time in seconds, styled.
  std::string duration(double seconds);

  /// A count with the separators of the user's language, styled as a number.
  std::string count(std::size_t number);

  /// A number in its format's input unit without style; empty if it has no text.
  std::string plain(Format format, double number);

  /// The same with a plus sign before what is above zero.
  std::string difference(Format format, double number);

  /// A date in the user's own order and clock.
  std::string date(DateStyle style, platform::Date date);

 private:
  OmbrixMeasurementFormatter& formatter(Format format);
  std::string rendered(const std::optional<platform::NSAttributedString>& text) const;

  Rendering rendering_;
  std::map<Format, OmbrixMeasurementFormatter> formatters_;
  std::map<DateStyle, platform::DateFormatter> dates_;
  std::optional<OmbrixDurationFormatter> durations_;
};

/// A count with the separators of the user's language: "13,173".
std::string countText(std::size_t number);

/// The size of the user's unit of a format in the format's input unit: 1609.344 for miles.
double unitSize(FigureTexts::Format format);

}  // namespace ombrix::hostapp
