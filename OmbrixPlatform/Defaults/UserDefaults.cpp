#include "OmbrixPlatform/Defaults/UserDefaults.hpp"

#include <atomic>
#include <cstdio>
#include <map>
#include <mutex>
#include <utility>

#include "OmbrixPlatform/Concurrency/DispatchQueue.hpp"
#include "OmbrixPlatform/Defaults/Detail/Coercion.hpp"
#include "OmbrixPlatform/Defaults/Detail/DictionaryFile.hpp"
#include "OmbrixPlatform/Files/FolderWatcher.hpp"
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

void reportOnce(const std::string& message) {
  static constinit std::atomic_flag reported{};
  if (reported.test_and_set()) return;
  std::fprintf(stderr, "User defaults: %s\n", message.c_str());
}

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
  /// A stored value as readers see it. Announcements on several threads may arrive out of order;
  /// the sequence keeps an older one from undoing a newer one.
  struct Stored {
    std::optional<PropertyList> value;
    std::uint64_t sequence = 0;
  };

  State(UserDefaults& made, Configuration configuration)
      : owner(made),
        path(fileOf(configuration)),
        file(path),
        onError(configuration.onError ? std::move(configuration.onError) : reportOnce) {}

  void refresh(Look look) { take(file.refresh(look)); }
  void take(DictionaryFile::Outcome outcome);
  void show(const DictionaryFile::Change& change);
  void showAll();
  void report(const std::vector<std::string>& errors);
  void write(const std::vector<DictionaryFile::Edit>& edits);
  void load();
  void beFresh();
  void watch();
  void noteFolderChange(const FolderChange& change);
  const PropertyList* find(std::string_view key, bool withDefaults) const;

  UserDefaults& owner;
  const fs::path path;
  DictionaryFile file;
  const ErrorHandler onError;
  std::weak_ptr<UserDefaults> weakOwner;

  std::atomic<bool> hasLoaded{false}, isWatched{false};
  std::atomic<std::uint64_t> revision{nextRevision()};

  std::mutex loadMutex;  // held over the first look
  std::mutex mutex;      // guards the domains; nothing is called while it is held
  Dictionary arguments, defaults;
  std::map<std::string, Stored, std::less<>> stored;

  std::mutex watchMutex;  // guards the start of the watch
  std::shared_ptr<DispatchQueue> queue;
  ObservationToken watchToken;
  std::atomic<bool> refreshIsDue{false}, contentsAreSuspect{false};
  std::string lastError;
  Signal<const std::vector<std::string>&> changedExternally;
};

/// Shows readers what has changed, key by key, and tells the observers.
void UserDefaults::State::take(DictionaryFile::Outcome outcome) {
  std::vector<std::string> external;
  for (const auto& change : outcome.changes) {
    owner.willChangeValueForKey(change.key);
    show(change);
    owner.didChangeValueForKey(change.key);
    if (change.isExternal) external.push_back(change.key);
  }
  if (!external.empty()) changedExternally.send(external);
  report(outcome.errors);
}

void UserDefaults::State::show(const DictionaryFile::Change& change) {
  const std::lock_guard lock(mutex);
  auto& entry = stored[change.key];
  if (entry.sequence >= change.sequence) return;
  entry = {change.value, change.sequence};
  revision.store(nextRevision(), std::memory_order_release);
}

/// Shows readers what other threads are about to show.
void UserDefaults::State::showAll() {
  const auto contents = file.contents();
  const std::lock_guard lock(mutex);
  for (auto& [key, entry] : stored) {
    if (entry.sequence < contents.sequence && !contents.values.contains(key)) {
      entry = {std::nullopt, contents.sequence};
    }
  }
  for (const auto& [key, value] : contents.values) {
    auto& entry = stored[key];
    if (entry.sequence < contents.sequence) entry = {value, contents.sequence};
  }
  revision.store(nextRevision(), std::memory_order_release);
}

/// Tells of failures; one that stays as it is is told once, not at every look.
void UserDefaults::State::report(const std::vector<std::string>& errors) {
  if (errors.empty()) {
    const std::lock_guard lock(mutex);
    return lastError.clear();
  }
  for (const auto& error : errors) {
    {
      const std::lock_guard lock(mutex);
      if (std::exchange(lastError, error) == error) continue;
    }
    onError(error);
  }
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

void UserDefaults::State::write(const std::vector<DictionaryFile::Edit>& edits) {
  load();
  take(file.write(edits));
}

void UserDefaults::State::watch() {
  if (isWatched.load(std::memory_order_acquire)) return;
  std::string failure;
  {
    const std::lock_guard lock(watchMutex);
    if (watchToken) return;
    try {
      queue = DispatchQueue::serial(path.stem().string() + ".defaults", QualityOfService::utility);
      watchToken = FolderWatcher::shared().watch(path.parent_path(),
                                                 [weak = weakOwner](const FolderChange& change) {
                                                   if (const auto self = weak.lock())
                                                     self->state_->noteFolderChange(change);
                                                 });
    } catch (const Error& error) {
      failure = error.what();
    }
  }
  load();
  // Without a watch each read goes on looking at the file, and tells what it finds.
  if (!failure.empty()) return report({failure});
  isWatched.store(true, std::memory_order_release);
  // What came between the last look and the watch.
  refresh(Look::always);
}

/// On the events thread: has the file looked at on the queue.
void UserDefaults::State::noteFolderChange(const FolderChange& change) {
  using enum FolderChange::Kind;
  if (change.kind != lookAgain && change.name != path.filename().native()) return;
  // Our writers rename: a file that was written in place may look as before.
  if (change.kind == written) contentsAreSuspect.store(true);
  if (refreshIsDue.exchange(true)) return;
  queue->async([weak = weakOwner] {
    const auto self = weak.lock();
    if (!self) return;
    auto& state = *self->state_;
    state.refreshIsDue.store(false);
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

UserDefaults::~UserDefaults() = default;

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
  state_->write({{std::string(key), std::move(value)}});
}

void UserDefaults::removeObjectForKey(std::string_view key) {
  state_->write({{std::string(key), std::nullopt}});
}

bool UserDefaults::synchronize() {
  if (state_->file.isSaved()) {
    state_->load();
    state_->refresh(Look::always);
  } else {
    state_->write({});
  }
  state_->showAll();
  return state_->file.isSaved();
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
