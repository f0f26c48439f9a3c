#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>

#include "OmbrixCore/Settings/OmbrixSettings.hpp"
#include "OmbrixPlatform/Observation/Signal.hpp"
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
  scoped.settings().setMetricType("miles");
  calls.clear();
  locale.change("en_GB");
  EXPECT_THAT(calls, IsEmpty());
  EXPECT_EQ(scoped.settings().metricType(), "miles");
}

/// A companion that is right here.
class Companion final : public platform::MessageChannel {
 public:
  void passMessageObject(const PropertyList& message, std::string_view identifier) override {
    messages[std::string(identifier)] = message;
    heard[std::string(identifier)].send(message);
  }
  std::optional<PropertyList> messageWithIdentifier(std::string_view identifier) const override {
    const auto it = messages.find(std::string(identifier));
    return it == messages.end() ? std::nullopt : std::optional(it->second);
  }
  void clearMessageContentsForIdentifier(std::string_view identifier) override {
    messages.erase(std::string(identifier));
  }
  platform::ObservationToken listenForMessageWithIdentifier(std::string_view identifier,
                                                            Listener listener) override {
    return heard[std::string(identifier)].connect(std::move(listener));
  }

  std::map<std::string, PropertyList> messages;
  std::map<std::string, platform::Signal<const std::optional<PropertyList>&>> heard;
};

// Catches a companion that is asked before it should be, or is not preferred afterwards, and
// observers that are not told of what it sends.
TEST(CoreSettingsTests, ACompanionsUnitSystemIsPreferredOnceAskedFor) {
  const auto companion = std::make_shared<Companion>();
  const ScopedSettings scoped("miles");
  auto& settings = scoped.settings();
  companion->passMessageObject("british", "units");
  EXPECT_EQ(settings.metricType(), "miles");
  settings.maskViaWormhole(companion);
  EXPECT_EQ(settings.metricType(), "british");

  std::vector<std::string> calls;
  auto units = settings.observe("metricType", newValue | prior, [&](const auto& change) {
    calls.push_back(change.isPrior ? "will" : "did " + *change.newValue->text());
  });
  auto logging = settings.observe("extraLogging", none, [&](auto&) { calls.push_back("logging"); });
  companion->passMessageObject("kilometers", "units");
  companion->passMessageObject(true, "enableExtraLogging");
  EXPECT_THAT(std::exchange(calls, {}), ElementsAre("will", "did kilometers", "logging"));
  EXPECT_FALSE(settings.extraLogging()) << "only the unit system is the companion's";

  settings.setMetricType("miles");
  EXPECT_EQ(settings.metricType(), "kilometers");
  companion->clearMessageContentsForIdentifier("units");
  EXPECT_EQ(settings.metricType(), "miles");
  const OmbrixSettings another;  // wipes the channel, too
  companion->passMessageObject("british", "units");
  EXPECT_NE(another.metricType(), "british");
}

}  // namespace
}  // namespace ombrix
