// A synchronous log call to a file, with the full line of the product, beside the same line made
// by spdlog's pattern; and a call below the level.

#include <benchmark/benchmark.h>
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/spdlog.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "OmbrixCore/Extensions/Logging/Log.hpp"
#include "OmbrixCore/Extensions/Logging/OmbrixLogFormatter.hpp"
#include "OmbrixPlatform/Logging/DDFileLogger.hpp"
#include "OmbrixPlatform/Logging/DDLog.hpp"
#include "OmbrixTesting/ScopedDir.hpp"

namespace ombrix {
namespace {

using platform::DDFileLogger;
using platform::DDLog;
using platform::DDLogFileManager;
using platform::DDLogLevel;

constexpr std::string_view kMessage = "Web: Non-OK response from server 503";
constexpr platform::LogTag kTag{"OmbrixCore/Networking/HttpRequestOperation", "handle(task:)"};
constexpr const char* kPattern = "%m/%d/%Y %H:%M:%S:%e \u2139\uFE0F   %v | [%s %!]:%#";

/// Our logger alone in the log, for one benchmark.
class Ours {
 public:
  Ours() : manager_(std::make_shared<DDLogFileManager>(dir_.path(), "bench")) {
    logger_ = std::make_shared<DDFileLogger>(manager_);
    logger_->setLogFormatter(std::make_shared<OmbrixLogFormatter>());
    DDLog::addLogger(logger_, DDLogLevel::info);
  }
  ~Ours() { DDLog::removeLogger(*logger_); }
  Ours(const Ours&) = delete;
  Ours& operator=(const Ours&) = delete;

  static void log() { platform::DDLogInfo(kTag, kMessage); }

  std::string line() {
    log();
    logger_->flush();
    return dir_.read(manager_->sortedLogFileInfos().at(0).fileName());
  }

 private:
  testing::ScopedDir dir_;
  std::shared_ptr<DDLogFileManager> manager_;
  std::shared_ptr<DDFileLogger> logger_;
};

class Spdlog {
 public:
  Spdlog() {
    auto sink = std::make_shared<spdlog::sinks::basic_file_sink_mt>((dir_.path() / "log").string());
    logger_ = std::make_shared<spdlog::logger>("bench", std::move(sink));
    logger_->set_pattern(kPattern);
  }

  void log(std::uint32_t line = __LINE__) {
    logger_->log(spdlog::source_loc{"OmbrixCore/Networking/HttpRequestOperation",
                                    static_cast<int>(line), "handle(task:)"},
                 spdlog::level::info, spdlog::string_view_t(kMessage.data(), kMessage.size()));
  }
  void logBelow() { logger_->debug(spdlog::string_view_t(kMessage.data(), kMessage.size())); }
  void flushEachLine() { logger_->flush_on(spdlog::level::info); }

  std::string line(std::uint32_t line) {
    log(line);
    logger_->flush();
    return dir_.read("log");
  }

 private:
  testing::ScopedDir dir_;
  std::shared_ptr<spdlog::logger> logger_;
};

/// Both must write the same line, but for the time's last digits.
void checkAgreement(benchmark::State& state) {
  const std::string ours = Ours().line();
  const auto number = ours.find("]:") + 2;
  const std::string theirs =
      Spdlog().line(static_cast<std::uint32_t>(std::strtoul(ours.c_str() + number, nullptr, 10)));
  const auto afterSeconds = std::string_view("05/01/2024 10:30:30:").size() + 3;
  if (ours.substr(afterSeconds) != theirs.substr(afterSeconds) || ours.size() != theirs.size()) {
    std::fprintf(stderr, "%s%s", ours.c_str(), theirs.c_str());
    state.SkipWithError("the lines differ");
  }
}

void fileLineOurs(benchmark::State& state) {
  checkAgreement(state);
  Ours ours;
  for (auto _ : state) Ours::log();
}
BENCHMARK(fileLineOurs)->Name("log line/ours");

void fileLineSpdlog(benchmark::State& state) {
  Spdlog spdlog;
  for (auto _ : state) spdlog.log();
}
BENCHMARK(fileLineSpdlog)->Name("log line/spdlog");

void fileLineSpdlogFlushing(benchmark::State& state) {
  Spdlog spdlog;
  spdlog.flushEachLine();
  for (auto _ : state) spdlog.log();
}
BENCHMARK(fileLineSpdlogFlushing)->Name("log line/spdlog flushing each");

void belowLevelOurs(benchmark::State& state) {
  detail::isLoggingSetUp = true;  // As after the first call, without the service's own files.
  for (auto _ : state) {
    logDebug(kTag, kMessage);
    benchmark::ClobberMemory();
  }
}
BENCHMARK(belowLevelOurs)->Name("log call below level/ours");

void belowLevelSpdlog(benchmark::State& state) {
  Spdlog spdlog;
  for (auto _ : state) {
    spdlog.logBelow();
    benchmark::ClobberMemory();
  }
}
BENCHMARK(belowLevelSpdlog)->Name("log call below level/spdlog");

}  // namespace
}  // namespace ombrix
