#include <atomic>
#include <memory>
#include <utility>

#include "OmbrixPlatform/Defaults/NSUbiquitousKeyValueStore.hpp"
#include "OmbrixPlatform/Defaults/UserDefaults.hpp"
#include "OmbrixPlatform/Observation/Signal.hpp"

namespace ombrix::platform {
namespace {

/// A domain of user defaults of its own is all the store there is.
class FileUbiquitousKeyValueStore final : public NSUbiquitousKeyValueStore {
 public:
  explicit FileUbiquitousKeyValueStore(UserDefaults::Configuration configuration)
      : values_(UserDefaults::make(std::move(configuration))) {}

  std::optional<PropertyList> objectForKey(std::string_view key) const override {
    return values_->objectForKey(key);
  }

  void setObject(PropertyList value, std::string_view key) override {
    auto all = values_->persistentDomain();
    all.set(std::string(key), value);
    if (!isWithinLimits(std::move(all))) {
      refused_->send({ChangeReason::quotaViolation, {std::string(key)}});
      return;
    }
    values_->setObject(std::move(value), key);
  }

  void removeObjectForKey(std::string_view key) override { values_->removeObjectForKey(key); }

  PropertyList::Dictionary dictionaryRepresentation() const override {
    return values_->persistentDomain();
  }

  bool synchronize() override { return values_->synchronize(); }

  ObservationToken observeExternalChanges(ExternalChangeHandler handler) override {
    const auto shared = std::make_shared<ExternalChangeHandler>(std::move(handler));
    return ObservationToken(std::make_shared<Both>(
        refused_->connect([shared, closed = isClosed_](const ExternalChange& change) {
          if (!*closed) (*shared)(change);
        }),
        values_->observeExternalChanges(
            [shared, closed = isClosed_](const std::vector<std::string>& keys) {
              if (!*closed) (*shared)({ChangeReason::serverChange, keys});
            })));
  }

  void close() override { *isClosed_ = true; }

 private:
  /// Ends what reports refusals and what reports others' changes together.
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
  const std::shared_ptr<std::atomic<bool>> isClosed_ = std::make_shared<std::atomic<bool>>(false);
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
