#pragma once

#include <atomic>
#include <source_location>

#include "OmbrixPlatform/Logging/DDLog.hpp"

/// \file
/// How the product's code logs: `logError({"OmbrixCore/Data/ItemStore", "doRead(url:)"}, text)`.
///
/// The tag holds the source file's path without its ending and the logging function in its
/// argument-label spelling. The message is a text, or a function that makes one and runs only
/// when the level lets it pass. Any thread; hold no lock while logging.
///
/// The first of these calls sets logging up (`LoggingService::shared()`), the others pay one load
/// for it. Setting up reads the settings: what `OmbrixSettings` runs while it is made itself logs
/// through `platform::DDLogError`, which sets up nothing.

namespace ombrix {

using platform::LogTag;

namespace detail {

/// Whether log calls find logging set up. Test support sets it to keep the service's loggers out.
extern constinit std::atomic<bool> isLoggingSetUp;

/// Makes the logging service, unless this thread is making it just now.
void setUpLogging();

inline void ensureLoggingIsSetUp() {
  if (!isLoggingSetUp.load(std::memory_order_acquire)) [[unlikely]]
    setUpLogging();
}

}  // namespace detail

/// Something failed that a user or a developer must hear about.
template <class Message>
void logError(LogTag tag, const Message& message,
              std::source_location where = std::source_location::current()) {
  detail::ensureLoggingIsSetUp();
  platform::DDLogError(tag, message, where);
}

/// Something unexpected that the library copes with.
template <class Message>
void logWarning(LogTag tag, const Message& message,
                std::source_location where = std::source_location::current()) {
  detail::ensureLoggingIsSetUp();
  platform::DDLogWarn(tag, message, where);
}

/// An ordinary step worth finding in a support message.
template <class Message>
void logInfo(LogTag tag, const Message& message,
             std::source_location where = std::source_location::current()) {
  detail::ensureLoggingIsSetUp();
  platform::DDLogInfo(tag, message, where);
}

/// A detail for developers; logged with extra logging only.
template <class Message>
void logDebug(LogTag tag, const Message& message,
              std::source_location where = std::source_location::current()) {
  detail::ensureLoggingIsSetUp();
  platform::DDLogDebug(tag, message, where);
}

/// The finest detail; logged with extra logging only.
template <class Message>
void logVerbose(LogTag tag, const Message& message,
                std::source_location where = std::source_location::current()) {
  detail::ensureLoggingIsSetUp();
  platform::DDLogVerbose(tag, message, where);
}

}  // namespace ombrix
