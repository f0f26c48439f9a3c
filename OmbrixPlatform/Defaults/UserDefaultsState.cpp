#include <cstdio>
#include <utility>

#include "OmbrixPlatform/Defaults/Detail/Coercion.hpp"
#include "OmbrixPlatform/Defaults/Detail/UserDefaultsState.hpp"
#include "OmbrixPlatform/Logging/DDLog.hpp"
#include "OmbrixPlatform/Services.hpp"
#include "OmbrixPlatform/Values/Clock.hpp"
#include "OmbrixPlatform/Values/Error.hpp"

namespace ombrix::platform {
namespace {

namespace fs = std::filesystem;
using Look = DictionaryFile::Look;

constexpr std::chrono::minutes kErrorInterval{1};
constexpr std::size_t kMaximumToldErrors = 32;

void reportToLog(const std::string& message) {
  if (DDLog::allLoggers().empty()) {
    std::fprintf(stderr, "User defaults: %s\n", message.c_str());
  } else {
    DDLogError({"OmbrixPlatform/Defaults/UserDefaults", "UserDefaults"},
               "Data: User defaults: " + message);
  }
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

UserDefaults::State::State(UserDefaults& made, Configuration configuration)
    : owner(made),
      path(fileOf(configuration)),
      file(path),
      hasOwnErrorHandler(configuration.onError != nullptr),
      onError(hasOwnErrorHandler ? std::move(configuration.onError) : reportToLog) {}

std::uint64_t UserDefaults::State::nextRevision() {
  static constinit std::atomic<std::uint64_t> last{0};
  return last.fetch_add(1, std::memory_order_relaxed) + 1;
}

/// Shows readers what other processes have changed, key by key, and tells the observers.
void UserDefaults::State::take(const DictionaryFile::Outcome& outcome) {
  std::vector<std::string> external;
  for (const auto& each : outcome.changes) {
    if (!each.isExternal) continue;
    Coming coming{each.value, each.sequence};
    if (change(each.key, coming)) external.push_back(each.key);
  }
  if (!external.empty()) changedExternally.send(external);
  report(outcome.errors);
}

/// Changes what readers see, between the two calls of the observers; false where it is shown
/// already or was overtaken. Calls out.
bool UserDefaults::State::change(std::string_view key, Coming& coming) {
  const bool isChange = begin(key, coming, true);
  if (!coming.isAnnounced) return isChange;
  try {
    owner.willChangeValueForKey(key, coming.before);
  } catch (...) {  // for want of memory: no observer was told
    giveUp(key, coming);
    throw;
  }
  try {
    makeNow(key, coming);
  } catch (...) {  // the same, but the observers wait for the second call
    giveUp(key, coming);
    owner.didChangeValueForKey(key, coming.isMade ? coming.after : coming.before);
    throw;
  }
  owner.didChangeValueForKey(key, coming.after);
  return true;
}

/// No other thread makes the change from now on.
void UserDefaults::State::giveUp(std::string_view key, const Coming& coming) {
  const ForkGate::Pass pass;
  const LockGuard lock(mutex);
  if (auto& entry = stored.find(key)->second; entry.coming == &coming) entry.coming = nullptr;
}

/// Whether this changes what readers see. Makes it at once, unless observers are to be told first.
bool UserDefaults::State::begin(std::string_view key, Coming& coming, bool tellsObservers) {
  bool isChange = false, mustWrite = false;
  {
    const ForkGate::Pass pass;
    const LockGuard lock(mutex);
    const bool wasIdle = queuedKeys.empty();
    auto known = stored.find(key);
    if (known == stored.end()) known = stored.try_emplace(std::string(key)).first;
    auto& [name, entry] = *known;
    if (entry.coming != nullptr) make(name, entry, *entry.coming);
    const bool isWanted =
        coming.sequence == 0 || (entry.edit == 0 && entry.sequence < coming.sequence);
    isChange = isWanted && entry.value != coming.value;
    // Asked with the lock held: who registers later reads the value after the change.
    coming.isAnnounced = isChange && tellsObservers && owner.isObserved(key);
    if (coming.isAnnounced) {
      coming.before = detail::copyOf(find(key, true));
      entry.coming = &coming;
    } else if (isWanted) {
      make(name, entry, coming);
    }
    mustWrite = wasIdle && !queuedKeys.empty();
  }
  if (mustWrite) somethingToWrite.notify_one();
  return isChange;
}

/// Makes a change that observers know to be coming, if nobody has by now.
void UserDefaults::State::makeNow(std::string_view key, Coming& coming) {
  bool mustWrite = false;
  {
    const ForkGate::Pass pass;
    const LockGuard lock(mutex);
    auto& [name, entry] = *stored.find(key);
    if (!coming.isMade) make(name, entry, coming);
    mustWrite = !queuedKeys.empty();  // another thread that made it may not have said so
  }
  if (mustWrite) somethingToWrite.notify_one();
}

void UserDefaults::State::make(const std::string& key, Stored& entry, Coming& coming) {
  // First what may fail for want of memory.
  auto value = coming.value;
  if (coming.isAnnounced)
    coming.after = detail::copyOf(firstOf(key, value ? &*value : nullptr, true));
  if (coming.sequence == 0) {
    coming.hasWriter = hasWriterHere();
    if (!entry.isQueued) queuedKeys.push_back(key);
    entry.isQueued = true;
    entry.edit = ++lastEdit;
  } else {
    entry.sequence = coming.sequence;
  }
  if (entry.value != value) {
    entry.value = std::move(value);
    revision.store(nextRevision(), std::memory_order_release);
  }
  coming.isMade = true;
  if (entry.coming == &coming) entry.coming = nullptr;
}

/// Shows readers what other threads are about to show.
void UserDefaults::State::showAll() {
  const auto contents = file.contents();
  DictionaryFile::Outcome all;
  for (const auto& [key, value] : contents.values) {
    all.changes.push_back({key, value, contents.sequence, true});
  }
  {
    const LockGuard lock(mutex);
    for (const auto& [key, entry] : stored) {
      if (contents.values.contains(key)) continue;
      all.changes.push_back({key, std::nullopt, contents.sequence, true});
    }
  }
  take(all);
}

/// Reports failures; one that lasts is reported from time to time, not at every look.
void UserDefaults::State::report(const std::vector<std::string>& errors) {
  for (const auto& error : errors) {
    const auto now = services().clock.get().steadyNow();
    ErrorHandler handler;
    {
      const ForkGate::Pass pass;
      const LockGuard lock(mutex);
      const auto told = toldErrors.find(error);
      if (told != toldErrors.end() && now - told->second < kErrorInterval) continue;
      if (toldErrors.size() >= kMaximumToldErrors) toldErrors.clear();
      toldErrors[error] = now;
      handler = onError;
    }
    handler(error);
  }
}

void UserDefaults::State::lookAtFile() {
  load();
  refresh(Look::ifFree);
}

/// The first look. Readers that come meanwhile wait: otherwise they would find no value.
void UserDefaults::State::load() {
  if (hasLoaded.load(std::memory_order_acquire)) return;
  std::vector<std::string> errors;
  {
    const LockGuard lock(loadMutex);
    if (hasLoaded.load(std::memory_order_acquire)) return;
    auto outcome = file.refresh(Look::always);
    for (const auto& each : outcome.changes) {
      Coming coming{each.value, each.sequence};
      begin(each.key, coming, false);  // there from the start: nobody's change
    }
    errors = std::move(outcome.errors);
    hasLoaded.store(true, std::memory_order_release);
  }
  report(errors);
}

/// The value in the first domain that has the key.
const PropertyList* UserDefaults::State::find(std::string_view key, bool withDefaults) const {
  const auto it = stored.find(key);
  const bool isStored = it != stored.end() && it->second.value;
  return firstOf(key, isStored ? &*it->second.value : nullptr, withDefaults);
}

/// The same if that value is stored.
const PropertyList* UserDefaults::State::firstOf(std::string_view key,
                                                 const PropertyList* storedValue,
                                                 bool withDefaults) const {
  if (const auto* value = arguments.find(key)) return value;
  if (storedValue != nullptr) return storedValue;
  return withDefaults ? defaults.find(key) : nullptr;
}

}  // namespace ombrix::platform
