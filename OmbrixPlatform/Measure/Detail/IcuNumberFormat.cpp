#include "OmbrixPlatform/Measure/Detail/IcuNumberFormat.hpp"

#include <unicode/dcfmtsym.h>
#include <unicode/formattedvalue.h>
#include <unicode/measunit.h>
#include <unicode/uchar.h>

#include <algorithm>
#include <utility>

#include "OmbrixPlatform/Locks/Mutex.hpp"

namespace ombrix::platform::detail {
namespace {

using Settings = NSNumberFormatter::Settings;

// Far more than a process uses; beyond it the cache is cleared, and formatters in use keep their
// tables.
constexpr std::size_t kMaximumCachedFormats = 128;

icu::UnicodeString unicode(std::string_view text) {
  return icu::UnicodeString::fromUTF8({text.data(), static_cast<std::int32_t>(text.size())});
}

icu::DecimalFormat::ERoundingMode icuRoundingMode(NSNumberFormatterRoundingMode mode) {
  switch (mode) {
    case NSNumberFormatterRoundingMode::halfEven:
      return icu::DecimalFormat::kRoundHalfEven;
    case NSNumberFormatterRoundingMode::halfUp:
      return icu::DecimalFormat::kRoundHalfUp;
    case NSNumberFormatterRoundingMode::down:
      return icu::DecimalFormat::kRoundDown;
  }
  return icu::DecimalFormat::kRoundHalfEven;
}

void setSymbols(icu::DecimalFormat& decimal, const Settings& settings) {
  auto symbols = std::make_unique<icu::DecimalFormatSymbols>(*decimal.getDecimalFormatSymbols());
  if (settings.decimalSeparator) {
    symbols->setSymbol(icu::DecimalFormatSymbols::kDecimalSeparatorSymbol,
                       unicode(*settings.decimalSeparator));
  }
  if (settings.groupingSeparator) {
    symbols->setSymbol(icu::DecimalFormatSymbols::kGroupingSeparatorSymbol,
                       unicode(*settings.groupingSeparator));
  }
  decimal.adoptDecimalFormatSymbols(symbols.release());
}

std::shared_ptr<const IcuNumberFormat> make(const Settings& settings) {
  UErrorCode status = U_ZERO_ERROR;
  std::unique_ptr<icu::NumberFormat> format(
      icu::NumberFormat::createInstance(icuLocale(settings.locale), UNUM_DECIMAL, status));
  if (U_FAILURE(status) || dynamic_cast<icu::DecimalFormat*>(format.get()) == nullptr) return {};
  std::unique_ptr<icu::DecimalFormat> decimal(static_cast<icu::DecimalFormat*>(format.release()));

  decimal->setMinimumFractionDigits(settings.minimumFractionDigits);
  decimal->setMaximumFractionDigits(settings.maximumFractionDigits);
  // Follows the locale's minimum grouping: Spanish writes 1036 but 12.345.
  decimal->setMinimumGroupingDigits(UNUM_MINIMUM_GROUPING_DIGITS_AUTO);
  decimal->setRoundingMode(icuRoundingMode(settings.roundingMode));
  if (!settings.positiveSuffix.empty()) {
    decimal->setPositiveSuffix(unicode(settings.positiveSuffix));
  }
  if (settings.decimalSeparator || settings.groupingSeparator) setSymbols(*decimal, settings);

  const auto* plain = decimal->toNumberFormatter(status);
  if (U_FAILURE(status) || plain == nullptr) return {};
  // A number that rounds to zero has no sign.
  auto formatter = plain->sign(UNUM_SIGN_NEGATIVE);
  return std::make_shared<const IcuNumberFormat>(std::move(decimal), std::move(formatter));
}

}  // namespace

std::shared_ptr<const IcuNumberFormat> IcuNumberFormat::shared(const Settings& settings) {
  struct Cache {
    Mutex mutex;
    std::vector<std::pair<Settings, std::shared_ptr<const IcuNumberFormat>>> formats
        OMBRIX_GUARDED_BY(mutex);
  };
  static Cache& cache = *new Cache;
  const LockGuard lock(cache.mutex);
  const auto found =
      std::ranges::find(cache.formats, settings, &decltype(cache.formats)::value_type::first);
  if (found != cache.formats.end()) return found->second;
  auto made = make(settings);
  if (made) {
    if (cache.formats.size() == kMaximumCachedFormats) cache.formats.clear();
    cache.formats.emplace_back(settings, made);
  }
  return made;
}

const IcuUnitFormat* IcuNumberFormat::unitFormat(std::string_view unit,
                                                 UNumberUnitWidth width) const {
  const LockGuard lock(unitFormatsMutex_);
  for (const auto& known : unitFormats_) {
    if (known->unit == unit && known->width == width) return known.get();
  }
  UErrorCode status = U_ZERO_ERROR;
  const auto measureUnit = icu::MeasureUnit::forIdentifier(
      {unit.data(), static_cast<std::int32_t>(unit.size())}, status);
  if (U_FAILURE(status)) return nullptr;
  unitFormats_.push_back(std::make_unique<const IcuUnitFormat>(
      std::string(unit), width, plain_.unit(measureUnit).unitWidth(width)));
  return unitFormats_.back().get();
}

std::optional<double> IcuNumberFormat::parse(std::string_view text) const {
  const icu::UnicodeString source = unicode(text);
  icu::ParsePosition position;
  icu::Formattable result;
  decimal_->parse(source, result, position);
  if (position.getIndex() == 0 || position.getIndex() != source.length()) return std::nullopt;
  UErrorCode status = U_ZERO_ERROR;
  const double number = result.getDouble(status);
  if (U_FAILURE(status)) return std::nullopt;
  return number;
}

std::optional<std::string> text(const icu::number::LocalizedNumberFormatter& formatter,
                                double number) {
  UErrorCode status = U_ZERO_ERROR;
  // A named variable: the text of a temporary would dangle.
  const icu::number::FormattedNumber formatted = formatter.formatDouble(number, status);
  const icu::UnicodeString characters = formatted.toTempString(status);
  if (U_FAILURE(status)) return std::nullopt;
  return utf8(characters);
}

bool holdsDigit(std::string_view text) {
  if (text.find_first_of("0123456789") != std::string_view::npos) return true;
  const icu::UnicodeString characters = unicode(text);
  for (std::int32_t i = 0; i < characters.length(); i = characters.moveIndex32(i, 1)) {
    if (u_isdigit(characters.char32At(i)) != 0) return true;
  }
  return false;
}

std::optional<std::string> textAround(const icu::number::LocalizedNumberFormatter& formatter,
                                      double number, std::string_view replacement,
                                      std::string_view suffix) {
  UErrorCode status = U_ZERO_ERROR;
  const icu::number::FormattedNumber formatted = formatter.formatDouble(number, status);
  icu::UnicodeString characters = formatted.toString(status);
  std::int32_t begin = characters.length(), end = 0;
  icu::ConstrainedFieldPosition field;
  field.constrainCategory(UFIELD_CATEGORY_NUMBER);
  while (formatted.nextPosition(field, status)) {
    if (field.getField() == UNUM_MEASURE_UNIT_FIELD) continue;
    begin = std::min(begin, field.getStart());
    end = std::max(end, field.getLimit());
  }
  if (U_FAILURE(status) || begin >= end) return std::nullopt;
  // Direction marks around the sign belong to the number, though to none of its fields; those of
  // the pattern stay.
  const auto isMark = [](char16_t c) { return c == 0x061C || c == 0x200E || c == 0x200F; };
  const icu::UnicodeString inserted = unicode(replacement);
  for (std::int32_t i = 0; begin > 0 && isMark(inserted.charAt(i)); ++i) {
    if (isMark(characters.charAt(begin - 1))) --begin;
  }
  const icu::UnicodeString behind = unicode(suffix);
  if (characters.compare(end, behind.length(), behind) == 0) end += behind.length();
  characters.replaceBetween(begin, end, inserted);
  return utf8(characters);
}

std::string utf8(const icu::UnicodeString& text) {
  std::string result;
  text.toUTF8String(result);
  return result;
}

}  // namespace ombrix::platform::detail
