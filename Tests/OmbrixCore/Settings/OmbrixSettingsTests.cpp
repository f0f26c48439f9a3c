#include "OmbrixCore/Settings/OmbrixSettings.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <thread>

#include "OmbrixCore/Settings/Setting.hpp"
#include "OmbrixPlatform/Services.hpp"
#include "OmbrixTesting/EventLog.hpp"
#include "OmbrixTesting/Eventually.hpp"
#include "OmbrixTesting/RecordingLog.hpp"
#include "OmbrixTesting/ScopedDirectories.hpp"
#include "OmbrixTesting/ScopedSettings.hpp"

namespace ombrix {
namespace {

using enum platform::KeyValueObservingOptions;
using platform::PropertyList;
using ::testing::ElementsAre;
using testing::EventLog;
using testing::ScopedSettings;

// Catches names that are derived in another way than observers and callers expect.
TEST(OmbrixSettingsTests, NamesAreMappedBothWays) {
  const ScopedSettings scoped(ScopedSettings::Registers::nothing);
  scoped.settings().registerMappings({{"metricType", "units"}, {"x", "xKey"}});
  for (const auto* setter : {"setMetricType:", "setMetricType", "SETMetric:Type::"}) {
    EXPECT_EQ(OmbrixSettings::keyFromSetter(setter), "units") << setter;
  }
  EXPECT_EQ(OmbrixSettings::keyFromSetter("setX:"), "xKey");
  EXPECT_EQ(OmbrixSettings::keyFromGetter("metricType"), "units");
  EXPECT_EQ(OmbrixSettings::keyFromGetter("units"), "--");
  EXPECT_EQ(OmbrixSettings::setterFromKey("units"), "setUnits:");
  EXPECT_FALSE(OmbrixSettings::automaticallyNotifiesObserversForKey("metricType"));
  EXPECT_TRUE(OmbrixSettings::automaticallyNotifiesObserversForKey("units"));
}

// Catches a setting that is written nowhere, or under the wrong key, instead of stopping.
TEST(OmbrixSettingsDeathTests, WritingAnUnmappedSettingStops) {
  const ScopedSettings scoped;
  for (const auto* setter : {"setUnits:", "metricType", "se", ""}) {
    EXPECT_DEATH(OmbrixSettings::keyFromSetter(setter),
                 "\\(key != NULL\\), function \\+\\[OmbrixSettings keyFromSetter:\\], file "
                 "OmbrixSettings, line 127\\.")
        << setter;
  }
}

// Catches an unmapped read that finds something, and tables that outlive a new instance.
TEST(OmbrixSettingsTests, ANewInstanceWipesTheTables) {
  const ScopedSettings scoped("miles");
  EXPECT_EQ(scoped.settings().metricType(), "miles");
  const OmbrixSettings another;
  EXPECT_EQ(scoped.settings().metricType(), "");
  EXPECT_FALSE(scoped.settings().syncPreferences());
  EXPECT_FALSE(OmbrixSettings::shouldSyncForKey("units"));
}

// Catches values that reach the cloud against the user's wish, or do not when they should.
TEST(OmbrixSettingsTests, OnlySyncedKeysReachTheCloudAndOnlyWhileSyncIsOn) {
  const ScopedSettings scoped;
  auto& settings = scoped.settings();
  settings.disableSync();
  settings.saveObject("miles", "units");
  EXPECT_FALSE(scoped.cloud().objectForKey("units"));
  settings.setSyncPreferences(true);
  settings.setExtraLogging(true);
  settings.setMetricType("british");
  EXPECT_EQ(scoped.cloud().dictionaryRepresentation(),
            (PropertyList::Dictionary{{"units", "british"}}));
  EXPECT_EQ(scoped.defaults().persistentDomain(),
            (PropertyList::Dictionary{
                {"units", "british"}, {"syncPreferences", true}, {"enableExtraLogging", true}}));
}

/// Holds nothing, and says what it is told.
class SilentCloud : public platform::NSUbiquitousKeyValueStore {
 public:
  MOCK_METHOD(std::optional<PropertyList>, objectForKey, (std::string_view), (const, override));
  MOCK_METHOD(void, setObject, (PropertyList, std::string_view), (override));
  MOCK_METHOD(void, removeObjectForKey, (std::string_view), (override));
  MOCK_METHOD(PropertyList::Dictionary, dictionaryRepresentation, (), (const, override));
  MOCK_METHOD(bool, synchronize, (), (override));
  MOCK_METHOD(platform::ObservationToken, observeExternalChanges, (ExternalChangeHandler),
              (override));
};

// Catches a setter, or turning sync on, that holds its caller up with a round trip to the cloud,
// and a reset that does not reach the cloud at once.
TEST(OmbrixSettingsTests, OnlyAResetSynchronizes) {
  const ScopedSettings scoped;
  const auto cloud = std::make_shared<::testing::NiceMock<SilentCloud>>();
  const testing::ScopedService<platform::NSUbiquitousKeyValueStore> service(
      platform::services().cloudStore, cloud);
  auto& settings = scoped.settings();
  const ::testing::InSequence inOrder;
  EXPECT_CALL(*cloud, removeObjectForKey(std::string_view("units")));
  EXPECT_CALL(*cloud, synchronize);
  settings.setMetricType("miles");
  settings.saveBool(true, "units");
  settings.enableSyncWithBehavior(1);
  settings.enableSyncWithBehavior(0);
  settings.disableSync();
  settings.resetSynedPreferences();
}

// Catches the two directions of sync taken for each other, a registered default that is not
// copied, and a sync that stays off.
TEST(OmbrixSettingsTests, EnablingSyncCopiesAsTheCallerChooses) {
  struct Case {
    int behavior;
    const char *local, *cloud;            // stored before
    const char *localAfter, *cloudAfter;  // expected
  };
  const Case cases[] = {
      {1, "miles", "british", "miles", "miles"},
      {1, "", "british", "miles", "miles"},  // the registered default of en_US
      {0, "miles", "british", "british", "british"},
      {0, "miles", "", "miles", ""},
      {2, "miles", "british", "miles", "british"},
      {-1, "miles", "", "miles", ""},
  };
  for (const auto& [behavior, local, cloud, localAfter, cloudAfter] : cases) {
    const ScopedSettings scoped;
    auto& settings = scoped.settings();
    settings.disableSync();
    if (*local) scoped.defaults().setObject(local, "units");
    if (*cloud) scoped.cloud().setObject(cloud, "units");
    EXPECT_FALSE(settings.hasSyncedToiCloudBefore());
    settings.enableSyncWithBehavior(behavior);
    EXPECT_EQ(settings.metricType(), localAfter) << behavior << local << cloud;
    EXPECT_EQ(scoped.cloud().stringForKey("units").value_or(""), cloudAfter) << behavior << cloud;
    EXPECT_TRUE(settings.syncPreferences());
    EXPECT_TRUE(settings.hasSyncedToiCloudBefore());

    settings.resetSynedPreferences();
    EXPECT_FALSE(scoped.cloud().objectForKey("units"));
    EXPECT_TRUE(settings.syncPreferences());
  }
}

// Catches changes that observers of a property miss, hear of twice, or under the wrong name.
TEST(OmbrixSettingsTests, ChangesReachObserversOfThePropertyOnceFromAnyWriter) {
  const ScopedSettings scoped("miles");
  auto& settings = scoped.settings();
  EventLog told;
  const auto note = [&](const auto& change) {
    const auto* value = change.newValue ? change.newValue->text() : nullptr;
    told.add((change.isPrior ? "will " : "did ") + std::string(change.key) +
             (value ? " " + *value : ""));
  };
  auto property = settings.observe("metricType", newValue | prior, note);
  auto key = settings.observe("units", newValue | prior, note);
  auto other = settings.observe("extraLogging", none, note);

  settings.setMetricType("british");
  EXPECT_THAT(told.take(), ElementsAre("will metricType", "did metricType british"));
  scoped.defaults().setObject("miles", "units");
  EXPECT_THAT(told.take(), ElementsAre("will metricType", "did metricType miles"));

  // Cloud values winning names the storage key as well, each time that it was registered.
  settings.registerSyncedPreferenceKeys({"units"});
  scoped.cloud().setObject("kilometers", "units");
  settings.enableSyncWithBehavior(0);
  EXPECT_THAT(told.take(), ElementsAre("will units", "will metricType", "did metricType kilometers",
                                       "did units", "will units", "did units"));

  scoped.defaults().synchronize();
  const auto elsewhere = scoped.elsewhere();
  elsewhere->setObject("british", "units");
  elsewhere->setObject(true, "enableExtraLogging");
  EXPECT_THAT(told.takeOnce("did extraLogging"),
              ElementsAre("will metricType", "did metricType british", "did extraLogging"));
}

// Catches a setting of a program's own that is stored elsewhere, read as another kind, mirrored
// against its author's wish, or not observed.
TEST(OmbrixSettingsTests, AProgramAddsSettingsOfItsOwn) {
  const ScopedSettings scoped;
  Setting<bool> showLifts{"showLifts", "app.showLifts", true, Synced::yes};
  Setting<std::string> resort{"resort", "app.resort", "none"};
  Setting<std::int64_t> runs{"runs", "app.runs", 3};
  EXPECT_TRUE(showLifts.get());
  EXPECT_EQ(resort.get(), "none");
  EXPECT_EQ(runs.get(), 3);

  EventLog told;
  const auto token = showLifts.observe([&](bool shows) { told.add(shows ? "shown" : "hidden"); });
  showLifts.set(false);
  resort.set("Zermatt");
  runs.set(4);
  EXPECT_EQ(scoped.defaults().persistentDomain(),
            (PropertyList::Dictionary{
                {"app.showLifts", false}, {"app.resort", "Zermatt"}, {"app.runs", 4}}));
  EXPECT_EQ(scoped.cloud().dictionaryRepresentation(),
            (PropertyList::Dictionary{{"app.showLifts", false}}));
  showLifts.reset();
  EXPECT_TRUE(showLifts.get());
  EXPECT_EQ(OmbrixSettings::keyFromSetter("setShowLifts:"), "app.showLifts");
  const auto elsewhere = scoped.elsewhere();
  scoped.defaults().synchronize();
  elsewhere->setObject("NO", "app.showLifts");
  EXPECT_THAT(told.takeOnce("hidden"), ElementsAre("hidden", "shown"));
  elsewhere->setObject("resort", "app.resort");
  EXPECT_TRUE(testing::eventually([&] { return resort.get() == "resort" && !showLifts.get(); }));
  EXPECT_THAT(told.takeOnce("hidden"), ElementsAre("hidden"));
}

// Catches a mistake that nobody hears of, or that fills the log.
TEST(OmbrixSettingsTests, MisspeltNamesAreLoggedOnce) {
  const testing::RecordingLog log;
  const ScopedSettings scoped;
  auto& settings = scoped.settings();
  for (const auto* name : {"metricTyp", "metricType", "units", "metricTyp"}) {
    const auto token = settings.observe(name, none, [](const auto&) {});
  }
  for (const auto* unitSystem : {"furlongs", "miles", "furlongs"}) {
    settings.setMetricType(unitSystem);
    EXPECT_EQ(settings.metricType(), unitSystem);
  }
  scoped.defaults().setObject(PropertyList::Array{1}, "units");
  EXPECT_EQ(settings.metricType(), "");
  settings.setMetricType(std::nullopt);
  EXPECT_EQ(settings.metricType(), "miles");
  std::vector<std::string> warnings;
  for (const auto& line : log.lines()) warnings.push_back(line.message);
  EXPECT_THAT(warnings, ElementsAre(::testing::HasSubstr("\"metricTyp\""),
                                    ::testing::HasSubstr("\"furlongs\""),
                                    ::testing::HasSubstr("\"(an array)\"")));
}

// Catches tables and channels that change under those who read them, and a value read last that is
// served after a change.
TEST(OmbrixSettingsTests, ReadersMayComeWhileSettingsAreRegisteredAndMasked) {
  testing::ScopedDirectories directories;
  testing::RecordingLog log;
  directories.setGroupContainer(true);
  const ScopedSettings scoped;
  auto& settings = scoped.settings();
  std::vector<std::jthread> readers;
  std::atomic<bool> done{false};
  for (int i = 0; i < 3; ++i) {
    readers.emplace_back([&] {
      while (!done) {
        EXPECT_NE(settings.metricType(), "");
        EXPECT_TRUE(OmbrixSettings::shouldSyncForKey("units"));
        auto token = settings.observe("metricType", prior, [](const auto&) {});
      }
    });
  }
  for (int i = 0; i < 20; ++i) {
    settings.registerMappings({{"p" + std::to_string(i), "k" + std::to_string(i)}});
    const auto value = "v" + std::to_string(i);
    settings.setMetricType(value);
    if (i >= 10) settings.maskViaWormhole();
    EXPECT_EQ(settings.metricType(), value);
    std::jthread([&] { EXPECT_EQ(settings.metricType(), value); }).join();
  }
  scoped.waitForRegistrations();
  done = true;
}

}  // namespace
}  // namespace ombrix
