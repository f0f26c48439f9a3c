#include "OmbrixPlatform/Text/Locale.hpp"

#include <gtest/gtest.h>

#include <cstdlib>

#include "OmbrixPlatform/Measure/NSUnit.hpp"

namespace ombrix::platform {
namespace {

// Catches region rules guessed from the language, and names that ICU would not map by itself.
TEST(LocaleTests, KnowsNamesAndMeasures) {
  struct Case {
    const char *name, *identifier, *tag, *region;
    bool usesMetricSystem;
  };
  constexpr Case kCases[] = {
      {"en_US", "en_US", "en-US", "US", false},
      {"en-GB", "en_GB", "en-GB", "GB", true},
      {"en_LR", "en_LR", "en-LR", "LR", false},
      {"en", "en", "en", "", false},
      {"sr_Latn_RS", "sr_Latn_RS", "sr-Latn-RS", "RS", true},
      {"", "en_US", "en-US", "US", false},
      {"POSIX", "en_US", "en-US", "US", false},
      {"!?", "en_US", "en-US", "US", false},
  };
  for (const auto& [name, identifier, tag, region, usesMetricSystem] : kCases) {
    const Locale locale(name);
    EXPECT_EQ(locale.identifier(), identifier) << name;
    EXPECT_EQ(locale.languageTag(), tag) << name;
    EXPECT_EQ(locale.regionCode(), region) << name;
    EXPECT_EQ(locale.usesMetricSystem(), usesMetricSystem) << name;
  }
}

// Catches the wrong variable winning, and encodings or modifiers taken for parts of the name.
TEST(LocaleTests, ReadsTheEnvironment) {
  struct Case {
    const char *all, *messages, *lang, *language, *identifier;
    std::vector<std::string> languages;
  };
  const Case cases[] = {
      {"de_DE.UTF-8", "fr_FR", "it_IT", "", "de_DE", {"de-DE"}},
      {"", "fr_FR.UTF-8", "it_IT", "", "fr_FR", {"fr-FR"}},
      {"", "", "it_IT@euro", "", "it_IT", {"it-IT"}},
      {"C.UTF-8", "", "", "", "en_US", {"en-US"}},
      {"sr_RS.UTF-8@latin", "", "", "", "sr_Latn_RS", {"sr-Latn-RS"}},
      {"en_GB.UTF-8", "", "", ":de_CH:fr::de_CH", "en_GB", {"de-CH", "fr"}},
      {"en_GB", "", "", ":", "en_GB", {"en-GB"}},
  };
  for (const auto& [all, messages, lang, language, identifier, languages] : cases) {
    setenv("LC_ALL", all, 1);
    setenv("LC_MESSAGES", messages, 1);
    setenv("LANG", lang, 1);
    setenv("LANGUAGE", language, 1);
    const auto service = makeSystemLocaleService();
    EXPECT_EQ(service->current().identifier(), identifier) << all << lang;
    EXPECT_EQ(service->preferredLanguages(), languages) << all << lang;
  }
}

// Catches a traveller's way of measuring that is not heard, or that changes the language.
TEST(LocaleTests, MeasuresAsTheEnvironmentSays) {
  struct Case {
    const char *all, *lang, *measurement;
    bool usesMetricSystem;
    const char* weights;
  };
  const Case cases[] = {
      {"", "en_US.UTF-8", "de_DE.UTF-8", true, "kg"},
      {"", "de_DE.UTF-8", "en_US.UTF-8", false, "lb"},
      {"", "en_US.UTF-8", "", false, "lb"},
      {"en_US.UTF-8", "", "de_DE.UTF-8", false, "lb"},
  };
  unsetenv("LC_MESSAGES");
  for (const auto& [all, lang, measurement, usesMetricSystem, weights] : cases) {
    setenv("LC_ALL", all, 1);
    setenv("LANG", lang, 1);
    setenv("LC_MEASUREMENT", measurement, 1);
    const auto locale = makeSystemLocaleService()->current();
    EXPECT_EQ(locale.identifier(), std::string(*all ? all : lang).substr(0, 5));
    EXPECT_EQ(locale.usesMetricSystem(), usesMetricSystem) << lang << measurement;
    EXPECT_EQ(NSUnitMass::forLocale(locale, NSUnitMass::Usage::personWeight).symbol(), weights);
  }
  unsetenv("LC_MEASUREMENT");
}

// Catches listeners that are told before the new locale is in place.
TEST(LocaleTests, TellsOfAChange) {
  const auto service = makeSystemLocaleService();
  std::string seen;
  const auto token =
      service->currentLocaleDidChange.connect([&] { seen = service->current().identifier(); });
  setenv("LC_ALL", "fr_CA.UTF-8", 1);
  service->localeDidChange();
  EXPECT_EQ(seen, "fr_CA");
}

}  // namespace
}  // namespace ombrix::platform
