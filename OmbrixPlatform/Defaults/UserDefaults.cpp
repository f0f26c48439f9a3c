#include "OmbrixPlatform/Defaults/UserDefaults.hpp"

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <mutex>
#include <thread>
#include <utility>

#include "OmbrixPlatform/Coding/Detail/Utf.hpp"
#include "OmbrixPlatform/Coding/PropertyListSerialization.hpp"
#include "OmbrixPlatform/Concurrency/Detail/QuietThread.hpp"
#include "OmbrixPlatform/Concurrency/DispatchQueue.hpp"
#include "OmbrixPlatform/Defaults/Detail/Coercion.hpp"
#include "OmbrixPlatform/Defaults/Detail/DictionaryFile.hpp"
#include "OmbrixPlatform/Files/FolderWatcher.hpp"
#include "OmbrixPlatform/Logging/DDLog.hpp"
#include "OmbrixPlatform/Observation/Signal.hpp"
#include "OmbrixPlatform/Services.hpp"

namespace ombrix::platform {
namespace {

namespace fs = std::filesystem;
using Look = DictionaryFile::Look;

/// Revisions are drawn from one counter, so that no two objects ever show the same one.
std::uint64_t nextRevision() {
  static constinit std::atomic<std::uint64_t> last{0};
  return last.fetch_add(1, std::memory_order_relaxed) + 1;
}

void reportToLog(const std::string& message) {
  if (DDLog::allLoggers().empty()) {
    std::fprintf(stderr, "User defaults: %s\n", message.c_str());
  } else {
    DDLogError({"OmbrixPlatform/Defaults/UserDefaults", "UserDefaults"},
               "Data: User defaults: " + message);
  }
}

/// Throws for what would spoil the whole file.
void checkStorable(const PropertyList& value, std::string_view key) {
  const auto* text = value.text();
  const bool isPlain = text != nullptr ? detail::isValidUtf8(*text)
                                       : value.boolean() || value.integer() || value.real();
  if (isPlain && detail::isValidUtf8(key)) return;
  PropertyList::Dictionary dictionary;
  dictionary.set(std::string(key), value);
  PropertyListSerialization::write(std::move(dictionary));
}

// Until what was set is written: long enough to gather, short beside 50 ms.
constexpr std::chrono::milliseconds kGatheringDelay{5};
constexpr std::chrono::seconds kFirstRetryDelay{1}, kLongestRetryDelay{60};
constexpr std::chrono::minutes kErrorInterval{1};
constexpr std::size_t kMaximumToldErrors = 32;

// Set when the process exits: from then on nobody writes later what is not written now.
constinit std::atomic<bool> isExiting{false};

fs::path fileOf(const UserDefaults::Configuration& configuration) {
  const auto& domain = configuration.domain;
  if (domain.empty() || domain.find('/') != std::string::npos ||
      domain.find('\0') != std::string::npos) {
    throw Error("\"" + domain + "\" cannot name a domain of user defaults.");
  }
  return configuration.folder / (domain + ".plist");
}

}  // namespace

struct UserDefaults::State : std::enable_shared_from_this<State> {
  /// A stored value as readers see it. What the file held may be shown late and out of order; the
  /// sequence keeps an older value from undoing a newer one, and the edit what the file held from
  /// undoing what was set since.
  struct Stored {
    std::optional<PropertyList> value;
    std::uint64_t sequence = 0;  // of the file's change
    std::uint64_t own = 0;       // the sequence up to which an edit of this process has won
    std::uint64_t edit = 0;      // of this process, until the file has taken it
    bool isQueued = false;       // for the writer
  };

  /// Edits on their way to the file, with their numbers.
  struct Batch {
    std::vector<DictionaryFile::Edit> edits;
    std::vector<std::uint64_t> numbers;
  };

  State(UserDefaults& made, Configuration configuration)
      : owner(made),
        path(fileOf(configuration)),
        file(path),
        hasOwnErrorHandler(configuration.onError != nullptr),
        onError(hasOwnErrorHandler ? std::move(configuration.onError) : reportToLog) {}

  void refresh(Look look) { take(file.refresh(look)); }
  void take(const DictionaryFile::Outcome& outcome);
  bool isOverruled(const DictionaryFile::Change& change);
  void show(const DictionaryFile::Change& change);
  void showAll();
  void report(const std::vector<std::string>& errors);
  void set(std::string_view key, std::optional<PropertyList> value);
  DictionaryFile::Outcome flush();
  Batch takeBatch();
  void settle(const Batch& batch, const DictionaryFile::Outcome& outcome);
  void flushAtExit();
  void startWriter();
  void write();
  void stopWriter();
  void load();
  void beFresh();
  void makeQueue();
  void watch();
  ObservationToken watchFolderOf(const fs::path& watched);
  void followLink();
  void noteFolderChange(const fs::path& watched, const FolderChange& change);
  const PropertyList* find(std::string_view key, bool withDefaults) const;

  UserDefaults& owner;
  const fs::path path;
  DictionaryFile file;
  const bool hasOwnErrorHandler;
  std::weak_ptr<UserDefaults> weakOwner;

  std::atomic<bool> hasLoaded{false}, isWatched{false};
  std::atomic<std::uint64_t> revision{nextRevision()};

  std::mutex loadMutex;  // held over the first look
  std::mutex mutex;      // guards the domains; nothing is called while it is held
  Dictionary arguments, defaults;
  std::map<std::string, Stored, std::less<>> stored;
  ErrorHandler onError;
  std::map<std::string, std::chrono::steady_clock::time_point> toldErrors;
  std::uint64_t lastEdit = 0;
  std::vector<std::string> queuedKeys;  // edits that the writer has not taken yet
  std::condition_variable somethingToWrite;
  std::thread writer;
  bool isStopping = false, isFlushedAtExit = false;

  std::mutex writeMutex;  // held from taking edits until the file has them, so that order is kept

  std::mutex watchMutex;  // guards the start of the watch
  std::shared_ptr<DispatchQueue> queue;
  ObservationToken watchToken, linkToken;
  fs::path watchedTarget;
  std::atomic<bool> refreshIsDue{false}, contentsAreSuspect{false};
  Signal<const std::vector<std::string>&> changedExternally;
};

/// Shows readers what others have changed, key by key, and tells the observers.
void UserDefaults::State::take(const DictionaryFile::Outcome& outcome) {
  std::vector<std::string> external;
  for (const auto& change : outcome.changes) {
    if (!change.isExternal || isOverruled(change)) continue;
    owner.willChangeValueForKey(change.key);
    show(change);
    owner.didChangeValueForKey(change.key);
    external.push_back(change.key);
  }
  if (!external.empty()) changedExternally.send(external);
  report(outcome.errors);
}

/// Whether this process has set the key since, so that nobody ever reads the other one's value.
bool UserDefaults::State::isOverruled(const DictionaryFile::Change& change) {
  const std::lock_guard lock(mutex);
  const auto known = stored.find(change.key);
  return known != stored.end() && (known->second.edit != 0 || known->second.own >= change.sequence);
}

void UserDefaults::State::show(const DictionaryFile::Change& change) {
  const std::lock_guard lock(mutex);
  auto& entry = stored[change.key];
  if (entry.edit != 0 || entry.sequence >= change.sequence) return;
  entry.value = change.value;
  entry.sequence = change.sequence;
  revision.store(nextRevision(), std::memory_order_release);
}

/// Shows readers what other threads are about to show.
void UserDefaults::State::showAll() {
  const auto contents = file.contents();
  const std::lock_guard lock(mutex);
  const auto showNow = [&](Stored& entry, const PropertyList* value) {
    if (entry.edit != 0 || entry.sequence >= contents.sequence) return;
    entry.value = detail::copyOf(value);
    entry.sequence = contents.sequence;
  };
  for (auto& [key, entry] : stored) {
    if (!contents.values.contains(key)) showNow(entry, nullptr);
  }
  for (const auto& [key, value] : contents.values) showNow(stored[key], &value);
  revision.store(nextRevision(), std::memory_order_release);
}

/// Tells of failures; one that stays as it is is told from time to time, not at every look.
void UserDefaults::State::report(const std::vector<std::string>& errors) {
  for (const auto& error : errors) {
    const auto now = std::chrono::steady_clock::now();
    ErrorHandler handler;
    {
      const std::lock_guard lock(mutex);
      const auto told = toldErrors.find(error);
      if (told != toldErrors.end() && now - told->second < kErrorInterval) continue;
      if (toldErrors.size() >= kMaximumToldErrors) toldErrors.clear();
      toldErrors[error] = now;
      handler = onError;
    }
    handler(error);
  }
}

/// Shows a value at once and has the writer bring it to the file, also when it is shown already:
/// the file may hold another one by now.
void UserDefaults::State::set(std::string_view key, std::optional<PropertyList> value) {
  if (value) checkStorable(*value, key);
  load();
  bool isChange = true;
  {
    const std::lock_guard lock(mutex);
    const auto known = stored.find(key);
    isChange = known == stored.end() ? value.has_value() : known->second.value != value;
  }
  if (isChange) owner.willChangeValueForKey(key);
  bool isFirst = false, hasWriter = false;
  {
    const std::lock_guard lock(mutex);
    auto known = stored.find(key);
    if (known == stored.end()) known = stored.try_emplace(std::string(key)).first;
    auto& entry = known->second;
    entry.value = std::move(value);
    entry.edit = ++lastEdit;
    isFirst = queuedKeys.empty();
    if (!std::exchange(entry.isQueued, true)) queuedKeys.emplace_back(key);
    if (isChange) revision.store(nextRevision(), std::memory_order_release);
    if (!writer.joinable()) startWriter();
    hasWriter = writer.joinable();
  }
  if (isFirst) somethingToWrite.notify_one();
  if (isChange) owner.didChangeValueForKey(key);
  if (isExiting.load() || !hasWriter) take(flush());
}

UserDefaults::State::Batch UserDefaults::State::takeBatch() {
  Batch batch;
  const std::lock_guard lock(mutex);
  for (auto& key : queuedKeys) {
    auto& entry = stored[key];
    entry.isQueued = false;
    batch.edits.push_back({std::move(key), entry.value});
    batch.numbers.push_back(entry.edit);
  }
  queuedKeys.clear();
  return batch;
}

/// The file has taken the edits: of the values that are not older than them, it shows the last.
void UserDefaults::State::settle(const Batch& batch, const DictionaryFile::Outcome& outcome) {
  std::uint64_t last = 0;
  for (const auto& change : outcome.changes) last = std::max(last, change.sequence);
  const std::lock_guard lock(mutex);
  for (std::size_t i = 0; i < batch.edits.size(); ++i) {
    auto& entry = stored[batch.edits[i].key];
    entry.own = std::max(entry.own, last);
    entry.sequence = std::max(entry.sequence, last);
    if (entry.edit == batch.numbers[i]) entry.edit = 0;
  }
}

/// Brings what was set to the file, on this thread; what was met on the way is handed back.
DictionaryFile::Outcome UserDefaults::State::flush() {
  const std::lock_guard writing(writeMutex);
  const Batch batch = takeBatch();
  if (batch.edits.empty() && file.isSaved()) return {};
  auto outcome = file.write(batch.edits);
  settle(batch, outcome);
  return outcome;
}

/// Has the end of the process wait for what was set.
void UserDefaults::State::flushAtExit() {
  struct Registry {
    std::mutex mutex;
    std::vector<std::weak_ptr<State>> states;
    pid_t process = ::getpid();
  };
  static Registry& registry = *new Registry;
  static const int registered = std::atexit([] {
    // A child that was forked has no writer, and nothing that its parent does not write.
    if (::getpid() != registry.process) return;
    isExiting.store(true);
    std::unique_lock lock(registry.mutex);
    const auto states = registry.states;
    lock.unlock();
    for (const auto& weak : states) {
      if (const auto state = weak.lock()) state->report(state->flush().errors);
    }
  });
  static_cast<void>(registered);
  const std::lock_guard lock(registry.mutex);
  std::erase_if(registry.states, [](const auto& weak) { return weak.expired(); });
  registry.states.push_back(weak_from_this());
}

/// With the lock held.
void UserDefaults::State::startWriter() {
  if (!std::exchange(isFlushedAtExit, true)) flushAtExit();
  writer =
      detail::startQuietThread("ombrix-defaults", [self = shared_from_this()] { self->write(); });
}

/// On the writer's thread. Observers are told on the queue: one of them may end this very object.
void UserDefaults::State::write() {
  auto retryDelay = kFirstRetryDelay;
  bool isSaved = true;
  std::unique_lock lock(mutex);
  const auto hasWork = [this] { return isStopping || !queuedKeys.empty(); };
  while (!isStopping) {
    if (isSaved) {
      somethingToWrite.wait(lock, hasWork);
      retryDelay = kFirstRetryDelay;
    } else {
      somethingToWrite.wait_for(lock, retryDelay, hasWork);
      retryDelay = std::min(retryDelay * 2, kLongestRetryDelay);
    }
    somethingToWrite.wait_for(lock, kGatheringDelay, [this] { return isStopping; });
    if (isStopping) return;
    lock.unlock();
    auto outcome = flush();
    isSaved = file.isSaved();
    report(std::exchange(outcome.errors, {}));
    if (!outcome.changes.empty()) {
      makeQueue();
      queue->async([weak = weakOwner, outcome = std::move(outcome)] {
        if (const auto self = weak.lock()) self->state_->take(outcome);
      });
    }
    lock.lock();
  }
}

void UserDefaults::State::stopWriter() {
  std::thread ended;
  {
    const std::lock_guard lock(mutex);
    isStopping = true;
    ended.swap(writer);
  }
  somethingToWrite.notify_one();
  if (ended.get_id() == std::this_thread::get_id()) {
    ended.detach();  // a handler of errors let go of the object
  } else if (ended.joinable()) {
    ended.join();
  }
  report(flush().errors);
}

/// Before a read: without a watch the file may have been replaced unnoticed.
void UserDefaults::State::beFresh() {
  load();
  if (!isWatched.load(std::memory_order_acquire)) refresh(Look::ifFree);
}

/// The first look. Whoever comes meanwhile waits, or it would find nothing set.
void UserDefaults::State::load() {
  if (hasLoaded.load(std::memory_order_acquire)) return;
  std::vector<std::string> errors;
  {
    const std::lock_guard lock(loadMutex);
    if (hasLoaded.load(std::memory_order_acquire)) return;
    auto outcome = file.refresh(Look::always);
    for (const auto& change : outcome.changes) show(change);
    errors = std::move(outcome.errors);
    hasLoaded.store(true, std::memory_order_release);
  }
  report(errors);
}

void UserDefaults::State::makeQueue() {
  const std::lock_guard lock(watchMutex);
  if (queue) return;
  queue = DispatchQueue::serial(path.stem().string() + ".defaults", QualityOfService::utility);
}

ObservationToken UserDefaults::State::watchFolderOf(const fs::path& watched) {
  return FolderWatcher::shared().watch(watched.parent_path(),
                                       [weak = weakOwner, watched](const FolderChange& change) {
                                         if (const auto self = weak.lock())
                                           self->state_->noteFolderChange(watched, change);
                                       });
}

void UserDefaults::State::watch() {
  if (isWatched.load(std::memory_order_acquire)) return;
  makeQueue();
  std::string failure;
  {
    const std::lock_guard lock(watchMutex);
    if (watchToken) return;
    try {
      watchToken = watchFolderOf(path);
    } catch (const Error& error) {
      failure = error.what();
    }
  }
  if (failure.empty()) followLink();
  load();
  // Without a watch each read goes on looking at the file, and tells what it finds.
  if (!failure.empty()) return report({failure});
  isWatched.store(true, std::memory_order_release);
  // What came between the last look and the watch.
  refresh(Look::always);
}

/// Watches what lies behind a symbolic link, too, when it leads elsewhere than before.
void UserDefaults::State::followLink() {
  const fs::path target = DictionaryFile::target(path);
  ObservationToken ended;  // outside the lock: waits for a running call
  const std::lock_guard lock(watchMutex);
  if (target == (watchedTarget.empty() ? path : watchedTarget)) return;
  watchedTarget = target;
  try {
    ended = std::exchange(linkToken, target == path ? ObservationToken() : watchFolderOf(target));
  } catch (const Error&) {
    isWatched.store(false);  // Each read looks again.
  }
}

/// On the events thread: has the file looked at on the queue.
void UserDefaults::State::noteFolderChange(const fs::path& watched, const FolderChange& change) {
  using enum FolderChange::Kind;
  if (change.kind != lookAgain && change.name != watched.filename().native()) return;
  // Our writers rename: a file that was written in place may look as before.
  if (change.kind == written) contentsAreSuspect.store(true);
  if (refreshIsDue.exchange(true)) return;
  queue->async([weak = weakOwner] {
    const auto self = weak.lock();
    if (!self) return;
    auto& state = *self->state_;
    state.refreshIsDue.store(false);
    state.followLink();
    state.refresh(state.contentsAreSuspect.exchange(false) ? Look::inContents : Look::always);
  });
}

/// The value in the first domain that has the key. With the lock held.
const PropertyList* UserDefaults::State::find(std::string_view key, bool withDefaults) const {
  if (const auto* value = arguments.find(key)) return value;
  if (const auto it = stored.find(key); it != stored.end() && it->second.value) {
    return &*it->second.value;
  }
  return withDefaults ? defaults.find(key) : nullptr;
}

std::shared_ptr<UserDefaults> UserDefaults::make(Configuration configuration) {
  auto made = std::make_shared<UserDefaults>(Passkey{}, std::move(configuration));
  made->state_->weakOwner = made;
  return made;
}

UserDefaults& UserDefaults::standardUserDefaults() { return services().standardDefaults.get(); }

UserDefaults::UserDefaults(Passkey, Configuration configuration)
    : state_(std::make_shared<State>(*this, std::move(configuration))) {}

UserDefaults::~UserDefaults() { state_->stopWriter(); }

std::optional<PropertyList> UserDefaults::objectForKey(std::string_view key) const {
  state_->beFresh();
  return valueForKey(key);
}

std::optional<PropertyList> UserDefaults::valueForKey(std::string_view key) const {
  const std::lock_guard lock(state_->mutex);
  return detail::copyOf(state_->find(key, true));
}

std::optional<PropertyList> UserDefaults::explicitObjectForKey(std::string_view key) const {
  state_->beFresh();
  const std::lock_guard lock(state_->mutex);
  return detail::copyOf(state_->find(key, false));
}

bool UserDefaults::boolForKey(std::string_view key) const {
  const auto value = objectForKey(key);
  return value && detail::boolFrom(*value);
}

std::int64_t UserDefaults::integerForKey(std::string_view key) const {
  const auto value = objectForKey(key);
  return value ? detail::integerFrom(*value) : 0;
}

double UserDefaults::doubleForKey(std::string_view key) const {
  const auto value = objectForKey(key);
  return value ? detail::doubleFrom(*value) : 0;
}

std::optional<std::string> UserDefaults::stringForKey(std::string_view key) const {
  const auto value = objectForKey(key);
  return value ? detail::stringFrom(*value) : std::nullopt;
}

std::optional<Data> UserDefaults::dataForKey(std::string_view key) const {
  const auto value = objectForKey(key);
  return detail::copyOf(value ? value->data() : nullptr);
}

std::optional<PropertyList::Array> UserDefaults::arrayForKey(std::string_view key) const {
  const auto value = objectForKey(key);
  return detail::copyOf(value ? value->array() : nullptr);
}

std::optional<UserDefaults::Dictionary> UserDefaults::dictionaryForKey(std::string_view key) const {
  const auto value = objectForKey(key);
  return detail::copyOf(value ? value->dictionary() : nullptr);
}

std::optional<std::vector<std::string>> UserDefaults::stringArrayForKey(
    std::string_view key) const {
  const auto array = arrayForKey(key);
  if (!array) return std::nullopt;
  std::vector<std::string> texts;
  for (const auto& element : *array) {
    if (element.text() == nullptr) return std::nullopt;
    texts.push_back(*element.text());
  }
  return texts;
}

UserDefaults::Dictionary UserDefaults::dictionaryRepresentation() const {
  auto all = persistentDomain();
  const std::lock_guard lock(state_->mutex);
  for (const auto& [key, value] : state_->defaults) {
    if (!all.contains(key)) all.set(key, value);
  }
  for (const auto& [key, value] : state_->arguments) all.set(key, value);
  return all;
}

UserDefaults::Dictionary UserDefaults::persistentDomain() const {
  state_->beFresh();
  const std::lock_guard lock(state_->mutex);
  Dictionary domain;
  for (const auto& [key, entry] : state_->stored) {
    if (entry.value) domain.set(key, *entry.value);
  }
  return domain;
}

void UserDefaults::setObject(PropertyList value, std::string_view key) {
  state_->set(key, std::move(value));
}

void UserDefaults::removeObjectForKey(std::string_view key) { state_->set(key, std::nullopt); }

bool UserDefaults::synchronize() {
  state_->load();
  state_->take(state_->flush());
  state_->refresh(Look::always);
  state_->showAll();
  return state_->file.isSaved();
}

void UserDefaults::setErrorHandler(ErrorHandler handler) {
  const std::lock_guard lock(state_->mutex);
  if (!state_->hasOwnErrorHandler) state_->onError = std::move(handler);
}

void UserDefaults::registerDefaults(const Dictionary& defaults) {
  const std::lock_guard lock(state_->mutex);
  for (const auto& [key, value] : defaults) state_->defaults.set(key, value);
  state_->revision.store(nextRevision(), std::memory_order_release);
}

void UserDefaults::setArguments(Dictionary arguments) {
  const std::lock_guard lock(state_->mutex);
  state_->arguments = std::move(arguments);
  state_->revision.store(nextRevision(), std::memory_order_release);
}

UserDefaults::Dictionary UserDefaults::argumentsFrom(std::span<const char* const> commandLine) {
  const auto isKey = [](std::string_view text) {
    return text.size() > 1 && text[0] == '-' && text.find_first_of(".0123456789") != 1;
  };
  Dictionary found;
  for (std::size_t i = 0; i + 1 < commandLine.size(); ++i) {
    if (!isKey(commandLine[i]) || isKey(commandLine[i + 1])) continue;
    found.set(commandLine[i] + 1, commandLine[i + 1]);
    ++i;
  }
  return found;
}

ObservationToken UserDefaults::observeExternalChanges(
    std::move_only_function<void(const std::vector<std::string>& keys)> handler) {
  state_->watch();
  return state_->changedExternally.connect(std::move(handler));
}

std::uint64_t UserDefaults::revision() const {
  state_->beFresh();
  return state_->revision.load(std::memory_order_acquire);
}

const fs::path& UserDefaults::file() const { return state_->path; }

void UserDefaults::willObserve(std::string_view) { state_->watch(); }

}  // namespace ombrix::platform
