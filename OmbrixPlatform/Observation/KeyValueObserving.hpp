#pragma once

#include <atomic>
#include <cstddef>
#include <functional>
#include <iterator>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <unordered_map>
#include <utility>
#include <vector>

#include "OmbrixPlatform/Observation/Signal.hpp"

namespace ombrix::platform {

/// What an observer of a key wants to be told; combine with `|`.
enum class KeyValueObservingOptions : unsigned {
  none = 0,
  newValue = 1,  ///< the value after the change
  oldValue = 2,  ///< the value before the change
  initial = 4,   ///< one call at once, before `observe` returns
  prior = 8,     ///< one more call before each change
};

constexpr KeyValueObservingOptions operator|(KeyValueObservingOptions a,
                                             KeyValueObservingOptions b) noexcept {
  return static_cast<KeyValueObservingOptions>(static_cast<unsigned>(a) | static_cast<unsigned>(b));
}
constexpr bool contains(KeyValueObservingOptions options,
                        KeyValueObservingOptions option) noexcept {
  return (static_cast<unsigned>(options) & static_cast<unsigned>(option)) != 0;
}

/// One call of an observer; valid during the call only.
template <class Value>
struct KeyValueChange {
  std::string_view key;
  bool isPrior = false;  ///< sent before the change (`NSKeyValueChangeNotificationIsPriorKey`)
  const Value* oldValue = nullptr;  ///< null when there was no value or it was not asked for
  const Value* newValue = nullptr;  ///< null when there is no value or it was not asked for
};

/// Base of objects whose properties can be observed by name.
///
/// The object announces each change itself: `willChangeValueForKey`, the change, then
/// `didChangeValueForKey`, as a pair on one thread. Pairs may nest. Observers are called on that
/// thread with no lock held; the guarantees are those of `Signal` and `ObservationToken`.
/// Announcing a change of an object that nobody observes costs one atomic load.
template <class Value>
class KeyValueObserving {
 public:
  using Options = KeyValueObservingOptions;
  using Change = KeyValueChange<Value>;
  using Handler = std::move_only_function<void(const Change&)>;

  KeyValueObserving() = default;
  KeyValueObserving(const KeyValueObserving&) = delete;
  KeyValueObserving& operator=(const KeyValueObserving&) = delete;
  virtual ~KeyValueObserving() = default;

  /// Calls the handler on every change of the property `key` until the token is destroyed.
  ///
  /// With `initial` the handler runs once before this returns, after it was registered, so that
  /// no change is missed in between. Any thread.
  ObservationToken observe(std::string_view key, Options options, Handler handler) {
    willObserve(key);
    const auto property = propertyToObserve(key);
    property->wanted.fetch_or(static_cast<unsigned>(options), std::memory_order_relaxed);
    const auto shared = std::make_shared<Handler>(std::move(handler));
    auto token = property->changed.connect([options, shared](const Change& change) {
      if (change.isPrior && !contains(options, Options::prior)) return;
      (*shared)({change.key, change.isPrior,
                 contains(options, Options::oldValue) ? change.oldValue : nullptr,
                 contains(options, Options::newValue) ? change.newValue : nullptr});
    });
    if (contains(options, Options::initial)) {
      std::optional<Value> value;
      if (contains(options, Options::newValue)) value = valueForKey(key);
      (*shared)({key, false, nullptr, value ? &*value : nullptr});
    }
    return token;
  }

  /// Announces that the property is about to change. Any thread.
  void willChangeValueForKey(std::string_view key) {
    const auto property = observedProperty(key);
    if (!property) return;
    const Options wanted = property->wantedOptions();
    if (!contains(wanted, Options::oldValue | Options::prior)) return;
    std::optional<Value> value;
    if (contains(wanted, Options::oldValue)) {
      value = valueForKey(key);
      const std::lock_guard lock(property->mutex);
      property->pending.emplace_back(std::this_thread::get_id(), value);
    }
    if (contains(wanted, Options::prior)) {
      property->changed.send({key, true, value ? &*value : nullptr, nullptr});
    }
  }

  /// Announces that the property has changed. The same thread as the call before the change.
  void didChangeValueForKey(std::string_view key) {
    const auto property = observedProperty(key);
    if (!property) return;
    std::optional<Value> before, after;
    if (contains(property->wantedOptions(), Options::oldValue)) before = property->takePending();
    if (contains(property->wantedOptions(), Options::newValue)) after = valueForKey(key);
    property->changed.send({key, false, before ? &*before : nullptr, after ? &*after : nullptr});
  }

  /// Whether anybody observes the property now. Any thread.
  [[nodiscard]] bool isObserved(std::string_view key) const {
    return observedProperty(key) != nullptr;
  }

 protected:
  /// The value that observers are given; nothing when the property has none. Called on the thread
  /// that announces, only when an observer asked for values.
  [[nodiscard]] virtual std::optional<Value> valueForKey(std::string_view key) const = 0;

  /// Called before an observer of the key is added, on its thread.
  virtual void willObserve([[maybe_unused]] std::string_view key) {}

 private:
  struct Property {
    Signal<const Change&> changed;
    std::atomic<unsigned> wanted{0};  // options that any observer ever asked for
    std::mutex mutex;
    // Old values between will and did, the innermost last; threads announce independently.
    std::vector<std::pair<std::thread::id, std::optional<Value>>> pending;

    Options wantedOptions() const noexcept {
      return static_cast<Options>(wanted.load(std::memory_order_relaxed));
    }

    std::optional<Value> takePending() {
      const std::lock_guard lock(mutex);
      for (auto it = pending.rbegin(); it != pending.rend(); ++it) {
        if (it->first != std::this_thread::get_id()) continue;
        auto value = std::move(it->second);
        pending.erase(std::next(it).base());
        return value;
      }
      return std::nullopt;
    }
  };

  struct KeyHash {
    using is_transparent = void;
    std::size_t operator()(std::string_view key) const noexcept {
      return std::hash<std::string_view>{}(key);
    }
  };

  std::shared_ptr<Property> propertyToObserve(std::string_view key) {
    const std::lock_guard lock(mutex_);
    auto it = properties_.find(key);
    if (it == properties_.end()) {
      it = properties_.emplace(std::string(key), std::make_shared<Property>()).first;
    }
    observed_.store(true, std::memory_order_release);
    return it->second;
  }

  std::shared_ptr<Property> observedProperty(std::string_view key) const {
    if (!observed_.load(std::memory_order_acquire)) return nullptr;
    const std::lock_guard lock(mutex_);
    const auto it = properties_.find(key);
    if (it == properties_.end() || !it->second->changed.hasObservers()) return nullptr;
    return it->second;
  }

  mutable std::mutex mutex_;
  std::atomic<bool> observed_{false};
  std::unordered_map<std::string, std::shared_ptr<Property>, KeyHash, std::equal_to<>> properties_;
};

}  // namespace ombrix::platform
