#pragma once

#include <atomic>
#include <concepts>
#include <memory>
#include <source_location>
#include <string_view>
#include <vector>

#include "OmbrixPlatform/Logging/DDLogMessage.hpp"
#include "OmbrixPlatform/Logging/DDLogger.hpp"

namespace ombrix::platform {

/// The process-wide log: a list of loggers, each with its own level, behind one dynamic level that
/// log calls test first. All operations may be called from any thread.
class DDLog {
 public:
  /// The level below which a log call costs one load and a branch; `info` until set.
  static DDLogLevel dynamicLevel() noexcept { return level_.load(std::memory_order_relaxed); }
  static void setDynamicLevel(DDLogLevel level) noexcept {
    level_.store(level, std::memory_order_relaxed);
  }

  /// Adds a logger at the end of the list; it gets the messages that pass `level`. A logger that is
  /// added twice gets them twice.
  static void addLogger(std::shared_ptr<DDLogger> logger, DDLogLevel level);

  /// Removes a logger, or all of them. A message in flight on another thread may still reach them;
  /// the last such message releases them.
  static void removeLogger(const DDLogger& logger);
  static void removeAllLoggers();

  /// The loggers in the order in which they were added.
  static std::vector<std::shared_ptr<DDLogger>> allLoggers();

  /// Flushes every logger.
  static void flushLog();

  /// Passes a message to every logger whose level admits the flag, in their order, on the calling
  /// thread, with the time of the clock in `services()`. Ignores the dynamic level.
  static void log(DDLogFlag flag, LogTag tag, std::string_view message, std::source_location where);

 private:
  static inline std::atomic<DDLogLevel> level_{DDLogLevel::info};
};

namespace detail {

/// `message` is a text, or a function that returns one and runs only when the level passes.
template <class Message>
void logIfEnabled(DDLogFlag flag, LogTag tag, const Message& message, std::source_location where) {
  if (!passes(DDLog::dynamicLevel(), flag)) [[likely]]
    return;
  if constexpr (std::invocable<const Message&>) {
    DDLog::log(flag, tag, message(), where);
  } else {
    DDLog::log(flag, tag, message, where);
  }
}

}  // namespace detail

template <class Message>
void DDLogError(LogTag tag, const Message& message,
                std::source_location where = std::source_location::current()) {
  detail::logIfEnabled(DDLogFlag::error, tag, message, where);
}
template <class Message>
void DDLogWarn(LogTag tag, const Message& message,
               std::source_location where = std::source_location::current()) {
  detail::logIfEnabled(DDLogFlag::warning, tag, message, where);
}
template <class Message>
void DDLogInfo(LogTag tag, const Message& message,
               std::source_location where = std::source_location::current()) {
  detail::logIfEnabled(DDLogFlag::info, tag, message, where);
}
template <class Message>
void DDLogDebug(LogTag tag, const Message& message,
                std::source_location where = std::source_location::current()) {
  detail::logIfEnabled(DDLogFlag::debug, tag, message, where);
}
template <class Message>
void DDLogVerbose(LogTag tag, const Message& message,
                  std::source_location where = std::source_location::current()) {
  detail::logIfEnabled(DDLogFlag::verbose, tag, message, where);
}

}  // namespace ombrix::platform
