#pragma once

#include <atomic>
#include <source_location>

#include "OmbrixPlatform/Logging/DDLog.hpp"

/// \file
/// How the product's code logs: `logError({"OmbrixCore/Data/ItemStore", "doRead(url:)"}, text)`.
///
/// The tag holds the source file's path without its ending and the logging function in its
/// argument-label spelling. The message is a text, or a function that returns one and runs only
/// when the level passes. Any thread; hold no lock while logging.
///
/// The first of these calls sets up logging (`LoggingService::shared()`); the others pay one load
/// for the check. The setup reads the settings: code that `OmbrixSettings` runs during its own
/// construction logs through `platform::DDLogError`, which sets up nothing.

namespace ombrix {

using platform::LogTag;

namespace detail {

/// Whether logging is set up already. Test support sets it to keep the service's loggers out.
extern constinit std::atomic<bool> isLoggingSetUp;

/// Creates the logging service, unless this thread is creating it right now.
void setUpLogging();

inline void ensureLoggingIsSetUp() {
  if (!isLoggingSetUp.load(std::memory_order_acquire)) [[unlikely]]
    setUpLogging();
}

}  // namespace detail

/// Logs a failure that a user or a developer must know about.
template <class Message>
void logError(LogTag tag, const Message& message,
              std::source_location where = std::source_location::current()) {
  detail::ensureLoggingIsSetUp();
  platform::DDLogError(tag, message, where);
}

/// Logs something unexpected that the library handles.
template <class Message>
void logWarning(LogTag tag, const Message& message,
                std::source_location where = std::source_location::current()) {
  detail::ensureLoggingIsSetUp();
  platform::DDLogWarn(tag, message, where);
}

/// Logs an ordinary step that helps in a support case.
template <class Message>
void logInfo(LogTag tag, const Message& message,
             std::source_location where = std::source_location::current()) {
  detail::ensureLoggingIsSetUp();
  platform::DDLogInfo(tag, message, where);
}

/// Logs a detail for developers, only if extra logging is on.
template <class Message>
void logDebug(LogTag tag, const Message& message,
              std::source_location where = std::source_location::current()) {
  detail::ensureLoggingIsSetUp();
  platform::DDLogDebug(tag, message, where);
}

/// Logs the finest detail, only if extra logging is on.
template <class Message>
void logVerbose(LogTag tag, const Message& message,
                std::source_location where = std::source_location::current()) {
  detail::ensureLoggingIsSetUp();
  platform::DDLogVerbose(tag, message, where);
}

}  // namespace ombrix
