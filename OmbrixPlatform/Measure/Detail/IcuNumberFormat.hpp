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

/// The ICU objects behind one set of number settings: the plain formatter, and one more for every
/// unit and width that was asked for. They are costly to make and to warm up (a copy starts cold),
/// so they are made once per process and shared by reference. Any thread.
class IcuNumberFormat {
 public:
  using Formatter = icu::number::LocalizedNumberFormatter;

  /// The one for these settings, made on first use; null when ICU cannot make it.
  static std::shared_ptr<const IcuNumberFormat> shared(const NSNumberFormatter::Settings& settings);

  /// Use `shared`.
  IcuNumberFormat(std::unique_ptr<icu::DecimalFormat> decimal, Formatter plain)
      : decimal_(std::move(decimal)), plain_(std::move(plain)) {}

  [[nodiscard]] const Formatter& formatter() const noexcept { return plain_; }

  /// The formatter for a unit that locale data names, or null for an unknown name. It lives as
  /// long as this object.
  const IcuUnitFormat* unitFormat(std::string_view unit, UNumberUnitWidth width) const;

  [[nodiscard]] std::optional<double> parse(std::string_view text) const;

 private:
  // The formatters refer to tables inside `decimal_`, which therefore lives as long as they do.
  std::unique_ptr<icu::DecimalFormat> decimal_;
  const Formatter plain_;
  mutable Mutex unitFormatsMutex_;
  mutable std::vector<std::unique_ptr<const IcuUnitFormat>> unitFormats_
      OMBRIX_GUARDED_BY(unitFormatsMutex_);
};

/// The number as the formatter writes it, in UTF-8.
std::optional<std::string> text(const icu::number::LocalizedNumberFormatter& formatter,
                                double number);

/// What the formatter writes for one number with another number's text in its place; nothing where
/// it writes no number at all.
/// @param suffix What the formatter puts behind positive numbers, which goes with them.
std::optional<std::string> textAround(const icu::number::LocalizedNumberFormatter& formatter,
                                      double number, std::string_view replacement,
                                      std::string_view suffix);

inline icu::Locale icuLocale(const Locale& locale) {
  return icu::Locale(locale.identifier().c_str());
}

std::string utf8(const icu::UnicodeString& text);

}  // namespace ombrix::platform::detail
