#include "OmbrixPlatform/Logging/DDLog.hpp"

#include <gmock/gmock.h>

#include <atomic>
#include <cstdlib>

#include "LoggingTestSupport.hpp"
#include "OmbrixPlatform/Logging/DDOSLogger.hpp"
#include "OmbrixPlatform/Logging/Detail/JournalFields.hpp"
#include "OmbrixPlatform/Services.hpp"
#include "OmbrixPlatform/Values/FatalError.hpp"
#include "OmbrixTesting/RecordingSystemLog.hpp"
#include "OmbrixTesting/ScopedDir.hpp"
#include "OmbrixTesting/ScopedService.hpp"

namespace ombrix::platform {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr LogTag kTag{"Folder/Source", "run()"};

class DDLogTests : public ::testing::Test {
 protected:
  void TearDown() override {
    DDLog::removeAllLoggers();
    DDLog::setDynamicLevel(DDLogLevel::info);
  }

  static void logOneOfEach() {
    DDLogError(kTag, "error");
    DDLogWarn(kTag, "warning");
    DDLogInfo(kTag, "info");
    DDLogDebug(kTag, "debug");
    DDLogVerbose(kTag, "verbose");
  }
};

// Catches a mask that is compared instead of tested, and one of the two levels being ignored.
TEST_F(DDLogTests, AMessagePassesTheDynamicLevelAndTheLoggersOwn) {
  const struct {
    DDLogLevel dynamicLevel;
    DDLogLevel loggerLevel;
    std::vector<std::string> expected;
  } cases[] = {
      {DDLogLevel::verbose, DDLogLevel::verbose, {"error", "warning", "info", "debug", "verbose"}},
      {DDLogLevel::verbose, DDLogLevel::info, {"error", "warning", "info"}},
      {DDLogLevel::warning, DDLogLevel::verbose, {"error", "warning"}},
      {DDLogLevel::verbose, DDLogLevel{8}, {"debug"}},
      {DDLogLevel::off, DDLogLevel::verbose, {}},
      {DDLogLevel::verbose, DDLogLevel::off, {}},
  };
  for (const auto& [dynamicLevel, loggerLevel, expected] : cases) {
    const auto logger = std::make_shared<TextLogger>();
    DDLog::addLogger(logger, loggerLevel);
    DDLog::setDynamicLevel(dynamicLevel);
    logOneOfEach();
    EXPECT_EQ(logger->texts(), expected);
    DDLog::removeLogger(*logger);
  }
}

// Catches a message text that is made although nobody reads it.
TEST_F(DDLogTests, AMessageFunctionRunsOnlyWhenItsLevelPasses) {
  const auto logger = std::make_shared<TextLogger>();
  DDLog::addLogger(logger, DDLogLevel::verbose);
  int made = 0;
  const auto text = [&] { return "made " + std::to_string(++made); };
  DDLogDebug(kTag, text);
  EXPECT_EQ(made, 0);
  DDLogInfo(kTag, text);
  EXPECT_THAT(logger->texts(), ElementsAre("made 1"));
}

/// Changes the list of loggers from inside a message.
class MeddlingLogger final : public DDLogger {
 public:
  explicit MeddlingLogger(std::shared_ptr<DDLogger> added) : added_(std::move(added)) {}
  void log(const DDLogMessage&) override {
    DDLog::removeLogger(*this);
    DDLog::addLogger(added_, DDLogLevel::verbose);
  }

 private:
  const std::shared_ptr<DDLogger> added_;
};

// Catches a list that is locked, or changed in place, while a message walks it.
TEST_F(DDLogTests, AMessageWalksTheListItStartedWith) {
  const auto last = std::make_shared<TextLogger>();
  const auto added = std::make_shared<TextLogger>();
  DDLog::addLogger(std::make_shared<MeddlingLogger>(added), DDLogLevel::verbose);
  DDLog::addLogger(last, DDLogLevel::verbose);
  DDLogInfo(kTag, "first");
  DDLogInfo(kTag, "second");
  EXPECT_THAT(last->texts(), ElementsAre("first", "second"));
  EXPECT_THAT(added->texts(), ElementsAre("second"));
}

// Catches a data race between messages and changes of the list (run under the thread sanitizer),
// and a logger that is torn down while a message is in it.
TEST_F(DDLogTests, ManyThreadsLogWhileLoggersComeAndGo) {
  const testing::ScopedDir dir;
  const auto steady = fileLoggerIn(dir.path());
  DDLog::addLogger(steady, DDLogLevel::verbose);
  constexpr int kThreads = 8;
  constexpr int kMessages = 200;
  std::vector<std::jthread> threads;
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([] {
      for (int n = 0; n < kMessages; ++n) DDLogInfo(kTag, "a line of some length");
    });
  }
  for (int round = 0; round < 50; ++round) {
    const auto passing = fileLoggerIn(dir.path() / "passing");
    DDLog::addLogger(passing, DDLogLevel::verbose);
    passing->setLogFormatter(nullptr);
    DDLog::removeLogger(*passing);
  }
  threads.clear();
  steady->flush();
  const auto text = contentsOfFiles(*steady).at(0);
  EXPECT_EQ(text.size(), std::size_t{kThreads * kMessages} * sizeof("a line of some length"));
}

/// The folder for a child process of a death test, which runs the test from its start again.
std::filesystem::path folderSharedWithChild(const testing::ScopedDir& dir) {
  constexpr const char* kName = "OMBRIX_TEST_LOG_FOLDER";
  if (const char* inherited = std::getenv(kName)) return inherited;
  setenv(kName, dir.path().c_str(), 1);
  return dir.path();
}

/// Stops the program inside its logger's lock.
class StoppingFormatter final : public DDLogFormatter {
 public:
  void format(const DDLogMessage& message, std::string& line) const override {
    if (message.message == "stop") fatalError("formatter");
    line += message.message;
  }
};

// Catches lines that a deliberate stop loses, and a stop that hangs in a lock it holds itself.
TEST_F(DDLogTests, AFatalErrorWritesWhatWasLogged) {
  const testing::ScopedDir dir;
  const auto folder = folderSharedWithChild(dir);
  const auto startLogging = [&](const char* name) {
    const auto logger = fileLoggerIn(folder / name);
    logger->setLogFormatter(std::make_shared<StoppingFormatter>());
    DDLog::addLogger(logger, DDLogLevel::verbose);
    DDLogInfo(kTag, "one");
    DDLogInfo(kTag, "two");
  };
  const auto run = [&](const char* name) {
    startLogging(name);
    fatalError("key != NULL");
  };
  EXPECT_DEATH(run("plain"), "Fatal error: key != NULL");
  const auto runInside = [&] {
    startLogging("inside");
    DDLogInfo(kTag, "stop");
  };
  EXPECT_DEATH(runInside(), "Fatal error: formatter");
  EXPECT_THAT(contentsOfFiles(*fileLoggerIn(folder / "plain")), ElementsAre("one\ntwo\n"));
  unsetenv("OMBRIX_TEST_LOG_FOLDER");
}

struct LogsWhenDestroyed {
  ~LogsWhenDestroyed() { DDLogInfo(kTag, "very late"); }
};

// Catches lines that are lost at the end of the program, and statics that are gone by then.
TEST_F(DDLogTests, TheEndOfTheProgramWritesWhatWasLogged) {
  const testing::ScopedDir dir;
  const auto folder = folderSharedWithChild(dir);
  const auto run = [&] {
    static const LogsWhenDestroyed late;
    DDLog::addLogger(fileLoggerIn(folder), DDLogLevel::verbose);
    DDLogInfo(kTag, "one");
    DDLogInfo(kTag, "two");
    std::exit(0);
  };
  EXPECT_EXIT(run(), ::testing::ExitedWithCode(0), "");
  EXPECT_THAT(contentsOfFiles(*fileLoggerIn(folder)), ElementsAre("one\ntwo\nvery late\n"));
  unsetenv("OMBRIX_TEST_LOG_FOLDER");
}

// Catches a system entry without its subsystem, and a bare message where there is no formatter.
TEST_F(DDLogTests, TheSystemsLogGetsTheSubsystemAndTheLine) {
  const auto systemLog = std::make_shared<testing::RecordingSystemLog>();
  const testing::ScopedService scoped(services().systemLog, systemLog);
  DDLog::addLogger(std::make_shared<DDOSLogger>("org.example", "main"), DDLogLevel::info);
  DDLogWarn(kTag, "avalanche");
  EXPECT_THAT(systemLog->texts(), ElementsAre("avalanche"));
  EXPECT_THAT(systemLog->origins(), ElementsAre("org.example:main"));
}

// Catches a field that the journal refuses or files under another name.
TEST_F(DDLogTests, JournalFieldsCarryTheOriginOfAMessage) {
  SystemLogEntry entry{.text = "two\nlines",
                       .flag = DDLogFlag::error,
                       .subsystem = "org.example",
                       .category = "main",
                       .file = "Folder/Source",
                       .function = "run()",
                       .line = 7};
  EXPECT_THAT(
      journalFields(entry),
      ElementsAre("MESSAGE=two\nlines", "PRIORITY=3", "SUBSYSTEM=org.example", "CATEGORY=main",
                  "CODE_FILE=Folder/Source", "CODE_LINE=7", "CODE_FUNC=run()"));
  entry.function = {};
  EXPECT_EQ(journalFields(entry).size(), 6U);
  EXPECT_EQ(syslogPriority(DDLogFlag::warning), 4);
  EXPECT_EQ(syslogPriority(DDLogFlag::info), 6);
  EXPECT_EQ(syslogPriority(DDLogFlag::verbose), 7);
}

}  // namespace
}  // namespace ombrix::platform
