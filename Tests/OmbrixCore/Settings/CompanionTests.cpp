#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "OmbrixCore/Extensions/FileManager+Utils.hpp"
#include "OmbrixCore/Settings/MMWormhole+Ombrix.hpp"
#include "OmbrixCore/Settings/OmbrixSettings.hpp"
#include "OmbrixTesting/EventLog.hpp"
#include "OmbrixTesting/Processes/ChildProcess.hpp"
#include "OmbrixTesting/RecordingLog.hpp"
#include "OmbrixTesting/ScopedDirectories.hpp"
#include "OmbrixTesting/ScopedSettings.hpp"

namespace ombrix {
namespace {

using enum platform::KeyValueObservingOptions;
using ::testing::ElementsAre;
using testing::ScopedSettings;

/// The user's other device: a process at the channel's other end.
class Watch {
 public:
  explicit Watch(const testing::ScopedDirectories& directories)
      : process_({TEST_AGENT, "messages", std::string(FileManager::OmbrixGroupName),
                  (directories.dir().path() / "group").string()}) {}

  void send(const std::string& key, const std::string& value) {
    process_.send("pass " + key + " " + value);
    ASSERT_EQ(process_.readLine(), "done");
  }

 private:
  testing::ChildProcess process_;
};

// Catches a change on one device that observers on the other miss, hear of twice or under another
// name, or hear of while the getter still gives the old value; a channel that is read though nobody
// asked for it, or asks no more, and one that is not preferred.
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

  settings.setMetricType("miles");
  EXPECT_EQ(settings.metricType(), "british") << "the companion's is preferred";
  OmbrixWormhole()->clearMessageContentsForIdentifier("units");
  EXPECT_EQ(settings.metricType(), "miles");
  const OmbrixSettings another;  // wipes the channel, too
  watch.send("units", "british");
  EXPECT_NE(another.metricType(), "british");
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
