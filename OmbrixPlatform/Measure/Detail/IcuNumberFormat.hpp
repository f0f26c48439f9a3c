#pragma once

#include <unicode/decimfmt.h>
#include <unicode/numberformatter.h>

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "OmbrixPlatform/Locks/Mutex.hpp"
#include "OmbrixPlatform/Measure/NSNumberFormatter.hpp"

namespace ombrix::platform::detail {

/// The formatter of numbers with one unit in one width.
struct IcuUnitFormat {
  std::string unit;
  UNumberUnitWidth width;
  icu::number::LocalizedNumberFormatter formatter;
};

/// The ICU objects behind one set of number settings: the plain formatter, and one for every unit
/// and width that was requested. They are slow to create and to warm up (a copy starts cold), so
/// each is created once per process and shared by reference. Any thread.
class IcuNumberFormat {
 public:
  using Formatter = icu::number::LocalizedNumberFormatter;

  /// The instance for these settings, created on first use; null when ICU cannot create it.
  static std::shared_ptr<const IcuNumberFormat> shared(const NSNumberFormatter::Settings& settings);

  /// Use `shared`.
  IcuNumberFormat(std::unique_ptr<icu::DecimalFormat> decimal, Formatter plain)
      : decimal_(std::move(decimal)), plain_(std::move(plain)) {}

  [[nodiscard]] const Formatter& formatter() const noexcept { return plain_; }

  /// The formatter for a unit that locale data names; null for an unknown name. Valid as long as
  /// this object.
  const IcuUnitFormat* unitFormat(std::string_view unit, UNumberUnitWidth width) const;

  [[nodiscard]] std::optional<double> parse(std::string_view text) const;

 private:
  // The formatters refer to tables inside `decimal_`, so it must live as long as they do.
  std::unique_ptr<icu::DecimalFormat> decimal_;
  const Formatter plain_;
  mutable Mutex unitFormatsMutex_;
  mutable std::vector<std::unique_ptr<const IcuUnitFormat>> unitFormats_
      OMBRIX_GUARDED_BY(unitFormatsMutex_);
};

/// The number as the formatter writes it, in UTF-8.
std::optional<std::string> text(const icu::number::LocalizedNumberFormatter& formatter,
                                double number);

/// Whether a text has a digit, of any script.
bool holdsDigit(std::string_view text);

/// Formats one number and replaces its digits by the text of another one; empty when the formatter
/// writes no number at all.
/// @param suffix The suffix of positive numbers, which is replaced with the digits.
std::optional<std::string> textAround(const icu::number::LocalizedNumberFormatter& formatter,
                                      double number, std::string_view replacement,
                                      std::string_view suffix);

inline icu::Locale icuLocale(const Locale& locale) {
  return icu::Locale(locale.identifier().c_str());
}

std::string utf8(const icu::UnicodeString& text);

}  // namespace ombrix::platform::detail
