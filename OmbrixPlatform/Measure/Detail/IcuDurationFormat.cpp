#include "OmbrixPlatform/Measure/Detail/IcuDurationFormat.hpp"

#include <fmt/format.h>
#include <unicode/measfmt.h>
#include <unicode/measunit.h>
#include <unicode/measure.h>

#include <limits>
#include <map>
#include <utility>

#include "OmbrixPlatform/Locks/Mutex.hpp"
#include "OmbrixPlatform/Measure/Detail/IcuNumberFormat.hpp"

namespace ombrix::platform::detail {
namespace {

using icu::number::LocalizedNumberFormatter;

constexpr std::array<const char*, kDurationUnitCount> kUnitNames{"day", "hour", "minute", "second"};

struct WidthNames {
  UNumberUnitWidth number;
  UListFormatterWidth list;
};
constexpr std::array<WidthNames, 3> kWidthNames{{{UNUM_UNIT_WIDTH_NARROW, ULISTFMT_WIDTH_NARROW},
                                                 {UNUM_UNIT_WIDTH_SHORT, ULISTFMT_WIDTH_SHORT},
                                                 {UNUM_UNIT_WIDTH_FULL_NAME, ULISTFMT_WIDTH_WIDE}}};

/// The locale's clock separator between minutes and seconds: the text between the digits of 5:07.
/// Most locales use a colon, some a full stop.
icu::UnicodeString clockSeparator(const icu::Locale& locale, UErrorCode& status) {
  icu::MeasureFormat format(locale, UMEASFMT_WIDTH_NUMERIC, status);
  if (U_FAILURE(status)) return {};
  const std::array measures{
      icu::Measure(icu::Formattable(5), icu::MeasureUnit::createMinute(status), status),
      icu::Measure(icu::Formattable(7), icu::MeasureUnit::createSecond(status), status)};
  icu::FieldPosition position(icu::FieldPosition::DONT_CARE);
  icu::UnicodeString text;
  format.formatMeasures(measures.data(), measures.size(), text, position, status);

  icu::UnicodeString separator;
  bool isBehindDigit = false;
  for (std::int32_t i = 0; i < text.length(); i = text.moveIndex32(i, 1)) {
    const UChar32 character = text.char32At(i);
    if (u_isdigit(character) == 0) {
      if (isBehindDigit) separator.append(character);
    } else {
      if (!separator.isEmpty()) return separator;
      isBehindDigit = true;
    }
  }
  return separator.isEmpty() ? icu::UnicodeString(u':') : separator;
}

void append(icu::UnicodeString& text, const LocalizedNumberFormatter& formatter, Int128 amount,
            UErrorCode& status) {
  const bool fits = amount >= std::numeric_limits<std::int64_t>::min() &&
                    amount <= std::numeric_limits<std::int64_t>::max();
  const icu::number::FormattedNumber formatted =
      fits ? formatter.formatInt(static_cast<std::int64_t>(amount), status)
           : formatter.formatDecimal(fmt::to_string(amount), status);
  text.append(formatted.toTempString(status));
}

}  // namespace

std::shared_ptr<const IcuDurationFormat> IcuDurationFormat::make(const Locale& locale) {
  UErrorCode status = U_ZERO_ERROR;
  const icu::Locale icuLocale = detail::icuLocale(locale);
  auto format = std::make_shared<IcuDurationFormat>();
  for (std::size_t width = 0; width < kWidthNames.size(); ++width) {
    Widened& widened = format->widths_[width];
    for (std::size_t unit = 0; unit < kDurationUnitCount; ++unit) {
      widened.units[unit] = icu::number::NumberFormatter::withLocale(icuLocale)
                                .unit(icu::MeasureUnit::forIdentifier(kUnitNames[unit], status))
                                .unitWidth(kWidthNames[width].number);
    }
    widened.list.reset(icu::ListFormatter::createInstance(icuLocale, ULISTFMT_TYPE_UNITS,
                                                          kWidthNames[width].list, status));
  }
  format->plain_ = icu::number::NumberFormatter::withLocale(icuLocale);
  format->twoDigits_ = format->plain_.integerWidth(icu::number::IntegerWidth::zeroFillTo(2));
  format->separator_ = clockSeparator(icuLocale, status);
  if (U_FAILURE(status)) return {};
  return format;
}

std::shared_ptr<const IcuDurationFormat> IcuDurationFormat::shared(const Locale& locale) {
  struct Cache {
    Mutex mutex;
    std::map<std::string, std::shared_ptr<const IcuDurationFormat>> formats
        OMBRIX_GUARDED_BY(mutex);
  };
  static Cache& cache = *new Cache;
  const LockGuard lock(cache.mutex);
  const auto known = cache.formats.find(locale.identifier());
  if (known != cache.formats.end()) return known->second;
  auto made = make(locale);
  if (made) cache.formats.emplace(locale.identifier(), made);
  return made;
}

std::optional<std::string> IcuDurationFormat::labelled(std::span<const DurationPart> parts,
                                                       Width width) const {
  UErrorCode status = U_ZERO_ERROR;
  const Widened& widened = widths_[static_cast<std::size_t>(width)];
  std::array<icu::UnicodeString, kDurationUnitCount> texts;
  for (std::size_t i = 0; i < parts.size(); ++i) {
    append(texts[i], widened.units[parts[i].unit], parts[i].amount, status);
  }
  icu::UnicodeString joined;
  widened.list->format(texts.data(), static_cast<std::int32_t>(parts.size()), joined, status);
  if (U_FAILURE(status)) return std::nullopt;
  return utf8(joined);
}

std::optional<std::string> IcuDurationFormat::positional(
    std::span<const DurationPart> parts) const {
  UErrorCode status = U_ZERO_ERROR;
  icu::UnicodeString text;
  for (std::size_t i = 0; i < parts.size(); ++i) {
    if (i > 0) text.append(separator_);
    append(text, i == 0 ? plain_ : twoDigits_, parts[i].amount, status);
  }
  if (U_FAILURE(status)) return std::nullopt;
  return utf8(text);
}

}  // namespace ombrix::platform::detail
