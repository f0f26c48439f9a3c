#include "OmbrixPlatform/Logging/DDLog.hpp"

#include <cstdlib>
#include <stdexcept>

#include "LoggingTestSupport.hpp"
#include "OmbrixPlatform/Logging/DDLogHold.hpp"
#include "OmbrixPlatform/Logging/DDOSLogger.hpp"
#include "OmbrixPlatform/Logging/Detail/JournalFields.hpp"
#include "OmbrixPlatform/Services.hpp"
#include "OmbrixPlatform/Values/FatalError.hpp"
#include "OmbrixTesting/RecordingSystemLog.hpp"
#include "OmbrixTesting/ScopedService.hpp"

namespace ombrix::platform {
namespace {

using ::testing::ElementsAre;

constexpr LogTag kTag{"Folder/Source", "run()"};

/// Keeps the texts it gets.
class TextLogger final : public DDLogger {
 public:
  void log(const DDLogMessage& message) override { texts.emplace_back(message.message); }
  std::vector<std::string> texts;
};

class DDLogTests : public ::testing::Test {
 protected:
  void TearDown() override { DDLog::removeAllLoggers(); }
};

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

// Catches a held message that is written too early, lost, or changes its place.
TEST_F(DDLogTests, HeldMessagesFollowInTheirOrder) {
  const auto logger = std::make_shared<TextLogger>();
  DDLog::addLogger(logger, DDLogLevel::verbose);
  {
    const DDLogHold outer;
    {
      const DDLogHold inner;
      DDLogError(kTag, std::string("first"));
    }
    DDLogInfo(kTag, std::string("second"));
    EXPECT_TRUE(logger->texts.empty());
  }
  DDLogInfo(kTag, "third");
  EXPECT_THAT(logger->texts, ElementsAre("first", "second", "third"));
}

// Catches a list that is locked, or changed in place, while a message walks it; a logger's level
// that is compared instead of tested as a mask; and a text that is made below the level.
TEST_F(DDLogTests, AMessageWalksTheListItStartedWith) {
  const auto last = std::make_shared<TextLogger>();
  const auto added = std::make_shared<TextLogger>();
  DDLog::addLogger(std::make_shared<MeddlingLogger>(added), DDLogLevel::verbose);
  DDLog::addLogger(last, DDLogLevel{4});
  DDLogError(kTag, "not for the last");
  DDLogInfo(kTag, "first");
  DDLogDebug(kTag, []() -> std::string { throw std::logic_error("made"); });
  DDLogInfo(kTag, "second");
  EXPECT_THAT(last->texts, ElementsAre("first", "second"));
  EXPECT_THAT(added->texts, ElementsAre("first", "second"));
}

class StoppingFormatter final : public DDLogFormatter {
 public:
  void format(const DDLogMessage& message, std::string& line) const override {
    if (message.message == "stop") fatalError("inside");
    line += message.message;
  }
};

struct LogsWhenDestroyed {
  ~LogsWhenDestroyed() { DDLogInfo(kTag, "very late"); }
};

// Catches lines that the end of the program loses, a deliberate stop that hangs in a lock it holds
// itself, and statics that are gone while others still log.
TEST_F(DDLogTests, TheEndOfTheProgramWritesWhatWasLogged) {
  const testing::ScopedDir dir;
  // The child of a death test runs this from the start; it must write to its parent's folder.
  setenv("OMBRIX_TEST_LOGS", dir.path().c_str(), 0);
  const std::filesystem::path folder = std::getenv("OMBRIX_TEST_LOGS");
  const auto logTwoLines = [&](const char* name) {
    const auto logger = fileLoggerIn(folder / name);
    logger->setLogFormatter(std::make_shared<StoppingFormatter>());
    DDLog::addLogger(logger, DDLogLevel::verbose);
    DDLogInfo(kTag, "one");
    DDLogInfo(kTag, "two");
  };
  EXPECT_DEATH((logTwoLines("abort"), fatalError("outside")), "Fatal error: outside");
  EXPECT_DEATH((logTwoLines("inside"), DDLogInfo(kTag, "stop")), "Fatal error: inside");
  const auto exit = [&] {
    static const LogsWhenDestroyed late;
    logTwoLines("exit");
    std::exit(0);
  };
  EXPECT_EXIT(exit(), ::testing::ExitedWithCode(0), "");
  unsetenv("OMBRIX_TEST_LOGS");
  EXPECT_THAT(contentsOfFiles(*fileLoggerIn(folder / "abort")), ElementsAre("one\ntwo\n"));
  EXPECT_THAT(contentsOfFiles(*fileLoggerIn(folder / "exit")),
              ElementsAre("one\ntwo\nvery late\n"));
}

// Catches a bare message lost without a formatter, and a field that the journal files elsewhere.
TEST_F(DDLogTests, TheSystemsLogGetsTheLineAndItsOrigin) {
  const auto systemLog = std::make_shared<testing::RecordingSystemLog>();
  const testing::ScopedService scoped(services().systemLog, systemLog);
  DDLog::addLogger(std::make_shared<DDOSLogger>("org.example", "main"), DDLogLevel::info);
  DDLogWarn(kTag, "avalanche");
  EXPECT_THAT(systemLog->texts(), ElementsAre("avalanche"));
  EXPECT_THAT(
      journalFields({"two\nlines", DDLogFlag::error, "org.example", "main", "A/B", "f()", 7}),
      ElementsAre("MESSAGE=two\nlines", "PRIORITY=3", "SUBSYSTEM=org.example", "CATEGORY=main",
                  "CODE_FILE=A/B", "CODE_LINE=7", "CODE_FUNC=f()"));
}

}  // namespace
}  // namespace ombrix::platform
