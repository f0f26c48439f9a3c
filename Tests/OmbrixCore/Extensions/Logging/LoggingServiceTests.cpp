#include "OmbrixCore/Extensions/Logging/LoggingService.hpp"

#include <gmock/gmock.h>

#include <cstdlib>
#include <filesystem>
#include <thread>
#include <vector>

#include "OmbrixCore/Extensions/Logging/Log.hpp"
#include "OmbrixCore/Extensions/Logging/OmbrixLogFormatter.hpp"
#include "OmbrixPlatform/Logging/DDFileLogger.hpp"
#include "OmbrixPlatform/Logging/DDOSLogger.hpp"
#include "OmbrixPlatform/Services.hpp"
#include "OmbrixTesting/RecordingLog.hpp"
#include "OmbrixTesting/RecordingSystemLog.hpp"
#include "OmbrixTesting/ScopedDir.hpp"
#include "OmbrixTesting/ScopedService.hpp"
#include "OmbrixTesting/ScopedSettings.hpp"

namespace ombrix {
namespace {

using platform::DDFileLogger;
using platform::DDLog;
using platform::DDLogLevel;
using platform::DDOSLogger;
using ::testing::ElementsAre;
using ::testing::EndsWith;

constexpr LogTag kTag{"OmbrixCore/Data/ItemStore", "doRead(url:)"};

/// Leaves the process's one service and its two loggers as they were.
class LoggingServiceTests : public ::testing::Test {
 protected:
  using Loggers = std::vector<std::shared_ptr<platform::DDLogger>>;

  void TearDown() override {
    useOnly(loggers_);
    service_.setExtraLoggingEnabled(false);
  }

  static void useOnly(const Loggers& loggers) {
    DDLog::removeAllLoggers();
    for (const auto& logger : loggers) DDLog::addLogger(logger, DDLog::dynamicLevel());
  }

  /// A system and a file logger alone, the latter with the given files, the oldest first.
  std::shared_ptr<DDFileLogger> useOnlyFilesWith(const std::vector<std::string>& contents) {
    std::filesystem::remove_all(dir_.path() / "Logs");
    for (std::size_t i = 0; i < contents.size(); ++i) {
      dir_.write("Logs/a-2024-05-01T10-30-" + std::to_string(10 + i) + ".000Z.log", contents[i]);
    }
    auto logger = std::make_shared<DDFileLogger>(
        std::make_shared<platform::DDLogFileManager>(dir_.path() / "Logs", "a"));
    useOnly({std::make_shared<DDOSLogger>("org.example", "main"), logger});
    return logger;
  }

  const testing::ScopedSettings settings_;
  LoggingService& service_ = LoggingService::shared();
  const Loggers loggers_ = DDLog::allLoggers();
  const testing::ScopedDir dir_;
};

// Catches a recording that lets the service in or keeps it out for good, messages that nobody hears
// because nothing has asked for the service yet, and loggers set up in another way.
TEST(LoggingServiceSetUpTests, TheFirstLogCallOutsideARecordingSetsUpTheTwoLoggers) {
  const auto run = [] {
    bool isAsRequired = false;
    {
      const testing::RecordingLog log;
      logDebug(kTag, "Data: recorded");
      isAsRequired = DDLog::allLoggers().size() == 1 && log.lines().size() == 1;
    }
    logInfo(kTag, "Data: first");
    const auto loggers = DDLog::allLoggers();
    const auto& file = dynamic_cast<DDFileLogger&>(*loggers.at(0));
    const auto& system = dynamic_cast<DDOSLogger&>(*loggers.at(1));
    isAsRequired = isAsRequired && loggers.size() == 2 &&
                   file.rollingFrequency() == std::chrono::days{7} &&
                   file.logFileManager()->maximumNumberOfLogFiles() == 5 &&
                   system.subsystem() == "com.brannoway.ombrix" && system.category() == "main" &&
                   DDLog::dynamicLevel() == DDLogLevel::info &&
                   LoggingService::shared().historicalLogText()->contains("Data: first |");
    std::exit(isAsRequired ? 0 : 1);
  };
  EXPECT_EXIT(run(), ::testing::ExitedWithCode(0), "");
}

// Catches a switch that forgets the settings, a logger, the order, or a logger's new level.
TEST_F(LoggingServiceTests, ExtraLoggingReachesEveryLoggerInTheSameOrder) {
  const auto systemLog = std::make_shared<testing::RecordingSystemLog>();
  const testing::ScopedService scoped(platform::services().systemLog, systemLog);
  const auto attached = useOnlyFilesWith({});
  useOnly({std::make_shared<DDOSLogger>("org.example", "main")});
  service_.attach(attached);
  const auto before = DDLog::allLoggers();
  logDebug(kTag, "Data: too early");
  service_.setExtraLoggingEnabled(true);
  EXPECT_TRUE(service_.extraLoggingEnabled() && settings_.settings().extraLogging());
  EXPECT_EQ(DDLog::dynamicLevel(), DDLogLevel::verbose);
  EXPECT_EQ(DDLog::allLoggers(), before);
  const auto line = std::source_location::current().line() + 1;
  logDebug(kTag, "Data: in time");
  service_.setExtraLoggingEnabled(false);
  EXPECT_FALSE(service_.extraLoggingEnabled() || settings_.settings().extraLogging());
  EXPECT_EQ(DDLog::dynamicLevel(), DDLogLevel::info);
  logVerbose(kTag, "Data: too late");
  EXPECT_THAT(systemLog->texts(), ElementsAre("Data: in time"));
  EXPECT_THAT(
      *service_.historicalLogText(),
      EndsWith("   Data: in time | [ItemStore doRead(url:)]:" + std::to_string(line) + "\n"));
}

// Catches the wrong order, the wrong end of a long list, and a limit off by one.
TEST_F(LoggingServiceTests, TheHistoryGoesFromTheOldestFileTowardsTheNewest) {
  const struct {
    std::size_t maximum;
    std::vector<std::string> files;
    std::string expected;
  } cases[] = {
      {5, {"one\n", "two\n", "three\n"}, "one\ntwo\nthree\n"},
      {5, {}, ""},
      {2, {"a", "b", "c"}, "ab"},
      {20, {"a", "b", "c", "d", "e", "f", "g", "h", "i", "j", "k", "l"}, "abcdefghij"},
  };
  for (const auto& test : cases) {
    useOnlyFilesWith(test.files)->logFileManager()->setMaximumNumberOfLogFiles(test.maximum);
    EXPECT_EQ(service_.historicalLogText(), test.expected);
  }
}

// Catches a history without the latest lines, one that an unreadable file ends, and bytes that are
// passed off as text.
TEST_F(LoggingServiceTests, TheHistoryCopesWithWhatIsThere) {
  useOnlyFilesWith({"one\n"});
  std::filesystem::create_directory(dir_.path() / "Logs/a-2024-05-01T10-30-00.500Z.log");
  logInfo(kTag, "Data: two");
  logInfo(kTag, "Data: three");
  EXPECT_EQ(service_.historicalLogText(), "one\nData: two\nData: three\n");
  logInfo(kTag, "Data: \xFF");
  EXPECT_EQ(service_.historicalLogText(), "one\nData: two\nData: three\nData: \uFFFD\n");
  useOnlyFilesWith({"from elsewhere \xFF\n"});
  EXPECT_EQ(service_.historicalLogText(), std::nullopt);
  EXPECT_TRUE(service_.historicalLog().has_value());
  useOnly({});
  EXPECT_EQ(service_.historicalLog(), std::nullopt);
  EXPECT_EQ(service_.historicalLogText(), std::nullopt);
}

// Catches a data race of the switch with messages (run under the thread sanitizer), loggers that
// two switches at once add twice or lose, and switches at once that end opposite to the setting.
TEST_F(LoggingServiceTests, ManyThreadsLogWhileTheLevelIsSwitched) {
  useOnlyFilesWith({});
  const auto before = DDLog::allLoggers();
  const auto log = [] {
    for (int n = 0; n < 100; ++n) logInfo(kTag, "Data: line");
  };
  const auto flip = [this](bool isEnabled) {
    for (int n = 0; n < 20; ++n) service_.setExtraLoggingEnabled(isEnabled);
  };
  {
    std::vector<std::jthread> threads;
    for (int i = 0; i < 8; ++i) threads.emplace_back(log);
    for (const bool isEnabled : {true, false}) threads.emplace_back(flip, isEnabled);
  }
  EXPECT_EQ(DDLog::allLoggers(), before);
  EXPECT_EQ(service_.extraLoggingEnabled(), settings_.settings().extraLogging());
  EXPECT_EQ(DDLog::dynamicLevel(),
            service_.extraLoggingEnabled() ? DDLogLevel::verbose : DDLogLevel::info);
}

}  // namespace
}  // namespace ombrix
