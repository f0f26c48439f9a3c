#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <map>

#include "OmbrixCore/Settings/MMWormhole+Ombrix.hpp"
#include "OmbrixCore/Settings/OmbrixSettings.hpp"
#include "OmbrixPlatform/Observation/Signal.hpp"
#include "OmbrixTesting/ChildProcess.hpp"
#include "OmbrixTesting/EventLog.hpp"
#include "OmbrixTesting/RecordingLog.hpp"
#include "OmbrixTesting/ScopedDirectories.hpp"
#include "OmbrixTesting/ScopedSettings.hpp"

namespace ombrix {
namespace {

using enum platform::KeyValueObservingOptions;
using platform::PropertyList;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using testing::ScopedSettings;

/// A companion that is right here.
class Companion final : public platform::MessageChannel {
 public:
  bool passMessageObject(const PropertyList& message, std::string_view identifier) override {
    messages[std::string(identifier)] = message;
    heard[std::string(identifier)].send(message);
    return true;
  }
  std::optional<PropertyList> messageWithIdentifier(std::string_view identifier) const override {
    ++reads;
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

  mutable std::atomic<int> reads = 0;
  std::map<std::string, PropertyList> messages;
  std::map<std::string, platform::Signal<const PropertyList&>> heard;
};

// Catches a companion that is asked before it should be, or is not preferred afterwards, and
// observers that are not told of what it sends.
TEST(CompanionTests, ACompanionsUnitSystemIsPreferredOnceAskedFor) {
  const auto companion = std::make_shared<Companion>();
  const ScopedSettings scoped("miles");
  auto& settings = scoped.settings();
  companion->passMessageObject("british", "units");
  EXPECT_EQ(settings.metricType(), "miles");
  EXPECT_EQ(companion->reads, 0);
  scoped.maskVia(companion);
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

/// The user's other device: a process at the channel's other end.
class Watch {
 public:
  explicit Watch(const testing::ScopedDirectories& directories)
      : process_({COMPANION_AGENT, (directories.dir().path() / "group").string()}) {}

  void send(const std::string& key, const std::string& value) {
    process_.send(key + " " + value);
    ASSERT_EQ(process_.readLine(), "done");
  }

 private:
  testing::ChildProcess process_;
};

// Catches a change on one device that observers on the other miss, hear of twice or under another
// name, or hear of while the getter still gives the old value; and a channel that is read, or its
// folder watched, though nobody asked for it.
TEST(CompanionTests, ADeviceSeesWhatTheOtherSends) {
  testing::ScopedDirectories directories;
  testing::RecordingLog log;
  directories.setGroupContainer(true);
  const ScopedSettings scoped("miles");
  auto& settings = scoped.settings();
  testing::EventLog told;
  const auto note = [&](const auto& change) {
    told.add((change.isPrior ? "will " : "did ") + std::string(change.key) +
             (change.isPrior ? "" : " " + settings.metricType()));
  };
  const auto units = settings.observe("metricType", prior, note);
  const auto sync = settings.observe("syncPreferences", prior, note);
  Watch watch(directories);
  watch.send("units", "kilometers");
  EXPECT_EQ(settings.metricType(), "miles") << "not asked for";
  settings.maskViaWormhole();
  EXPECT_EQ(settings.metricType(), "kilometers");
  for (const std::string value : {"british", "miles", "british", "british"}) {
    watch.send("units", value);
    EXPECT_THAT(told.takeOnce("did metricType " + value),
                ElementsAre("will metricType", "did metricType " + value));
    EXPECT_EQ(settings.metricType(), value);
  }
  watch.send("syncPreferences", "false");
  EXPECT_THAT(told.takeOnce("did syncPreferences british"),
              ElementsAre("will syncPreferences", "did syncPreferences british"));
  EXPECT_TRUE(settings.syncPreferences()) << "only the unit system is the companion's";
  EXPECT_TRUE(std::filesystem::exists(directories.dir().path() / "group/wormhole/units.message"));
}

// Catches a device without a shared folder that fails in another way than to do without.
TEST(CompanionTests, WithoutAGroupFolderNothingIsMasked) {
  const testing::ScopedDirectories directories;
  testing::RecordingLog log;
  const ScopedSettings scoped("miles");
  scoped.settings().maskViaWormhole();
  EXPECT_EQ(log.takeErrors().size(), 1U);
  EXPECT_EQ(scoped.settings().metricType(), "miles");
}

}  // namespace
}  // namespace ombrix
