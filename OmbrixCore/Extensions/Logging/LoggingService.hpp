#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "OmbrixPlatform/Locks/Mutex.hpp"
#include "OmbrixPlatform/Logging/DDLogger.hpp"
#include "OmbrixPlatform/Values/Data.hpp"

namespace ombrix {

/// The process's logging: a file log of five weeks, the system's log, and the switch for extra
/// logging. All operations may be called from any thread.
class LoggingService {
 public:
  /// The one instance. Its first use reads `OmbrixSettings::shared().extraLogging()`, sets the
  /// log's level from it and adds the file logger and the system logger; it logs nothing.
  ///
  /// Register the core settings first: without them extra logging is off. The first log call of
  /// this library (Log.hpp) also counts as a use. Code that runs while the instance is created may
  /// log, but only the loggers that exist already get its messages.
  static LoggingService& shared();
  static LoggingService& sharedInstance() { return shared(); }

  LoggingService(const LoggingService&) = delete;
  LoggingService& operator=(const LoggingService&) = delete;

  /// Whether debug and verbose messages are logged as well.
  [[nodiscard]] bool extraLoggingEnabled() const noexcept { return choice_.load().isEnabled != 0; }

  /// Stores the switch here and in the settings, and sets the matching level on the log and all its
  /// loggers, attached ones included. Of simultaneous calls the last one wins, here and in the
  /// settings. Messages logged meanwhile may be lost. Stops the program unless the core settings
  /// are registered.
  void setExtraLoggingEnabled(bool isEnabled);

  /// Adds a logger with a new `OmbrixLogFormatter` and the log's current level.
  void attach(std::shared_ptr<platform::DDLogger> logger);

  /// The contents of up to 10 log files, from the oldest towards the newest, with everything logged
  /// so far; nothing without a file logger, no bytes without log files. Skips a file that cannot be
  /// read.
  [[nodiscard]] std::optional<platform::Data> historicalLog() const;

  /// The same as text; also empty when it is not valid UTF-8.
  [[nodiscard]] std::optional<std::string> historicalLogText() const;

 private:
  LoggingService();

  /// Calls are numbered, so that each can tell whether a later one followed.
  struct Choice {
    std::uint32_t number = 0;
    std::uint32_t isEnabled = 0;
    friend bool operator==(const Choice&, const Choice&) = default;
  };

  std::atomic<Choice> choice_;
  platform::Mutex
      loggersMutex_;  // Guards taking the list of loggers apart and putting it together.
};

}  // namespace ombrix
