#include "OmbrixPlatform/Logging/DDLog.hpp"

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "OmbrixPlatform/Locks/Mutex.hpp"
#include "OmbrixPlatform/Locks/TryLock.hpp"
#include "OmbrixPlatform/Logging/DDLogHold.hpp"
#include "OmbrixPlatform/Services.hpp"
#include "OmbrixPlatform/Values/Clock.hpp"
#include "OmbrixPlatform/Values/FatalError.hpp"

namespace ombrix::platform {
namespace {

struct Entry {
  std::shared_ptr<DDLogger> logger;
  DDLogLevel level;
};
using Entries = std::vector<Entry>;

// Replaced as a whole, never changed in place: a message walks the list that it started with. Null
// until the first change; never destroyed, so that code which runs during process exit can still
// log.
constinit Mutex currentMutex;
constinit std::shared_ptr<const Entries>* current OMBRIX_GUARDED_BY(currentMutex) = nullptr;

std::shared_ptr<const Entries> currentEntries() {
  const LockGuard lock(currentMutex);
  return current == nullptr ? nullptr : *current;
}

template <class Change>
void changeEntries(Change change) {
  std::shared_ptr<const Entries> replaced;  // Destroyed after the lock: it may own the last logger.
  const LockGuard lock(currentMutex);
  if (current == nullptr) current = new std::shared_ptr<const Entries>(new Entries);
  auto changed = std::make_shared<Entries>(**current);
  change(*changed);
  replaced = std::exchange(*current, std::move(changed));
}

void flushBeforeAbort() noexcept {
  // The failing thread may hold this very lock; any other thread releases it at once.
  if (!tryLockRepeatedly(currentMutex)) return;
  const auto list = current == nullptr ? nullptr : *current;
  currentMutex.unlock();
  if (!list) return;
  for (const Entry& entry : *list) entry.logger->flushBeforeAbort();
}

void handOver(const Entries& list, const DDLogMessage& record) {
  for (const Entry& entry : list) {
    if (passes(entry.level, record.flag)) entry.logger->log(record);
  }
}

/// A message held back by a `DDLogHold`.
struct HeldMessage {
  std::string message, file, function;
  DDLogMessage record;  ///< Its texts are those above.
};

constinit std::atomic<int> holds{0};
constinit Mutex heldMutex;
// Null while no hold exists.
constinit std::vector<HeldMessage>* held OMBRIX_GUARDED_BY(heldMutex) = nullptr;

/// False when no hold exists any more, or the maximum is held.
bool hold(const DDLogMessage& record) {
  const LockGuard lock(heldMutex);
  if (held == nullptr || held->size() >= DDLogHold::kMostMessages) return false;
  held->push_back({std::string(record.message), std::string(record.file),
                   std::string(record.function), record});
  return true;
}

std::string_view lastPathComponent(std::string_view path) noexcept {
  const auto slash = path.rfind('/');
  return slash == std::string_view::npos ? path : path.substr(slash + 1);
}

}  // namespace

void DDLog::addLogger(std::shared_ptr<DDLogger> logger, DDLogLevel level) {
  addFatalErrorHook(&flushBeforeAbort);
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
  std::vector<std::shared_ptr<DDLogger>> all;
  if (const auto list = currentEntries()) {
    for (const Entry& entry : *list) all.push_back(entry.logger);
  }
  return all;
}

void DDLog::flushLog() {
  for (const auto& logger : allLoggers()) logger->flush();
}

void DDLog::log(DDLogFlag flag, LogTag tag, std::string_view message, std::source_location where) {
  const auto list = currentEntries();
  if (!list || list->empty()) return;
  const DDLogMessage record{.message = message,
                            .flag = flag,
                            .file = tag.file,
                            .fileName = lastPathComponent(tag.file),
                            .function = tag.function,
                            .line = where.line(),
                            .timestamp = services().clock.get().now()};
  if (holds.load(std::memory_order_relaxed) > 0 && hold(record)) return;
  handOver(*list, record);
}

DDLogHold::DDLogHold() noexcept {
  const LockGuard lock(heldMutex);
  if (holds++ == 0) held = new std::vector<HeldMessage>;
}

DDLogHold::~DDLogHold() {
  std::unique_ptr<std::vector<HeldMessage>> messages;
  {
    const LockGuard lock(heldMutex);
    if (--holds == 0) messages.reset(std::exchange(held, nullptr));
  }
  const auto list = messages == nullptr ? nullptr : currentEntries();
  if (list == nullptr) return;
  for (HeldMessage& kept : *messages) {
    kept.record.message = kept.message;
    kept.record.file = kept.file;
    kept.record.fileName = lastPathComponent(kept.file);
    kept.record.function = kept.function;
    handOver(*list, kept.record);
  }
}

}  // namespace ombrix::platform
