#include "OmbrixCore/Extensions/Logging/LoggingService.hpp"

#include <algorithm>
#include <vector>

#include "OmbrixCore/Extensions/Logging/Log.hpp"
#include "OmbrixCore/Extensions/Logging/OmbrixLogFormatter.hpp"
#include "OmbrixCore/Extensions/Logging/OmbrixOSLogFormatter.hpp"
#include "OmbrixCore/Settings/OmbrixSettings.hpp"
#include "OmbrixPlatform/Files/FileManager.hpp"
#include "OmbrixPlatform/Locks/Mutex.hpp"
#include "OmbrixPlatform/Logging/DDFileLogger.hpp"
#include "OmbrixPlatform/Logging/DDLog.hpp"
#include "OmbrixPlatform/Logging/DDOSLogger.hpp"
#include "OmbrixPlatform/Text/UTF8.hpp"

namespace ombrix {
namespace {

using platform::Data;
using platform::DDFileLogger;
using platform::DDLog;
using platform::DDLogLevel;

constexpr platform::TimeInterval kRollingFrequencySeconds{604'800};
constexpr std::size_t kMaximumNumberOfLogFiles = 5;
constexpr std::size_t kMaximumNumberOfHistoricalFiles = 10;
constexpr std::uint64_t kMaxLogBytes = std::uint64_t{256} << 20;  // per file; files roll far below
constexpr const char* kSubsystem = "com.brannoway.ombrix";
constexpr const char* kCategory = "main";

constexpr DDLogLevel levelFor(bool extraLogging) noexcept {
  return extraLogging ? DDLogLevel::verbose : DDLogLevel::info;
}

thread_local constinit bool isMakingInstance = false;

/// Marks this thread as creating the instance: a log call inside must not wait for it.
struct MakingInstance {
  MakingInstance() { isMakingInstance = true; }
  ~MakingInstance() { isMakingInstance = false; }
  MakingInstance(const MakingInstance&) = delete;
  MakingInstance& operator=(const MakingInstance&) = delete;
};

}  // namespace

namespace detail {

constinit std::atomic<bool> isLoggingSetUp{false};

void setUpLogging() {
  if (!isMakingInstance) LoggingService::shared();
}

}  // namespace detail

LoggingService& LoggingService::shared() {
  static LoggingService& instance = *[] {
    const MakingInstance making;
    return new LoggingService;
  }();
  detail::isLoggingSetUp.store(true, std::memory_order_release);
  return instance;
}

LoggingService::LoggingService()
    : choice_(Choice{.isEnabled = OmbrixSettings::shared().extraLogging()}) {
  const DDLogLevel level = levelFor(extraLoggingEnabled());
  DDLog::setDynamicLevel(level);

  auto fileLogger = std::make_shared<DDFileLogger>();
  fileLogger->setRollingFrequency(kRollingFrequencySeconds);
  fileLogger->logFileManager()->setMaximumNumberOfLogFiles(kMaximumNumberOfLogFiles);
  fileLogger->setLogFormatter(std::make_shared<OmbrixLogFormatter>());
  DDLog::addLogger(std::move(fileLogger), level);

  auto systemLogger = std::make_shared<platform::DDOSLogger>(kSubsystem, kCategory);
  systemLogger->setLogFormatter(std::make_shared<OmbrixOSLogFormatter>());
  DDLog::addLogger(std::move(systemLogger), level);
}

void LoggingService::setExtraLoggingEnabled(bool isEnabled) {
  // The setting's setter calls observers, so no lock is held around it. A caller that finds a later
  // choice writes that one too: setting and log level end with the last choice, whichever caller
  // returns last.
  Choice choice = choice_.load();
  Choice written{};
  do {
    written = {.number = choice.number + 1, .isEnabled = isEnabled};
  } while (!choice_.compare_exchange_weak(choice, written));
  while (true) {
    OmbrixSettings::shared().setExtraLogging(written.isEnabled != 0);
    const Choice last = choice_.load();
    if (last == written) break;
    written = last;
  }
  const platform::LockGuard lock(loggersMutex_);
  const DDLogLevel level = levelFor(extraLoggingEnabled());
  DDLog::setDynamicLevel(level);
  const auto loggers = DDLog::allLoggers();
  DDLog::removeAllLoggers();
  for (const auto& logger : loggers) DDLog::addLogger(logger, level);
}

void LoggingService::attach(std::shared_ptr<platform::DDLogger> logger) {
  logger->setLogFormatter(std::make_shared<OmbrixLogFormatter>());
  const platform::LockGuard lock(loggersMutex_);
  DDLog::addLogger(std::move(logger), DDLog::dynamicLevel());
}

std::optional<Data> LoggingService::historicalLog() const {
  std::shared_ptr<DDFileLogger> fileLogger;
  for (const auto& logger : DDLog::allLoggers()) {
    fileLogger = std::dynamic_pointer_cast<DDFileLogger>(logger);
    if (fileLogger) break;
  }
  if (!fileLogger) return std::nullopt;
  fileLogger->flush();

  const auto& manager = *fileLogger->logFileManager();
  const std::size_t limit =
      std::min(manager.maximumNumberOfLogFiles(), kMaximumNumberOfHistoricalFiles);
  const auto infos = manager.sortedLogFileInfos();
  const std::size_t start = infos.size() > limit ? infos.size() - limit : 0;
  Data contents;
  // Kept: with more files than the limit the newest are left out, as this walks from the oldest
  // end; reading from the other end would change which part of a long log support gets.
  for (std::size_t i = infos.size(); i > start; --i) {
    const auto url = platform::URL::fileURL(infos[i - 1].filePath.native());
    const auto file = platform::FileManager::defaultManager().regularContents(url, kMaxLogBytes);
    if (file) contents.insert(contents.end(), file->bytes.begin(), file->bytes.end());
  }
  return contents;
}

std::optional<std::string> LoggingService::historicalLogText() const {
  const auto bytes = historicalLog();
  if (!bytes) return std::nullopt;
  return platform::stringFromUTF8(*bytes);
}

}  // namespace ombrix
