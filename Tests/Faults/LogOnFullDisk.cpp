// Two processes share a log's folder on a small disk that fills and empties while they write and
// switch extra logging on and off, and the folder is removed now and then: no line is glued to
// another, and what there was room to hold is in the log.

#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <memory>
#include <random>
#include <set>
#include <sstream>
#include <stop_token>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "Faults/FaultRun.hpp"
#include "OmbrixCore/Extensions/Logging/LoggingService.hpp"
#include "OmbrixPlatform/Logging/DDFileLogger.hpp"
#include "OmbrixPlatform/Logging/DDLog.hpp"
#include "OmbrixTesting/Processes/SmallDisk.hpp"
#include "OmbrixTesting/ScopedSettings.hpp"

namespace {

using namespace ombrix;
namespace fs = std::filesystem;

constexpr int kLoggers = 2, kLines = 150;

std::string line(int logger, int number) {
  return "logger " + std::to_string(logger) + " line " + std::to_string(number) + " " +
         std::string(static_cast<std::size_t>(number * 37 % 900), 'x') + " end";
}

/// Fills the disk to a byte that is chosen at random.
void fill(const fs::path& file, std::mt19937_64& random) {
  std::ofstream out(file, std::ios::binary);
  const std::string block(1 + random() % 5'000, '#');
  while (out.write(block.data(), static_cast<std::streamsize>(block.size())).flush()) {
  }
}

/// A process of its own that logs, and then holds what the full disk refused until it is told that
/// there is room again.
class LoggingProcess {
 public:
  LoggingProcess(const fs::path& folder, int number) {
    std::array<int, 2> ends{};
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) != 0) return;
    process_ = ::fork();
    channel_ = ends[process_ == 0 ? 1 : 0];
    ::close(ends[process_ == 0 ? 0 : 1]);
    if (process_ == 0) live(folder, number);
  }
  ~LoggingProcess() {
    if (process_ > 0) {
      ::kill(process_, SIGKILL);
      ::waitpid(process_, nullptr, 0);
    }
    ::close(channel_);
  }
  LoggingProcess(const LoggingProcess&) = delete;
  LoggingProcess& operator=(const LoggingProcess&) = delete;

  /// Whether it has logged everything.
  bool isDone() {
    char sign = 0;
    isDone_ = isDone_ || ::recv(channel_, &sign, 1, MSG_DONTWAIT) >= 0;
    return isDone_;
  }
  /// Has it write what it holds; its exit status.
  int end() {
    int status = -1;
    static_cast<void>(::send(channel_, "e", 1, MSG_NOSIGNAL));
    ::waitpid(std::exchange(process_, -1), &status, 0);
    return status;
  }

 private:
  [[noreturn]] void live(const fs::path& folder, int number) const {
    logEverything(folder, number);
    ::_exit(0);
  }

  void logEverything(const fs::path& folder, int number) const {
    using platform::DDLog;
    const testing::ScopedSettings settings;
    const auto logger = std::make_shared<platform::DDFileLogger>(
        std::make_shared<platform::DDLogFileManager>(folder, "skier"));
    auto& service = LoggingService::shared();
    DDLog::removeAllLoggers();
    DDLog::addLogger(logger, DDLog::dynamicLevel());
    {
      const std::jthread switching([&](const std::stop_token& stop) {
        while (!stop.stop_requested()) {
          service.setExtraLoggingEnabled(!service.extraLoggingEnabled());
        }
      });
      for (int n = 0; n < kLines; ++n) {
        const std::string text = line(number, n);
        logger->log({.message = text, .timestamp = platform::dateSince1970(1'714'559'430)});
        platform::DDLogDebug({}, "logger of debug lines " + std::to_string(n) + " end");
        if (n % 7 == 0) logger->flush();
      }
    }
    char sign = 'd';
    static_cast<void>(::send(channel_, &sign, 1, MSG_NOSIGNAL));
    static_cast<void>(::recv(channel_, &sign, 1, 0));
    logger->flush();
  }

  pid_t process_ = -1;
  int channel_ = -1;
  bool isDone_ = false;
};

}  // namespace

void ombrix::faults::run(const Plan& plan, Outcomes& outcomes) {
  std::mt19937_64 random(plan.seed);
  for (std::size_t round = 0; round < plan.rounds(10, 1'000); ++round) {
    const testing::SmallDisk disk(256 * 1024);
    if (!disk.isMounted()) return outcomes.skip("mounting a disk needs root");
    const auto filler = disk.folder().path() / "filler", folder = disk.folder().path() / "Logs";
    const bool isRemoved = round % 4 == 3;
    {
      std::vector<std::unique_ptr<LoggingProcess>> processes;
      for (int i = 0; i < kLoggers; ++i) {
        processes.push_back(std::make_unique<LoggingProcess>(folder, i));
      }
      const auto deadline = std::chrono::steady_clock::now() + std::chrono::minutes(2);
      const auto isRunning = [](const auto& process) { return !process->isDone(); };
      while (std::ranges::any_of(processes, isRunning)) {
        if (std::chrono::steady_clock::now() > deadline) {
          return outcomes.bad("a process does not get on");
        }
        fill(filler, random);
        std::this_thread::yield();
        fs::remove(filler);
        std::error_code ignored;
        if (isRemoved) fs::remove_all(folder, ignored);
      }
      for (const auto& process : processes) {
        outcomes.expect(process->end() == 0, "a process ended in order");
      }
    }

    std::set<std::string> whole;
    std::size_t torn = 0;
    for (const auto& info : platform::DDLogFileManager(folder, "skier").sortedLogFileInfos()) {
      std::ifstream in(info.filePath, std::ios::binary);
      for (std::string text; std::getline(in, text);) {
        const auto ends = text.find(" end");
        if (text.ends_with(" end")) whole.insert(text);
        const auto begins = text.rfind("logger ");
        const bool isGlued = begins != std::string::npos && begins != 0;
        outcomes.expect(!isGlued && (ends == std::string::npos || ends == text.size() - 4),
                        "a line stands alone", text.substr(0, 120));
        if (!text.ends_with(" end")) ++torn;
      }
    }
    if (torn > 0) outcomes.good("a torn line was left alone", torn);
    if (isRemoved) continue;
    for (int i = 0; i < kLoggers; ++i) {
      for (int n = 0; n < kLines; ++n) {
        outcomes.expect(whole.contains(line(i, n)), "a line is in the log as a whole",
                        line(i, n).substr(0, 40));
      }
    }
  }
}
