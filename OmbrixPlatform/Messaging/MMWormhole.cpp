#include "OmbrixPlatform/Messaging/MMWormhole.hpp"

#include <sys/stat.h>

#include <atomic>
#include <future>
#include <map>
#include <mutex>
#include <utility>
#include <vector>

#include "OmbrixPlatform/Coding/PropertyListSerialization.hpp"
#include "OmbrixPlatform/Concurrency/Serial.hpp"
#include "OmbrixPlatform/Concurrency/ThreadPool.hpp"
#include "OmbrixPlatform/Detail/MadeFile.hpp"
#include "OmbrixPlatform/Files/Directories.hpp"
#include "OmbrixPlatform/Files/FileManager.hpp"
#include "OmbrixPlatform/Files/FolderWatcher.hpp"
#include "OmbrixPlatform/Files/NSFileCoordinator.hpp"
#include "OmbrixPlatform/Locks/Mutex.hpp"
#include "OmbrixPlatform/Logging/DDLog.hpp"
#include "OmbrixPlatform/Messaging/Detail/MessageFile.hpp"
#include "OmbrixPlatform/Observation/Signal.hpp"
#include "OmbrixPlatform/Services.hpp"
#include "OmbrixPlatform/Values/FatalError.hpp"
#include "OmbrixPlatform/Values/UUID.hpp"

namespace ombrix::platform {
namespace {

using detail::Message;
using detail::MessageId;

constexpr std::uint64_t kMaxMessageBytes = std::uint64_t{16} << 20;

const FileManager& files() { return FileManager::defaultManager(); }

const std::string& thisProcess() {
  static const std::string& name = *new std::string(UUID::random().uuidString());
  return name;
}

MessageId nextId() {
  static std::atomic<std::int64_t> count{0};
  return {thisProcess(), ++count};
}

void logFailure(const std::string& message) {
  DDLogError({"OmbrixPlatform/Messaging/MMWormhole", "MMWormhole"}, message);
}

/// Replaces the file's content, completely or not at all. Needs exclusive access, see `FreshFile`.
FileResult<void> replaceFile(const URL& url, DataView bytes) {
  const URL folder = url.deletingLastPathComponent();
  if (auto made = files().createDirectory(folder, true); !made) return made;
  const auto failure = [&](const char* action, int code) {
    return std::unexpected(FileError(code, action, url.path()));
  };
  detail::FreshFile fresh(url.path());
  if (!fresh) return failure("open", errno);
  if (const int error = fresh.publish(bytes); error != 0) return failure("write", error);
  return {};
}

}  // namespace

class MMWormhole::Impl : public std::enable_shared_from_this<Impl> {
 public:
  /// Null if the group has no folder.
  static std::shared_ptr<Impl> make(std::string_view group,
                                    const std::optional<std::string>& directory,
                                    ErrorHandler onError);

  Impl(const URL& container, URL folder, ErrorHandler onError)
      : folder_(std::move(folder)),
        coordinator_(nullptr, container),
        onError_(std::move(onError)) {}

  [[nodiscard]] const URL& folder() const noexcept { return folder_; }
  bool pass(const PropertyList& content, std::string_view identifier);
  [[nodiscard]] std::optional<PropertyList> message(std::string_view identifier);
  void clear(std::string_view identifier);
  ObservationToken listen(std::string_view identifier, Listener listener);
  void close();

 private:
  /// What is known of one identifier; lives as long as the channel. All but the signal is guarded
  /// by the mutex.
  struct Entry {
    explicit Entry(std::string name) : identifier(std::move(name)) {}

    const std::string identifier;
    Signal<const PropertyList&> arrived;
    std::uint64_t changes = 0;      // of the file, as far as they were noticed
    bool isCurrent = false;         // whether `last` is the file's content since the last change
    std::optional<Message> last;    // the message in the file
    std::optional<MessageId> told;  // the last one delivered or skipped
    bool isDeliveryPosted = false;
    std::string lastFailure;
  };
  using EntryPointer = std::shared_ptr<Entry>;

  EntryPointer entryOf(std::string_view identifier);
  [[nodiscard]] URL fileOf(const Entry& entry) const {
    return folder_.appendingPathComponent(detail::messageFileName(entry.identifier), false);
  }
  std::optional<Message> load(Entry& entry);
  void keep(Entry& entry, std::optional<Message> message) OMBRIX_REQUIRES(mutex_);
  bool write(Entry& entry, NSFileCoordinator::WritingOptions options, const char* action,
             std::optional<Message> message,
             const std::function<FileResult<void>(const URL&)>& change);
  void beWatching();
  void noticed(const FolderChange& change);
  void deliver(Entry& entry);
  void report(Entry& entry, const char* action, const char* why);

  const URL folder_;
  const NSFileCoordinator coordinator_;
  const ErrorHandler onError_;
  Serial serial_{SectionPlace::offMainQueue};  // calls the listeners

  Mutex mutex_;  // nothing is called while it is held
  // By identifier.
  std::map<std::string, EntryPointer, std::less<>> entries_ OMBRIX_GUARDED_BY(mutex_);
  // By file name.
  std::map<std::string, EntryPointer, std::less<>> byFile_ OMBRIX_GUARDED_BY(mutex_);
  std::once_flag watchOnce_;
  std::atomic<bool> isWatching_{false}, isClosed_{false};
  ObservationToken watch_;
};

std::shared_ptr<MMWormhole::Impl> MMWormhole::Impl::make(
    std::string_view group, const std::optional<std::string>& directory, ErrorHandler onError) {
  const auto container = services().directories.get().containerForGroup(group);
  if (!container) {
    onError("Data: There are no messages, since there is no folder of the group \"" +
            std::string(group) + "\"");
    return nullptr;
  }
  URL folder = directory ? container->appendingPathComponent(*directory, true) : *container;
  return std::make_shared<Impl>(*container, std::move(folder), std::move(onError));
}

MMWormhole::Impl::EntryPointer MMWormhole::Impl::entryOf(std::string_view identifier) {
  const LockGuard lock(mutex_);
  const auto found = entries_.find(identifier);
  if (found != entries_.end()) return found->second;
  auto entry = std::make_shared<Entry>(std::string(identifier));
  byFile_.emplace(detail::messageFileName(identifier), entry);
  return entries_.emplace(entry->identifier, entry).first->second;
}

/// Starts watching the folder on the first call. If that fails, every read opens the file.
void MMWormhole::Impl::beWatching() {
  std::optional<FileError> failure;
  std::call_once(watchOnce_, [&] {
    try {
      watch_ = FolderWatcher::shared().watch(folder_.path(),
                                             [weak = weak_from_this()](const FolderChange& change) {
                                               if (const auto self = weak.lock())
                                                 self->noticed(change);
                                             });
      isWatching_ = true;
    } catch (const FileError& error) {
      failure = error;
    }
  });
  if (failure) onError_(std::string("Data: Error watching messages: ") + failure->what());
}

/// Handles a folder event, on the events thread.
void MMWormhole::Impl::noticed(const FolderChange& change) {
  std::vector<EntryPointer> told;
  const auto mark = [&](const EntryPointer& entry) OMBRIX_REQUIRES(mutex_) {
    ++entry->changes;
    entry->isCurrent = false;
    if (entry->isDeliveryPosted || !entry->arrived.hasObservers()) return;
    entry->isDeliveryPosted = true;
    told.push_back(entry);
  };
  {
    const LockGuard lock(mutex_);
    if (change.kind == FolderChange::Kind::lookAgain) {
      for (const auto& [name, entry] : byFile_) mark(entry);
    } else if (const auto found = byFile_.find(change.name); found != byFile_.end()) {
      mark(found->second);
    }
  }
  for (const auto& entry : told) {
    serial_.post([weak = weak_from_this(), entry] {
      if (const auto self = weak.lock()) self->deliver(*entry);
    });
  }
}

/// Delivers the file's message to the listeners, unless they know it or it is our own.
void MMWormhole::Impl::deliver(Entry& entry) {
  if (isClosed_) return;
  {
    const LockGuard lock(mutex_);
    entry.isDeliveryPosted = false;
  }
  const auto message = load(entry);
  if (!message) return;
  {
    const LockGuard lock(mutex_);
    if (entry.told == message->id) return;
    entry.told = message->id;
  }
  if (message->id.sender != thisProcess()) entry.arrived.send(message->content);
}

/// Reads the file; empty, and reported, if it does not hold a message.
std::optional<Message> MMWormhole::Impl::load(Entry& entry) {
  std::uint64_t changes = 0;
  {
    const LockGuard lock(mutex_);
    changes = entry.changes;
  }
  const URL url = fileOf(entry);
  std::optional<Message> message;
  bool isCertain = true;
  // Most identifiers have no file, which can be checked without a lock.
  if (files().fileExists(url)) {
    FileResult<FileContents> file;
    const auto access = coordinator_.coordinateReadingItemAtURL(
        url, NSFileCoordinator::ReadingOptions::none,
        [&](const URL& granted) { file = files().regularContents(granted, kMaxMessageBytes); });
    if (!access) file = std::unexpected(access.error());
    try {
      if (file) message = detail::decodeMessage(file->bytes);
    } catch (const PropertyListError& error) {
      report(entry, "reading", error.what());
    }
    if (!file && !file.error().isNoSuchFile()) {
      isCertain = false;
      report(entry, "reading", file.error().what());
    }
  }
  const LockGuard lock(mutex_);
  if (message) entry.lastFailure.clear();
  if (isCertain && entry.changes == changes) keep(entry, message);
  return message;
}

/// Records the file's current message.
void MMWormhole::Impl::keep(Entry& entry, std::optional<Message> message) {
  entry.last = std::move(message);
  entry.isCurrent = isWatching_;
}

/// Reports a failure, unless it was the last one reported for this identifier.
void MMWormhole::Impl::report(Entry& entry, const char* action, const char* why) {
  std::string failure =
      "Data: Error " + std::string(action) + " message \"" + entry.identifier + "\": " + why;
  {
    const LockGuard lock(mutex_);
    if (std::exchange(entry.lastFailure, failure) == failure) return;
  }
  onError_(failure);
}

/// Changes the file with exclusive access and updates the entry before others get access; returns
/// whether that worked.
bool MMWormhole::Impl::write(Entry& entry, NSFileCoordinator::WritingOptions options,
                             const char* action, std::optional<Message> message,
                             const std::function<FileResult<void>(const URL&)>& change) {
  FileResult<void> changed;
  const auto access =
      coordinator_.coordinateWritingItemAtURL(fileOf(entry), options, [&](const URL& url) {
        changed = change(url);
        if (!changed) return;
        const LockGuard lock(mutex_);
        ++entry.changes;
        entry.lastFailure.clear();
        keep(entry, std::move(message));
      });
  if (!access) changed = std::unexpected(access.error());
  if (!changed) report(entry, action, changed.error().what());
  return changed.has_value();
}

bool MMWormhole::Impl::pass(const PropertyList& content, std::string_view identifier) {
  Message message{nextId(), content};
  const Data bytes = detail::encodeMessage(message);
  return write(*entryOf(identifier), NSFileCoordinator::WritingOptions::forMerging, "passing",
               std::move(message), [&](const URL& url) { return replaceFile(url, bytes); });
}

void MMWormhole::Impl::clear(std::string_view identifier) {
  const EntryPointer entry = entryOf(identifier);
  if (!files().fileExists(fileOf(*entry))) return;
  write(*entry, NSFileCoordinator::WritingOptions::forDeleting, "clearing", std::nullopt,
        [&](const URL& url) {
          auto removed = files().removeItem(url);
          return removed || !removed.error().isNoSuchFile() ? removed : FileResult<void>();
        });
}

std::optional<PropertyList> MMWormhole::Impl::message(std::string_view identifier) {
  {
    const LockGuard lock(mutex_);
    const auto found = entries_.find(identifier);
    if (found != entries_.end() && found->second->isCurrent) {
      const auto& last = found->second->last;
      return last ? std::optional(last->content) : std::nullopt;
    }
  }
  beWatching();
  auto message = load(*entryOf(identifier));
  if (!message) return std::nullopt;
  return std::move(message->content);
}

ObservationToken MMWormhole::Impl::listen(std::string_view identifier, Listener listener) {
  beWatching();
  const EntryPointer entry = entryOf(identifier);
  if (!entry->arrived.hasObservers()) {
    // A message that exists already is not new to this listener.
    if (const auto message = load(*entry)) {
      const LockGuard lock(mutex_);
      entry->told = message->id;
    }
  }
  auto token = entry->arrived.connect(std::move(listener));
  // A message that arrived meanwhile had no listener to deliver it to.
  serial_.post([weak = weak_from_this(), entry] {
    if (const auto self = weak.lock()) self->deliver(*entry);
  });
  return token;
}

void MMWormhole::Impl::close() {
  if (serial_.isCurrent()) fatalError("a listener must not wait for the end of its channel");
  isClosed_ = true;
  std::call_once(watchOnce_, [] {});  // no watch begins any more
  isWatching_ = false;
  watch_.cancel();
  {
    const LockGuard lock(mutex_);
    for (const auto& [identifier, entry] : entries_) entry->isCurrent = false;
  }
  std::promise<void> promise;
  const auto done = promise.get_future();
  serial_.post([promise = std::move(promise)]() mutable { promise.set_value(); });
  const ThreadPool::BlockingScope blocking;
  done.wait();
}

MMWormhole::MMWormhole(std::string_view applicationGroupIdentifier,
                       const std::optional<std::string>& optionalDirectory, ErrorHandler onError)
    : impl_(Impl::make(applicationGroupIdentifier, optionalDirectory,
                       onError ? std::move(onError) : logFailure)) {}

MMWormhole::~MMWormhole() = default;

std::optional<URL> MMWormhole::folder() const {
  return impl_ ? std::optional(impl_->folder()) : std::nullopt;
}

bool MMWormhole::passMessageObject(const PropertyList& message, std::string_view identifier) {
  return impl_ && impl_->pass(message, identifier);
}

std::optional<PropertyList> MMWormhole::messageWithIdentifier(std::string_view identifier) const {
  return impl_ ? impl_->message(identifier) : std::nullopt;
}

void MMWormhole::clearMessageContentsForIdentifier(std::string_view identifier) {
  if (impl_) impl_->clear(identifier);
}

ObservationToken MMWormhole::listenForMessageWithIdentifier(std::string_view identifier,
                                                            Listener listener) {
  if (!impl_) return {};
  return impl_->listen(identifier, std::move(listener));
}

void MMWormhole::close() {
  if (impl_) impl_->close();
}

}  // namespace ombrix::platform
