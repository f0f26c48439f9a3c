#include "OmbrixPlatform/Logging/DDFileLogger.hpp"

#include <sys/resource.h>
#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <map>
#include <sstream>
#include <thread>

#include "LoggingTestSupport.hpp"
#include "OmbrixPlatform/Services.hpp"
#include "OmbrixTesting/ManualClock.hpp"
#include "OmbrixTesting/ScopedService.hpp"

namespace ombrix::platform {
namespace {

namespace fs = std::filesystem;
using std::chrono::days;
using ::testing::ElementsAre;

constexpr Date kStart = dateSince1970(1'714'559'430.25);  // 2024-05-01 10:30:30.250 UTC

DDLogMessage messageAt(Date date, std::string_view text, DDLogFlag flag = DDLogFlag::info) {
  return {.message = text, .flag = flag, .timestamp = date};
}

// Catches a folder that is made before anything is logged, rolling that is late by a message, a
// limit off by one, a wrong order, and the deletion of files that are none of ours.
TEST(DDFileLoggerTests, AnOldFileIsFollowedByANewOneAndTheOldestGo) {
  const testing::ScopedDir dir;
  const auto clock = std::make_shared<testing::ManualClock>(kStart);
  const testing::ScopedService scoped(services().clock, clock);
  const auto logger = fileLoggerIn(dir.path() / "app" / "Logs");
  logger->setRollingFrequency(days{7});
  DDLog::addLogger(logger, DDLogLevel::info);
  DDLog::flushLog();
  EXPECT_FALSE(fs::exists(dir.path() / "app"));
  for (int week = 0; week < 7; ++week) {
    DDLogInfo({}, "week " + std::to_string(week));
    for (const char* foreign : {"notes.log", "skier-2020-13-01T10-30-30.250Z.log"}) {
      dir.write(fs::path("app/Logs") / foreign, "foreign");
    }
    clock->advance(days{7} - std::chrono::seconds{1});
    DDLogInfo({}, "end");
    clock->advance(std::chrono::seconds{1});
  }
  DDLog::removeLogger(*logger);
  logger->flush();
  EXPECT_THAT(contentsOfFiles(*logger),
              ElementsAre("week 6\nend\n", "week 5\nend\n", "week 4\nend\n", "week 3\nend\n",
                          "week 2\nend\n"));
  const auto oldest = logger->logFileManager()->sortedLogFileInfos().back();
  EXPECT_EQ(oldest.fileName(), "skier-2024-05-15T10-30-30.250Z.log");
  EXPECT_EQ(oldest.creationDate, kStart + days{14});
  EXPECT_EQ(std::distance(fs::directory_iterator(dir.path() / "app" / "Logs"), {}), 5 + 2);
}

// Catches a pipe or folder by the name of a log, on which every program that logs, or shows the
// log, waits for ever.
TEST(DDFileLoggerTests, WhatIsNoFileIsNoLog) {
  const testing::ScopedDir dir;
  ASSERT_EQ(::mkfifo((dir.path() / "skier-2030-01-01T00-00-00.000Z.log").c_str(), 0600), 0);
  fs::create_directory(dir.path() / "skier-2031-01-01T00-00-00.000Z.log");
  const auto logger = fileLoggerIn(dir.path());
  ASSERT_TRUE(logger->logFileManager()->sortedLogFileInfos().empty());
  logger->log(messageAt(kStart, "text"));
  logger->flush();
  EXPECT_THAT(contentsOfFiles(*logger), ElementsAre("text\n"));
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
      {"large, no maximum", days{1}, 0, 1},
      {"from the future", -days{9}, 100, 1},
  };
  for (const auto& test : cases) {
    const testing::ScopedDir dir;
    fileLoggerIn(dir.path())->log(messageAt(kStart, "first"));
    const auto logger = fileLoggerIn(dir.path());
    logger->setRollingFrequency(days{7});
    logger->setMaximumFileSize(test.maximumFileSize);
    logger->log(messageAt(kStart + test.age, "second"));
    EXPECT_EQ(contentsOfFiles(*logger).size(), test.expectedFiles) << test.name;
  }
}

// Catches a clock that was set back making the current file the oldest, which is deleted next;
// a file from the future that rolls never or with every message; and a size that is ignored.
TEST(DDFileLoggerTests, AClockSetBackKeepsTheOrder) {
  const testing::ScopedDir dir;
  const auto logger = fileLoggerIn(dir.path());
  logger->setRollingFrequency(days{7});
  logger->setMaximumFileSize(10);
  logger->log(messageAt(kStart, "larger than ten"));
  const Date before = kStart - days{365};
  for (const int day : {0, 6, 7, 8}) {
    logger->log(messageAt(before + days{day}, std::to_string(day)));
  }
  logger->rollLogFile();
  logger->log(messageAt(before, "rolled"));
  EXPECT_THAT(contentsOfFiles(*logger),
              ElementsAre("rolled\n", "7\n8\n", "0\n6\n", "larger than ten\n"));
}

// Catches lines that go on into a file nobody can see, a program that dies or floods its standard
// error because it cannot log, and lines that are lost although there was room to hold them.
TEST(DDFileLoggerTests, AFolderThatIsGoneIsReportedOnceAndMadeAnew) {
  const testing::ScopedDir dir;
  const auto folder = dir.path() / "Logs";
  const auto logger = fileLoggerIn(folder);
  logger->log(messageAt(kStart, "lost with the folder"));
  fs::remove_all(folder);
  dir.write("Logs", "a file where the folder should be");
  ::testing::internal::CaptureStderr();
  for (const char* text : {"one", "two", "three"}) {
    logger->log(messageAt(kStart, text, DDLogFlag::error));
    logger->flush();
  }
  const auto complaint = ::testing::internal::GetCapturedStderr();
  EXPECT_EQ(std::ranges::count(complaint, '\n'), 1);
  fs::remove(folder);
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
  for (int i = 0; i < 3000; ++i) logger->log(messageAt(kStart, std::string(1023, 'x')));
  const auto complaint = ::testing::internal::GetCapturedStderr();
  EXPECT_EQ(std::ranges::count(complaint, '\n'), 1);
  fs::remove(full);
  logger->rollLogFile();
  logger->log(messageAt(kStart, "room again"));
  logger->flush();
  EXPECT_EQ(contentsOfFiles(*logger).at(0).size(), 1024 * 1024 + sizeof("room again"));
}

/// How much any file of this process may hold, during its scope: a disk that fills at a known byte.
class ScopedFileLimit {
 public:
  explicit ScopedFileLimit(rlim_t bytes) : handler_(std::signal(SIGXFSZ, SIG_IGN)) {
    getrlimit(RLIMIT_FSIZE, &before_);
    const rlimit limit{bytes, before_.rlim_max};
    setrlimit(RLIMIT_FSIZE, &limit);
  }
  ~ScopedFileLimit() {
    setrlimit(RLIMIT_FSIZE, &before_);
    std::signal(SIGXFSZ, handler_);
  }
  ScopedFileLimit(const ScopedFileLimit&) = delete;
  ScopedFileLimit& operator=(const ScopedFileLimit&) = delete;

 private:
  rlimit before_{};
  void (*handler_)(int);
};

// Catches a line that is glued to the half of one that a full disk took, of this process or of
// another, and a torn line that is never written whole.
TEST(DDFileLoggerTests, WhatAFullDiskToreStaysAloneOnItsLine) {
  const testing::ScopedDir dir;
  const auto torn = fileLoggerIn(dir.path());
  const auto other = fileLoggerIn(dir.path());
  ::testing::internal::CaptureStderr();
  {
    const ScopedFileLimit full(10);
    for (const char* text : {"first", "a second", "third"}) torn->log(messageAt(kStart, text));
    torn->flush();
  }
  ::testing::internal::GetCapturedStderr();
  other->log(messageAt(kStart, "other"));
  other->flush();
  torn->flush();
  EXPECT_THAT(contentsOfFiles(*torn), ElementsAre("first\na se\nother\na second\nthird\n"));
}

// Catches one message that makes the whole log unreadable, looks like several, or fills the file.
TEST(DDFileLoggerTests, EveryMessageIsOneReadableLine) {
  const std::string umlauts = "\u00FCberm\u00E4\u00DFig \U0001F6A8";
  const struct {
    std::string message, line;
  } cases[] = {
      {"plain, with a\ttab", "plain, with a\ttab"},
      {umlauts, umlauts},
      {"bad \xFF, cut \xE2\x82, overlong \xC0\xAF",
       "bad \uFFFD, cut \uFFFD\uFFFD, overlong \uFFFD\uFFFD"},
      {"two\nlines\r\n", "two\\nlines\\r\\n"},
      {std::string("\x1B[31mred \0 \x7F", 12), "\\x1B[31mred \\x00 \\x7F"},
      {"\u0085 \u2028", "\\x85 \\u{2028}"},
  };
  const testing::ScopedDir dir;
  const auto logger = fileLoggerIn(dir.path());
  std::string expected;
  for (const auto& test : cases) {
    logger->log(messageAt(kStart, test.message));
    expected += test.line + "\n";
  }
  for (const std::size_t size : {65'535UL, 65'536UL, 1'000'000UL}) {
    std::string message(size - 4, size == 1'000'000 ? '\n' : 'x');
    logger->log(messageAt(kStart, message + "tail"));
    if (size < 65'536) expected += message + "tail\n";
  }
  logger->flush();
  const auto contents = contentsOfFiles(*logger).at(0);
  ASSERT_TRUE(contents.starts_with(expected));
  std::istringstream cut(contents.substr(expected.size()));
  for (const char* whole : {"65536 bytes", "1000000 bytes"}) {
    std::string line;
    ASSERT_TRUE(std::getline(cut, line));
    EXPECT_LT(line.size(), 65'536);
    EXPECT_GT(line.size(), 60'000);
    EXPECT_THAT(line, ::testing::AllOf(::testing::HasSubstr(whole), ::testing::EndsWith("tail")));
  }
  EXPECT_EQ(cut.peek(), EOF);
}

// Catches a line that waits in memory for the next message.
TEST(DDFileLoggerTests, ALineReachesTheFileWithoutFlush) {
  const testing::ScopedDir dir;
  const auto logger = fileLoggerIn(dir.path());
  logger->log(messageAt(kStart, "first"));
  logger->log(messageAt(kStart, "second"));
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds{10};
  while (contentsOfFiles(*logger).at(0) != "first\nsecond\n") {
    ASSERT_LT(std::chrono::steady_clock::now(), deadline);
    std::this_thread::yield();
  }
}

// Catches lines of processes that share a folder being mixed, lost or doubled while both roll.
TEST(DDFileLoggerTests, TwoLoggersShareAFolder) {
  const testing::ScopedDir dir;
  const std::vector loggers{fileLoggerIn(dir.path()), fileLoggerIn(dir.path())};
  for (const auto& logger : loggers) logger->logFileManager()->setMaximumNumberOfLogFiles(0);
  const auto run = [&](std::size_t thread) {
    for (int n = 1; n <= 2000; ++n) {
      loggers[thread % 2]->log(messageAt(kStart, "a line"));
      if (n % 500 == 0) loggers[thread % 2]->rollLogFile();
    }
  };
  {
    std::vector<std::jthread> threads;
    for (std::size_t thread = 0; thread < 4; ++thread) threads.emplace_back(run, thread);
  }
  std::map<std::string, int> lines;
  for (const auto& contents : contentsOfFiles(*loggers[0])) {
    std::istringstream in(contents);
    for (std::string line; std::getline(in, line);) ++lines[line];
  }
  EXPECT_THAT(lines, ElementsAre(std::pair("a line", 4 * 2000)));
}

}  // namespace
}  // namespace ombrix::platform
