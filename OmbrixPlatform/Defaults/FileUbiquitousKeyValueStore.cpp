#include <algorithm>
#include <condition_variable>
#include <cstddef>
#include <memory>
#include <mutex>
#include <optional>
#include <utility>

#include "OmbrixPlatform/Coding/PropertyListSerialization.hpp"
#include "OmbrixPlatform/Concurrency/ThreadPool.hpp"
#include "OmbrixPlatform/Defaults/NSUbiquitousKeyValueStore.hpp"
#include "OmbrixPlatform/Defaults/UserDefaults.hpp"
#include "OmbrixPlatform/Observation/Signal.hpp"

namespace ombrix::platform {
namespace {

/// The calls of observers, which `close` waits for.
class Calls {
 public:
  template <class Call>
  void make(Call call) {
    {
      const std::lock_guard lock(mutex_);
      if (isClosed_) return;
      ++running_;
    }
    call();
    const std::lock_guard lock(mutex_);
    --running_;
    ended_.notify_all();
  }

  void close() {
    const ThreadPool::BlockingScope blocking;
    std::unique_lock lock(mutex_);
    isClosed_ = true;
    ended_.wait(lock, [this] { return running_ == 0; });
  }

 private:
  std::mutex mutex_;
  std::condition_variable ended_;
  int running_ = 0;
  bool isClosed_ = false;
};

/// A domain of user defaults of its own is all the store there is.
class FileUbiquitousKeyValueStore final : public NSUbiquitousKeyValueStore {
 public:
  explicit FileUbiquitousKeyValueStore(UserDefaults::Configuration configuration)
      : values_(UserDefaults::make(std::move(configuration))) {}

  std::optional<PropertyList> objectForKey(std::string_view key) const override {
    return values_->objectForKey(key);
  }

  void setObject(PropertyList value, std::string_view key) override {
    if (!hasRoomFor(value, key)) {
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
  /// What fits without another count, which writes all values out: too much for every set. Half of
  /// the room that was found, since another process may fill the other half.
  struct Room {
    std::size_t keys = 0, bytes = 0;
  };

  bool hasRoomFor(const PropertyList& value, std::string_view key) {
    // References to more objects are wider, all of them.
    constexpr std::size_t kReserveBytes = 16 * 1024;
    const auto most = mostBytesOf(value, key);
    {
      const std::lock_guard lock(roomMutex_);
      if (most && room_.keys > 0 && room_.bytes >= *most) {
        --room_.keys;
        room_.bytes -= *most;
        return true;
      }
    }
    auto all = values_->persistentDomain();
    all.set(std::string(key), value);
    const std::size_t keys = all.size();
    const std::size_t bytes = PropertyListSerialization::write(std::move(all)).size();
    if (keys > kMaxKeys || bytes > kMaxBytes) return false;
    const std::lock_guard lock(roomMutex_);
    room_.keys = (kMaxKeys - keys) / 2;
    room_.bytes = (kMaxBytes - std::min(kMaxBytes, bytes + kReserveBytes)) / 2;
    return true;
  }

  /// The most that an entry takes in a property list; nothing for a value with others in it.
  static std::optional<std::size_t> mostBytesOf(const PropertyList& value, std::string_view key) {
    constexpr std::size_t kBytesBeside = 64;  // heads, references and places of two objects
    std::size_t bytes = 0;
    if (const auto* text = value.text()) {
      bytes = 2 * text->size();  // in UTF-16
    } else if (const auto* data = value.data()) {
      bytes = data->size();
    } else if (!value.boolean() && !value.integer() && !value.real()) {
      return std::nullopt;
    }
    return bytes + 2 * key.size() + kBytesBeside;
  }

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
  std::mutex roomMutex_;
  Room room_;
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
