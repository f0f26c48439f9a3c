#include "OmbrixPlatform/Defaults/UserDefaults.hpp"

#include <new>
#include <utility>

#include "OmbrixPlatform/Defaults/Detail/Coercion.hpp"
#include "OmbrixPlatform/Defaults/Detail/UserDefaultsState.hpp"
#include "OmbrixPlatform/Services.hpp"

namespace ombrix::platform {

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
  const LockGuard lock(state_->mutex);
  return detail::copyOf(state_->find(key, true));
}

std::optional<PropertyList> UserDefaults::explicitObjectForKey(std::string_view key) const {
  state_->beFresh();
  const LockGuard lock(state_->mutex);
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
  const LockGuard lock(state_->mutex);
  for (const auto& [key, value] : state_->defaults) {
    if (!all.contains(key)) all.set(key, value);
  }
  for (const auto& [key, value] : state_->arguments) all.set(key, value);
  return all;
}

UserDefaults::Dictionary UserDefaults::persistentDomain() const {
  state_->beFresh();
  const LockGuard lock(state_->mutex);
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

bool UserDefaults::synchronize() try {
  state_->load();
  const auto outcome = state_->flush();
  state_->take(outcome);
  // By now the writer may hold the file for as long again, since it repeats failed writes.
  if (!outcome.isSaved) return false;
  state_->refresh(DictionaryFile::Look::always);
  state_->showAll();
  return state_->file.isSaved();
} catch (const std::bad_alloc&) {
  return false;  // what is not written yet waits for the next attempt
}

void UserDefaults::setErrorHandler(ErrorHandler handler) {
  const ForkGate::Pass pass;
  const LockGuard lock(state_->mutex);
  if (!state_->hasOwnErrorHandler) state_->onError = std::move(handler);
}

void UserDefaults::registerDefaults(const Dictionary& defaults) {
  const ForkGate::Pass pass;
  const LockGuard lock(state_->mutex);
  for (const auto& [key, value] : defaults) state_->defaults.set(key, value);
  state_->revision.store(State::nextRevision(), std::memory_order_release);
}

void UserDefaults::setArguments(Dictionary arguments) {
  const ForkGate::Pass pass;
  const LockGuard lock(state_->mutex);
  state_->arguments = std::move(arguments);
  state_->revision.store(State::nextRevision(), std::memory_order_release);
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

const std::filesystem::path& UserDefaults::file() const { return state_->path; }

void UserDefaults::willObserve(std::string_view) { state_->watch(); }

}  // namespace ombrix::platform
