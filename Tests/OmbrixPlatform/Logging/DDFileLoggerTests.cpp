#include "OmbrixPlatform/Logging/DDFileLogger.hpp"

#include <gmock/gmock.h>

#include <algorithm>
#include <map>
#include <sstream>

#include "LoggingTestSupport.hpp"
#include "OmbrixPlatform/Services.hpp"
#include "OmbrixTesting/ManualClock.hpp"
#include "OmbrixTesting/ScopedDir.hpp"
#include "OmbrixTesting/ScopedService.hpp"

namespace ombrix::platform {
namespace {

namespace fs = std::filesystem;
using std::chrono::days;
using ::testing::AllOf;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Key;

constexpr Date kStart = dateSince1970(1'714'559'430.25);  // 2024-05-01 10:30:30.250 UTC

std::vector<std::string> namesOfFiles(const DDFileLogger& logger) {
  std::vector<std::string> names;
  for (const auto& info : logger.logFileManager()->sortedLogFileInfos()) {
    names.push_back(info.fileName());
  }
  return names;
}

// Catches a folder or file that is made before anything is logged.
TEST(DDFileLoggerTests, TheFirstMessageMakesTheFile) {
  const testing::ScopedDir dir;
  const auto logger = fileLoggerIn(dir.path() / "made" / "Logs");
  logger->flush();
  EXPECT_THAT(namesOfFiles(*logger), IsEmpty());
  EXPECT_FALSE(fs::exists(dir.path() / "made"));
  logger->log(messageAt(kStart, "hello"));
  EXPECT_THAT(contentsOfFiles(*logger), ElementsAre("hello\n"));
  const auto info = logger->logFileManager()->sortedLogFileInfos().at(0);
  EXPECT_EQ(info.filePath, dir.path() / "made" / "Logs" / "skier-2024-05-01T10-30-30.250Z.log");
  EXPECT_EQ(info.creationDate, kStart);
  EXPECT_EQ(info.fileSize, 6U);
}

// Catches a rolling that is late by a message, a wrong order, a limit off by one, and the
// deletion of files that are none of ours.
TEST(DDFileLoggerTests, AnOldFileIsFollowedByANewOneAndTheOldestGo) {
  const testing::ScopedDir dir;
  for (const char* foreign :
       {"notes.log", "skier-2024-05-01.log", "skier-2024-13-01T10-30-30.250Z.log",
        "other-2020-05-01T10-30-30.250Z.log"}) {
    dir.write(foreign, "foreign");
  }
  const auto clock = std::make_shared<testing::ManualClock>(kStart);
  const testing::ScopedService scoped(services().clock, clock);
  const auto logger = fileLoggerIn(dir.path());
  logger->setRollingFrequency(days{7});
  logger->logFileManager()->setMaximumNumberOfLogFiles(5);
  DDLog::addLogger(logger, DDLogLevel::info);
  for (int week = 0; week < 7; ++week) {
    const auto text = "week " + std::to_string(week);
    DDLogInfo({}, text);
    clock->advance(days{7} - std::chrono::seconds{1});
    DDLogInfo({}, "end");
    clock->advance(std::chrono::seconds{1});
  }
  DDLog::removeLogger(*logger);
  logger->flush();
  EXPECT_THAT(contentsOfFiles(*logger),
              ElementsAre("week 6\nend\n", "week 5\nend\n", "week 4\nend\n", "week 3\nend\n",
                          "week 2\nend\n"));
  EXPECT_EQ(namesOfFiles(*logger).back(), "skier-2024-05-15T10-30-30.250Z.log");
  EXPECT_EQ(std::distance(fs::directory_iterator(dir.path()), {}), 5 + 4);
}

// Catches a program start that needlessly begins a new file, or goes on with an unfit one.
TEST(DDFileLoggerTests, ANewLoggerGoesOnWithTheNewestFileWhileItIsFit) {
  const struct {
    const char* name;
    TimeInterval age;
    std::uint64_t maximumFileSize;
    std::size_t expectedFiles;
  } cases[] = {
      {"young and small", days{6}, 100, 1},
      {"a week old", days{7}, 100, 2},
      {"large", days{1}, 6, 2},
      {"from the future", -days{9}, 100, 1},
      {"large and no maximum", days{1}, 0, 1},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(test.name);
    const testing::ScopedDir dir;
    fileLoggerIn(dir.path())->log(messageAt(kStart, "first"));
    const auto logger = fileLoggerIn(dir.path());
    logger->setRollingFrequency(days{7});
    logger->setMaximumFileSize(test.maximumFileSize);
    logger->log(messageAt(kStart + test.age, "second"));
    EXPECT_EQ(contentsOfFiles(*logger).size(), test.expectedFiles);
  }
}

// Catches a size that counts messages instead of bytes, and a roll on demand that loses a line.
TEST(DDFileLoggerTests, ALargeFileIsFollowedByANewOne) {
  const testing::ScopedDir dir;
  const auto logger = fileLoggerIn(dir.path());
  logger->setMaximumFileSize(10);
  for (const char* text : {"1234", "5678", "9"}) {
    logger->log(messageAt(kStart, text));
    logger->flush();
  }
  logger->rollLogFile();
  logger->log(messageAt(kStart, "last"));
  EXPECT_THAT(contentsOfFiles(*logger), ElementsAre("last\n", "9\n", "1234\n5678\n"));
}

// Catches a clock that was set back making the current file the oldest, which is deleted next;
// and a file from the future that is never rolled, or rolled with every message.
TEST(DDFileLoggerTests, AClockSetBackKeepsTheOrder) {
  const testing::ScopedDir dir;
  const auto logger = fileLoggerIn(dir.path());
  logger->setRollingFrequency(days{7});
  const Date before = kStart - days{365};
  logger->log(messageAt(kStart, "future"));
  logger->rollLogFile();
  for (const Date date : {before, before + days{6}, before + days{7}, before + days{8}}) {
    logger->log(messageAt(date, "after"));
  }
  logger->flush();
  EXPECT_THAT(contentsOfFiles(*logger),
              ElementsAre("after\nafter\n", "after\nafter\n", "future\n"));
}

// Catches lines that go on into a file nobody can see any more.
TEST(DDFileLoggerTests, ARemovedFolderIsMadeAnew) {
  const testing::ScopedDir dir;
  const auto logger = fileLoggerIn(dir.path() / "Logs");
  logger->log(messageAt(kStart, "lost with the folder"));
  fs::remove_all(dir.path() / "Logs");
  logger->log(messageAt(kStart, "seen"));
  logger->flush();
  EXPECT_THAT(contentsOfFiles(*logger), ElementsAre("seen\n"));
}

// Catches a program that dies or floods its standard error because it cannot log, and lines that
// are lost although there was room for them.
TEST(DDFileLoggerTests, AFileThatCannotBeOpenedIsReportedOnce) {
  const testing::ScopedDir dir;
  dir.write("blocked", "a file where the folder should be");
  const auto logger = fileLoggerIn(dir.path() / "blocked");
  ::testing::internal::CaptureStderr();
  for (const char* text : {"one", "two", "three"}) {
    logger->log(messageAt(kStart, text, DDLogFlag::error));
    logger->flush();
  }
  const auto complaint = ::testing::internal::GetCapturedStderr();
  EXPECT_EQ(std::ranges::count(complaint, '\n'), 1);
  EXPECT_THAT(complaint, ::testing::HasSubstr((dir.path() / "blocked").string()));
  fs::remove(dir.path() / "blocked");
  logger->flush();
  EXPECT_THAT(contentsOfFiles(*logger), ElementsAre("one\ntwo\nthree\n"));
}

// Catches a full disk that loses lines for good or lets the held ones grow without bound.
TEST(DDFileLoggerTests, AFullDiskHoldsLinesForLater) {
  const testing::ScopedDir dir;
  const auto full = dir.path() / "skier-2024-05-01T10-30-30.250Z.log";
  fs::create_symlink("/dev/full", full);
  const auto logger = fileLoggerIn(dir.path());
  ::testing::internal::CaptureStderr();
  const std::string line(1023, 'x');
  for (int i = 0; i < 3000; ++i) logger->log(messageAt(kStart, line));
  const auto complaint = ::testing::internal::GetCapturedStderr();
  EXPECT_EQ(std::ranges::count(complaint, '\n'), 1) << complaint;
  fs::remove(full);
  logger->rollLogFile();
  logger->log(messageAt(kStart, "room again"));
  logger->flush();
  const auto text = contentsOfFiles(*logger).at(0);
  EXPECT_EQ(text.size(), 1024 * 1024 + sizeof("room again"));
}

// Catches a line that waits in memory for the next message.
TEST(DDFileLoggerTests, ALineReachesTheFileWithoutFlush) {
  const testing::ScopedDir dir;
  const auto logger = fileLoggerIn(dir.path());
  logger->log(messageAt(kStart, "first"));
  logger->log(messageAt(kStart, "second"));
  EXPECT_TRUE(becomesTrue([&] { return contentsOfFiles(*logger).at(0) == "first\nsecond\n"; }));
}

// Catches lines of processes that share a folder being mixed, lost or doubled, also while one of
// them rolls and deletes files that the other writes to.
TEST(DDFileLoggerTests, TwoLoggersShareAFolder) {
  const testing::ScopedDir dir;
  const std::vector loggers{fileLoggerIn(dir.path()), fileLoggerIn(dir.path())};
  constexpr int kThreads = 4;
  constexpr int kMessages = 2000;
  for (const auto& logger : loggers) logger->logFileManager()->setMaximumNumberOfLogFiles(0);
  {
    std::vector<std::jthread> threads;
    for (int i = 0; i < kThreads; ++i) {
      threads.emplace_back([&, i] {
        DDFileLogger& logger = *loggers[static_cast<std::size_t>(i % 2)];
        for (int n = 0; n < kMessages; ++n) {
          logger.log(messageAt(kStart, std::to_string(i) + " " + std::to_string(n)));
          if (n % 500 == 499) logger.rollLogFile();
        }
      });
    }
  }
  std::map<std::string, int> lines;
  for (const auto& logger : loggers) logger->flush();
  for (const auto& contents : contentsOfFiles(*loggers[0])) {
    std::istringstream in(contents);
    for (std::string line; std::getline(in, line);) ++lines[line];
  }
  EXPECT_EQ(lines.size(), std::size_t{kThreads * kMessages});
  EXPECT_THAT(lines, AllOf(Contains(Key("0 0")), Contains(Key("3 1999"))));
}

}  // namespace
}  // namespace ombrix::platform
