#include <atomic>
#include <memory>
#include <optional>
#include <utility>

#include "OmbrixPlatform/Concurrency/ThreadPool.hpp"
#include "OmbrixPlatform/Defaults/Detail/CloudRoom.hpp"
#include "OmbrixPlatform/Defaults/NSUbiquitousKeyValueStore.hpp"
#include "OmbrixPlatform/Defaults/UserDefaults.hpp"
#include "OmbrixPlatform/Locks/Condition.hpp"
#include "OmbrixPlatform/Observation/Signal.hpp"

namespace ombrix::platform {
namespace {

/// The calls of observers, which `close` waits for.
class Calls {
 public:
  template <class Call>
  void make(Call call) {
    {
      const LockGuard lock(mutex_);
      if (isClosed_) return;
      ++running_;
    }
    call();
    const LockGuard lock(mutex_);
    --running_;
    ended_.notify_all();
  }

  void close() {
    const ThreadPool::BlockingScope blocking;
    const LockGuard lock(mutex_);
    isClosed_ = true;
    ended_.wait(mutex_, [this]() OMBRIX_REQUIRES(mutex_) { return running_ == 0; });
  }

 private:
  Mutex mutex_;
  Condition ended_;
  int running_ OMBRIX_GUARDED_BY(mutex_) = 0;
  bool isClosed_ OMBRIX_GUARDED_BY(mutex_) = false;
};

/// The store is nothing but a domain of user defaults of its own.
class FileUbiquitousKeyValueStore final : public NSUbiquitousKeyValueStore {
 public:
  explicit FileUbiquitousKeyValueStore(UserDefaults::Configuration configuration)
      : values_(UserDefaults::make(std::move(configuration))) {}

  std::optional<PropertyList> objectForKey(std::string_view key) const override {
    return values_->objectForKey(key);
  }

  void setObject(PropertyList value, std::string_view key) override {
    if (!room_.take(value, key, [this] { return values_->persistentDomain(); })) {
      refused_->send({ChangeReason::quotaViolation, {std::string(key)}});
      return;
    }
    values_->setObject(std::move(value), key);
  }

  void removeObjectForKey(std::string_view key) override { values_->removeObjectForKey(key); }

  PropertyList::Dictionary dictionaryRepresentation() const override {
    return values_->persistentDomain();
  }

  bool synchronize() override {
    isKept_ = values_->synchronize();
    return isKept_;
  }
  bool isKept() const override { return isKept_; }

  ObservationToken observeExternalChanges(ExternalChangeHandler handler) override {
    const auto shared = std::make_shared<ExternalChangeHandler>(std::move(handler));
    return ObservationToken(std::make_shared<Both>(
        refused_->connect([shared, calls = calls_](const ExternalChange& change) {
          calls->make([&] { (*shared)(change); });
        }),
        values_->observeExternalChanges(
            [shared, calls = calls_](const std::vector<std::string>& keys) {
              calls->make([&] { (*shared)({ChangeReason::serverChange, keys}); });
            })));
  }

  void close() override { calls_->close(); }

 private:
  /// Ends the reports of refusals together with those of others' changes.
  struct Both final : detail::Observation {
    Both(ObservationToken first, ObservationToken second)
        : refusals(std::move(first)), changes(std::move(second)) {}
    ~Both() override {
      refusals.detach();
      changes.detach();
    }
    void cancel() noexcept override {
      refusals.cancel();
      changes.cancel();
    }
    ObservationToken refusals, changes;
  };

  const std::shared_ptr<UserDefaults> values_;
  detail::CloudRoom room_;
  std::atomic<bool> isKept_{true};
  const std::shared_ptr<Calls> calls_ = std::make_shared<Calls>();
  const std::shared_ptr<Signal<const ExternalChange&>> refused_ =
      std::make_shared<Signal<const ExternalChange&>>();
};

}  // namespace

std::shared_ptr<NSUbiquitousKeyValueStore> makeFileUbiquitousKeyValueStore(
    const std::filesystem::path& folder, const std::string& domain) {
  return std::make_shared<FileUbiquitousKeyValueStore>(
      UserDefaults::Configuration{.folder = folder, .domain = domain});
}

}  // namespace ombrix::platform
