#include "OmbrixPlatform/Logging/DDLog.hpp"

#include <algorithm>
#include <mutex>

#include "OmbrixPlatform/Services.hpp"
#include "OmbrixPlatform/Values/Clock.hpp"

namespace ombrix::platform {
namespace {

struct Entry {
  std::shared_ptr<DDLogger> logger;
  DDLogLevel level;
};
using Entries = std::vector<Entry>;

// Replaced as a whole, never changed in place: a message walks the list it started with.
// Constant-initialised, so that loading the library runs nothing; null means no loggers.
constinit std::mutex entriesMutex;
constinit std::shared_ptr<const Entries> currentEntries;

std::shared_ptr<const Entries> entries() {
  const std::lock_guard lock(entriesMutex);
  return currentEntries ? currentEntries : std::make_shared<const Entries>();
}

template <class Change>
void changeEntries(Change change) {
  const std::lock_guard lock(entriesMutex);
  auto changed =
      currentEntries ? std::make_shared<Entries>(*currentEntries) : std::make_shared<Entries>();
  change(*changed);
  currentEntries = std::move(changed);
}

std::string_view lastPathComponent(std::string_view path) noexcept {
  const auto slash = path.rfind('/');
  return slash == std::string_view::npos ? path : path.substr(slash + 1);
}

}  // namespace

void DDLog::addLogger(std::shared_ptr<DDLogger> logger, DDLogLevel level) {
  changeEntries([&](Entries& list) { list.push_back({std::move(logger), level}); });
}

void DDLog::removeLogger(const DDLogger& logger) {
  changeEntries([&](Entries& list) {
    std::erase_if(list, [&](const Entry& entry) { return entry.logger.get() == &logger; });
  });
}

void DDLog::removeAllLoggers() {
  changeEntries([](Entries& list) { list.clear(); });
}

std::vector<std::shared_ptr<DDLogger>> DDLog::allLoggers() {
  std::vector<std::shared_ptr<DDLogger>> loggers;
  for (const Entry& entry : *entries()) loggers.push_back(entry.logger);
  return loggers;
}

void DDLog::flushLog() {
  for (const Entry& entry : *entries()) entry.logger->flush();
}

void DDLog::log(DDLogFlag flag, LogTag tag, std::string_view message, std::source_location where) {
  const auto list = entries();
  if (list->empty()) return;
  const DDLogMessage record{.message = message,
                            .flag = flag,
                            .file = tag.file,
                            .fileName = lastPathComponent(tag.file),
                            .function = tag.function,
                            .line = where.line(),
                            .timestamp = services().clock.get().now()};
  for (const Entry& entry : *list) {
    if (passes(entry.level, flag)) entry.logger->log(record);
  }
}

}  // namespace ombrix::platform
