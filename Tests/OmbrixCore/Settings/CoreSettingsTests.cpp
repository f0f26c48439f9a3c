#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "OmbrixCore/Settings/OmbrixSettings.hpp"
#include "OmbrixPlatform/Services.hpp"
#include "OmbrixTesting/ScopedLocale.hpp"
#include "OmbrixTesting/ScopedSettings.hpp"

namespace ombrix {
namespace {

using enum platform::KeyValueObservingOptions;
using platform::PropertyList;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using testing::ScopedLocale;
using testing::ScopedSettings;

// Catches a wrong unit system at first start, by far the most visible fault a setting can have.
TEST(CoreSettingsTests, DefaultsFollowTheLocale) {
  const std::pair<const char*, const char*> cases[] = {
      {"en_GB", "british"},    {"en_US", "miles"},      {"de_DE", "kilometers"},
      {"cy_GB", "kilometers"}, {"es_US", "miles"},      {"en_LR", "miles"},
      {"my_MM", "kilometers"}, {"ja_JP", "kilometers"}, {"en_CA", "kilometers"},
  };
  for (const auto& [locale, expected] : cases) {
    const ScopedLocale scopedLocale(locale);
    const ScopedSettings scoped;
    EXPECT_EQ(scoped.settings().metricType(), expected) << locale;
    EXPECT_TRUE(scoped.settings().syncPreferences());
    EXPECT_FALSE(scoped.settings().extraLogging());
    EXPECT_THAT(scoped.defaults().persistentDomain(), IsEmpty()) << "defaults are not stored";
    EXPECT_TRUE(OmbrixSettings::shouldSyncForKey("units"));
    EXPECT_FALSE(OmbrixSettings::shouldSyncForKey("syncPreferences"));
    EXPECT_FALSE(OmbrixSettings::shouldSyncForKey("enableExtraLogging"));
  }
}

// Catches a unit system that is chosen anew behind the user's back, and observers who are told to
// read again what they have chosen themselves.
TEST(CoreSettingsTests, ALocaleChangeIsToldOnlyWhileNoUnitSystemIsStored) {
  ScopedLocale locale("de_DE");
  const ScopedSettings scoped;
  std::vector<std::string> calls;
  auto token = scoped.settings().observe("metricType", newValue | prior, [&](const auto& change) {
    calls.push_back(change.isPrior ? "will" : "did " + *change.newValue->text());
  });
  locale.change("en_US");
  EXPECT_THAT(std::exchange(calls, {}), ElementsAre("will", "did kilometers"));
  bool isServiceTold = false;
  const auto service = platform::services().locale.get().currentLocaleDidChange.connect(
      [&] { isServiceTold = true; });
  scoped.settings().localeDidChange();
  EXPECT_TRUE(isServiceTold);
  EXPECT_THAT(std::exchange(calls, {}), ElementsAre("will", "did kilometers"));
  scoped.settings().setMetricType("miles");
  calls.clear();
  locale.change("en_GB");
  EXPECT_THAT(calls, IsEmpty());
  EXPECT_EQ(scoped.settings().metricType(), "miles");
}

}  // namespace
}  // namespace ombrix
