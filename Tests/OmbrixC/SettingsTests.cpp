#include "OmbrixC/OmbrixSettings.h"

#include <gtest/gtest.h>

#include <string>

#include "OmbrixPlatform/Coding/PropertyListSerialization.hpp"
#include "OmbrixTesting/RecordingLog.hpp"
#include "OmbrixTesting/ScopedDirectories.hpp"
#include "OmbrixTesting/ScopedSettings.hpp"

namespace ombrix {
namespace {

using platform::PropertyList;
using testing::ScopedSettings;

std::string taken(char* text) {
  std::string copy = text == nullptr ? "(none)" : text;
  ombrix_String_release(text);
  return copy;
}

// Catches a wrapper that reaches the wrong operation, drops an argument, or lets go of an observer.
TEST(SettingsTests, CallersReachTheSharedSettings) {
  const ScopedSettings scoped;
  auto* settings = ombrix_Settings_shared();
  std::string calls;
  auto* observation = ombrix_Settings_addObserver_forKeyPath_context_(
      settings,
      [](const char* keyPath, bool isPrior, void* context) {
        *static_cast<std::string*>(context) +=
            std::string(isPrior ? "will " : "did ") + keyPath + ";";
      },
      "metricType", &calls);
  ombrix_Settings_setMetricType_(settings, "british");
  EXPECT_EQ(taken(ombrix_Settings_metricType(settings)), "british");
  EXPECT_EQ(calls, "will metricType;did metricType;");
  ombrix_Observation_release(observation);
  ombrix_Settings_setMetricType_(settings, "\xff");
  EXPECT_EQ(taken(ombrix_Settings_metricType(settings)), "british");
  EXPECT_EQ(calls.size(), 31U);
  ombrix_Settings_setMetricType_(settings, nullptr);
  EXPECT_EQ(taken(ombrix_Settings_metricType(settings)), "miles");
  ombrix_Settings_saveObject_withKey_(settings, {.kind = OmbrixValueString, .string = "x"},
                                      "units");
  ombrix_Settings_saveObject_withKey_(settings, {.kind = OmbrixValueString}, "units");
  EXPECT_EQ(taken(ombrix_Settings_metricType(settings)), "miles");
  ombrix_Settings_setMetricType_(settings, "british");

  EXPECT_EQ(taken(ombrix_Settings_keyFromSetter_("setMetricType:")), "units");
  EXPECT_EQ(taken(ombrix_Settings_setterFromKey_("units")), "setUnits:");
  EXPECT_TRUE(ombrix_Settings_shouldSyncForKey_("units"));
  ombrix_Settings_disableSync(settings);
  EXPECT_FALSE(ombrix_Settings_syncPreferences(settings));
  ombrix_Settings_enableSyncWithBehavior_(settings, 1);
  EXPECT_TRUE(ombrix_Settings_hasSyncedToiCloudBefore(settings));
  EXPECT_EQ(scoped.cloud().stringForKey("units"), "british");
}

// Catches a channel that a C caller opens and the settings do not look at, and messages that
// change on the way.
TEST(SettingsTests, CallersReachTheCompanionsChannel) {
  testing::ScopedDirectories directories;
  testing::RecordingLog log;
  directories.setGroupContainer(true);
  const ScopedSettings scoped("miles");
  auto* settings = ombrix_Settings_shared();
  auto* channel = ombrix_MMWormhole_OmbrixWormhole();
  const OmbrixValue british{.kind = OmbrixValueString, .string = "british"};
  EXPECT_TRUE(ombrix_MMWormhole_passMessageObject_identifier_(channel, british, "units"));
  EXPECT_FALSE(ombrix_MMWormhole_passMessageObject_identifier_(channel, OmbrixValue{}, "units"));
  EXPECT_EQ(taken(ombrix_Settings_metricType(settings)), "miles");
  ombrix_Settings_maskViaWormhole(settings);
  EXPECT_EQ(taken(ombrix_Settings_metricType(settings)), "british");
  const OmbrixData bytes = ombrix_MMWormhole_messageWithIdentifier_(channel, "units");
  EXPECT_EQ(platform::PropertyListSerialization::read(
                std::as_bytes(std::span(bytes.bytes, bytes.length))),
            PropertyList("british"));
  ombrix_Data_release(bytes);
  ombrix_MMWormhole_clearMessageContentsForIdentifier_(channel, "units");
  EXPECT_EQ(ombrix_MMWormhole_messageWithIdentifier_(channel, "units").bytes, nullptr);
  ombrix_MMWormhole_release(channel);
}

// Catches values of one kind that arrive as another.
TEST(SettingsTests, ValuesOfEveryKindAreStored) {
  const ScopedSettings scoped(ScopedSettings::Registers::nothing);
  auto* settings = ombrix_Settings_shared();
  const auto list = platform::PropertyListSerialization::write(PropertyList::Array{1, "two"});
  OmbrixValue values[] = {
      {.kind = OmbrixValueBoolean, .boolean = true},
      {.kind = OmbrixValueInteger, .integer = INT64_MIN},
      {.kind = OmbrixValueReal, .real = 0.5},
      {.kind = OmbrixValueString, .string = "text"},
      {.kind = OmbrixValuePropertyList,
       .propertyList = {reinterpret_cast<const uint8_t*>(list.data()), list.size()}},
      {.kind = OmbrixValueNone, .integer = 0},
  };
  const PropertyList expected[] = {true, INT64_MIN, 0.5, "text", PropertyList::Array{1, "two"}};
  const char* keys[] = {"0", "1", "2", "3", "4", "5"};
  ombrix_Settings_registerDefaults_(settings, keys, values, std::size(values));
  for (std::size_t i = 0; i < std::size(expected); ++i) {
    EXPECT_EQ(scoped.defaults().objectForKey(keys[i]), expected[i]) << i;
  }
  ombrix_Settings_saveObject_withKey_(settings, values[4], "key");
  EXPECT_EQ(scoped.defaults().objectForKey("key"), expected[4]);
  ombrix_Settings_saveObject_withKey_(settings, values[5], "key");
  EXPECT_EQ(scoped.defaults().objectForKey("key"), std::nullopt);
}

}  // namespace
}  // namespace ombrix
