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
  const LockGuard lock(mutex);
  const auto known = stored.find(change.key);
  return known != stored.end() && (known->second.edit != 0 || known->second.own >= change.sequence);
}

void UserDefaults::State::show(const DictionaryFile::Change& change) {
  const ForkGate::Pass pass;
  const LockGuard lock(mutex);
  auto& entry = stored[change.key];
  if (entry.edit != 0 || entry.sequence >= change.sequence) return;
  entry.value = change.value;
  entry.sequence = change.sequence;
  revision.store(nextRevision(), std::memory_order_release);
}

/// Shows readers what other threads are about to show.
void UserDefaults::State::showAll() {
  const auto contents = file.contents();
  const ForkGate::Pass pass;
  const LockGuard lock(mutex);
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

/// The first look. Whoever comes meanwhile waits, or it would find nothing set.
void UserDefaults::State::load() {
  if (hasLoaded.load(std::memory_order_acquire)) return;
  std::vector<std::string> errors;
  {
    const LockGuard lock(loadMutex);
    if (hasLoaded.load(std::memory_order_acquire)) return;
    auto outcome = file.refresh(Look::always);
    for (const auto& change : outcome.changes) show(change);
    errors = std::move(outcome.errors);
    hasLoaded.store(true, std::memory_order_release);
  }
  report(errors);
}

/// The value in the first domain that has the key.
const PropertyList* UserDefaults::State::find(std::string_view key, bool withDefaults) const {
  if (const auto* value = arguments.find(key)) return value;
  if (const auto it = stored.find(key); it != stored.end() && it->second.value) {
    return &*it->second.value;
  }
  return withDefaults ? defaults.find(key) : nullptr;
}

}  // namespace ombrix::platform
