// Every format in every style, beside the same text put together from bare ICU.

#include <gtest/gtest.h>
#include <unicode/numberformatter.h>

#include <array>
#include <string>

#include "OmbrixCore/Extensions/ResourceBundle.hpp"
#include "OmbrixCore/Formatting/NSUnit+Localized.hpp"
#include "OmbrixCore/Formatting/OmbrixMeasurementFormatter.hpp"
#include "OmbrixTesting/Sanitizers.hpp"
#include "OmbrixTesting/ScopedLocale.hpp"
#include "OmbrixTesting/ScopedSettings.hpp"

namespace ombrix {
namespace {

using Formatter = OmbrixMeasurementFormatter;
using Format = Formatter::MeasurementFormat;
using icu::number::LocalizedNumberFormatter;
using icu::number::NumberFormatter;
using icu::number::Precision;

constexpr std::array kLocales = {"ar_EG", "bg_BG", "ca_ES", "cs_CZ", "da_DK", "de_DE", "el_GR",
                                 "en_GB", "en_US", "es_ES", "fi_FI", "fr_FR", "he_IL", "hi_IN",
                                 "hr_HR", "hu_HU", "id_ID", "it_IT", "ja_JP", "ko_KR", "lt_LT",
                                 "lv_LV", "nb_NO", "nl_NL", "pl_PL", "pt_BR", "ro_RO", "ru_RU",
                                 "sl_SI", "tr_TR", "zh_CN"};

// Among them one, two, three and eleven feet, whole thousands of them, and more than a million.
constexpr std::array kNumbers = {0.3048, 0.6096, 0.9144,    3.3528,     10.0,     137.3,
                                 304.8,  609.6,  1'234.5,   3'352.8,    12'345.7, 304'800.0,
                                 -87.4,  0.0,    400'000.0, 1'234'567.0};

/// What a format comes to in a unit system: ICU's name of the unit and how much of the
/// base unit, in which numbers are given, makes one of it.
struct Shown {
  const char* unit;
  double size, factor = 1, offset = 0;
};

bool weighsInPounds(const std::string& locale) { return locale == "en_US" || locale == "en_GB"; }

Shown shownFor(Format format, bool isMiles, bool isBritish, const std::string& locale) {
  switch (format) {
    case Format::speed:
      return isMiles || isBritish ? Shown{"mile-per-hour", 0.44704}
                                  : Shown{"kilometer-per-hour", 0.277778};
    case Format::distance:
      return isMiles ? Shown{"mile", 1609.34} : Shown{"kilometer", 1000};
    case Format::altitude:
    case Format::vertical:
    case Format::altitudeChange:
      return isMiles ? Shown{"foot", 0.3048} : Shown{"meter", 1};
    case Format::totalVertical:
    case Format::seasonVertical:
    case Format::dailyVertical:
      return isMiles ? Shown{"foot", 0.3048} : Shown{"kilometer", 1000};
    case Format::weight:
      return weighsInPounds(locale) ? Shown{"pound", 0.45359237} : Shown{"kilogram", 1};
    case Format::energy:
      return {"kilocalorie", 1};
    case Format::heartRate:
      return {nullptr, 1};
    case Format::depth:
      return isMiles ? Shown{"inch", 0.0254, 0.01} : Shown{"centimeter", 1};
    case Format::temperature:
      return locale == "en_US" ? Shown{"fahrenheit", 1, 1.8, 32} : Shown{"celsius", 1};
    case Format::angle:
      return {"degree", 1};
  }
  return {};
}

std::string utf8(const icu::UnicodeString& text) {
  std::string bytes;
  return text.toUTF8String(bytes);
}

icu::UnicodeString write(const LocalizedNumberFormatter& formatter, double number) {
  UErrorCode status = U_ZERO_ERROR;
  const auto formatted = formatter.formatDouble(number, status);
  return formatted.toString(status);
}

std::string expected(const char* locale, Format format, Formatter::UnitStyle style,
                     const Shown& shown, double number) {
  UErrorCode status = U_ZERO_ERROR;
  const double whole = number * shown.factor / shown.size + shown.offset;
  const bool isDaily = format == Format::dailyVertical;
  const bool isSum = format == Format::totalVertical || format == Format::seasonVertical;
  const bool isAbbreviated = shown.unit && std::string(shown.unit) == "foot" && (isDaily || isSum);
  const bool isMillions = isAbbreviated && isSum && whole > 1e6;
  const int digits =
      format == Format::speed || format == Format::distance || (isAbbreviated && !isDaily) ? 1 : 0;
  const auto plain = NumberFormatter::withLocale(icu::Locale(locale))
                         .precision(Precision::fixedFraction(digits))
                         .sign(UNUM_SIGN_NEGATIVE)
                         .roundingMode(isAbbreviated ? UNUM_ROUND_DOWN : UNUM_ROUND_HALFUP);
  const double shownValue = isAbbreviated ? whole / (isMillions ? 1e6 : 1e3) : whole;
  auto text = write(plain, shownValue);
  const bool isSigned = whole < 0 && text != write(plain, -shownValue);
  if (isAbbreviated && !isSigned) {
    std::string suffix = isMillions ? localizedString("units.abbreviate_millions", "mil")
                                    : localizedString("units.abbreviate_thousands", "k");
    if (suffix == "mil" && !std::string_view(locale).starts_with("en")) suffix = "M";
    text += icu::UnicodeString::fromUTF8(suffix);
  }
  if (style == Formatter::UnitStyle::valueOnly) return utf8(text);
  if (shown.unit == nullptr) {
    text += icu::UnicodeString::fromUTF8(" " + std::string(beatsPerMinute().symbol()));
  } else {
    constexpr std::array kWidths = {UNUM_UNIT_WIDTH_SHORT, UNUM_UNIT_WIDTH_NARROW,
                                    UNUM_UNIT_WIDTH_SHORT, UNUM_UNIT_WIDTH_FULL_NAME};
    const auto withUnit = plain.unit(icu::MeasureUnit::forIdentifier(shown.unit, status))
                              .unitWidth(kWidths[static_cast<std::size_t>(style)]);
    const auto withPattern = write(withUnit, whole);
    const bool isNumbered = isAbbreviated || (digits > 0 && withPattern.indexOf(text) < 0);
    if (!isNumbered) text = withPattern;
    // The pattern of the whole value, and of a thousand where that one is said by a word alone.
    for (const double spoken : {isSigned ? whole : std::abs(whole), 1000.0}) {
      if (!isNumbered) break;
      auto pattern = write(withUnit, spoken);
      const auto spokenText = write(plain, spoken);
      if (pattern.indexOf(spokenText) < 0) continue;
      text = pattern.findAndReplace(spokenText, text);
      break;
    }
  }
  return utf8(text.toUpper(icu::Locale::getRoot()));
}

// Catches a wrong unit, digit, rounding, width, plural, order or capital in any format, style, unit
// system and language; and an abbreviated value whose number a language's grammar swallows.
TEST(AgainstIcuTests, EveryFormatReadsAsIcuWritesIt) {
  const testing::ScopedSettings settings;
  for (std::size_t i = 0; i < kLocales.size(); i += testing::kUnderSanitizer ? 6 : 1) {
    const char* const locale = kLocales[i];
    const testing::ScopedLocale scoped(locale);
    for (const char* preference : {"kilometers", "miles", "british"}) {
      settings.settings().setMetricType(preference);
      const std::string_view system = preference;
      for (int raw = 0; raw < 14; ++raw) {
        const auto format = static_cast<Format>(raw);
        const auto shown = shownFor(format, system == "miles", system == "british", locale);
        for (int style = 0; style < 4; ++style) {
          const auto unitStyle = static_cast<Formatter::UnitStyle>(style);
          Formatter formatter(format);
          formatter.setUnitStyle(unitStyle);
          for (const double number : kNumbers) {
            ASSERT_EQ(formatter.string(number), expected(locale, format, unitStyle, shown, number))
                << locale << ' ' << preference << " format " << raw << " style " << style << " of "
                << number;
          }
        }
      }
    }
  }
}

// Catches a formatter that writes in another locale than its own, or in its own but for the
// library's texts, or keeps the one before.
TEST(AgainstIcuTests, AFormatterHasALocaleOfItsOwn) {
  const testing::ScopedLocale english("en_US");
  const testing::ScopedSettings settings("kilometers");
  Formatter distance(Format::distance), weight(Format::weight), heart(Format::heartRate);
  heart.setLocale(platform::Locale("es_ES"));
  EXPECT_EQ(heart.string(120), "120 LPM");
  EXPECT_EQ(heart.unitLabel(), "lpm");
  EXPECT_EQ(heart.getObjectValue("?").error(), "El texto «?» no es un número.");
  settings.settings().setMetricType("miles");
  Formatter total(Format::totalVertical);
  total.setLocale(platform::Locale("de_DE"));
  EXPECT_EQ(total.string(12'345), "40,5\u00a0TSD. FT");
  EXPECT_EQ(total.string(400'000), "1,3\u00a0MIO. FT");
  settings.settings().setMetricType("kilometers");
  EXPECT_EQ(distance.string(1500), "1.5 KM");
  for (auto* formatter : {&distance, &weight}) formatter->setLocale(platform::Locale("de_DE"));
  EXPECT_EQ(distance.string(1500), "1,5 KM");
  EXPECT_EQ(weight.string(70), "70 KG");
  for (auto* formatter : {&distance, &weight}) formatter->setLocale(std::nullopt);
  EXPECT_EQ(distance.string(1500), "1.5 KM");
  EXPECT_EQ(weight.string(70), "154 LB");
}

}  // namespace
}  // namespace ombrix
