#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <unordered_map>
#include <utility>
#include <vector>

#include "OmbrixPlatform/Locks/Mutex.hpp"
#include "OmbrixPlatform/Observation/ObservationToken.hpp"
#include "OmbrixPlatform/Observation/ObserverList.hpp"
#include "OmbrixPlatform/Values/CallOut.hpp"

namespace ombrix::platform {

/// What an observer of a key is told; combine with `|`.
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
/// thread without a lock; the guarantees are those of `Signal` and `ObservationToken`. Both calls
/// of a pair reach the observers that were registered before it; an observer added in between with
/// `initial`, which may have read the old value, gets the second call as well. Announcing a change
/// of an object without observers costs one atomic load.
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
  /// With `initial` the handler also runs once before this returns, but after it was registered, so
  /// that it misses no change; with `newValue` once more for each time that another thread's change
  /// was told meanwhile, so that an old value does not stay the last one. Any thread.
  ObservationToken observe(std::string_view key, Options options, Handler handler) {
    willObserve(key);
    const auto property = propertyToObserve(key);
    property->wanted.fetch_or(static_cast<unsigned>(options), std::memory_order_relaxed);
    const auto observer = std::make_shared<Observer>(options, std::move(handler));
    property->add(observer);
    ObservationToken token(observer);
    if (contains(options, Options::initial)) {
      const bool wantsValue = contains(options, Options::newValue);
      for (int calls = 0; calls < kMostInitialCalls; ++calls) {
        const auto told = observer->toldByOthers();
        const auto value = wantsValue ? valueForKey(key) : std::nullopt;
        observer->callInitially({key, false, nullptr, value ? &*value : nullptr});
        if (!wantsValue || observer->toldByOthers() == told) break;
      }
    }
    return token;
  }

  /// Announces that the property is about to change. Any thread.
  void willChangeValueForKey(std::string_view key) {
    const auto property = observedProperty(key);
    if (!property) return;  // else there may be observers before the change is done
    const bool wantsValue = contains(property->wantedOptions(), Options::oldValue);
    announceComing(key, *property, wantsValue ? valueForKey(key) : std::nullopt);
  }

  /// The same, for who knows the value before the change: other threads may change it meanwhile.
  void willChangeValueForKey(std::string_view key, const std::optional<Value>& before) {
    const auto property = observedProperty(key);
    if (property) announceComing(key, *property, before);
  }

  /// Announces that the property has changed, on the thread that announced the coming change.
  void didChangeValueForKey(std::string_view key) {
    const auto property = observedProperty(key);
    if (!property) return;
    const auto pair = property->end();
    if (!pair) return;
    const bool wantsValue = contains(property->wantedOptions(), Options::newValue);
    announceDone(key, *pair, wantsValue ? valueForKey(key) : std::nullopt);
  }

  /// The same, for who knows the value after the change.
  void didChangeValueForKey(std::string_view key, const std::optional<Value>& after) {
    const auto property = observedProperty(key);
    if (!property) return;
    if (const auto pair = property->end()) announceDone(key, *pair, after);
  }

  /// Announces a change that was decided and made in one step: both calls, with the values before
  /// and after it. Any thread.
  void announceChange(std::string_view key, const std::optional<Value>& before,
                      const std::optional<Value>& after) {
    const auto property = observedProperty(key);
    if (!property || property->observers->empty()) return;
    const Audience audience(*property->observers);
    const auto* old = before ? &*before : nullptr;
    if (contains(property->wantedOptions(), Options::prior)) {
      audience.send({key, true, old, nullptr});
    }
    audience.send({key, false, old, after ? &*after : nullptr});
  }

  /// Whether any property was ever observed. Any thread.
  [[nodiscard]] bool isObserved() const noexcept {
    return observed_.load(std::memory_order_acquire);
  }

  /// Whether the property has an observer now. Any thread.
  [[nodiscard]] bool isObserved(std::string_view key) const {
    const auto property = observedProperty(key);
    return property && !property->observers->empty();
  }

 protected:
  /// The value passed to observers; empty when the property has none. Called on the announcing
  /// thread, only if an observer asked for values.
  [[nodiscard]] virtual std::optional<Value> valueForKey(std::string_view key) const = 0;

  /// Called before an observer of the key is added, on its thread.
  virtual void willObserve([[maybe_unused]] std::string_view key) {}

 private:
  class Observer final : public detail::Observer {
   public:
    Observer(Options options, Handler handler) : options_(options), handler_(std::move(handler)) {}

    [[nodiscard]] bool wantsInitial() const { return contains(options_, Options::initial); }

    /// How many changes it was told, but for those that its own calls have made.
    [[nodiscard]] std::uint64_t toldByOthers() const { return told_; }

    void call(const Change& change) {
      if (change.isPrior && !contains(options_, Options::prior)) return;
      const bool isNested = detail::ObserverCall::depthOnThisThread(*this) != 0;
      if (!change.isPrior && wantsInitial() && !isNested) ++told_;
      callInitially(change);
    }

    void callInitially(const Change& change) {
      const detail::ObserverCall call{*this};
      if (!call) return;
      callOut("an observer", [&] {
        handler_({change.key, change.isPrior,
                  contains(options_, Options::oldValue) ? change.oldValue : nullptr,
                  contains(options_, Options::newValue) ? change.newValue : nullptr});
      });
    }

   private:
    void releaseHandler() noexcept override { handler_ = nullptr; }

    const Options options_;
    Handler handler_;
    std::atomic<std::uint64_t> told_{0};
  };

  // The observers of both calls for one change.
  class Audience {
   public:
    explicit Audience(detail::ObserverList& observers)
        : round_(std::make_shared<const detail::ObserverList::Round>(observers)) {}

    void send(const Change& change) const {
      for (const auto& each : *round_) static_cast<Observer&>(*each).call(change);
      for (const auto& each : joined_) each->call(change);
    }
    void join(std::shared_ptr<Observer> observer) { joined_.push_back(std::move(observer)); }

   private:
    std::shared_ptr<const detail::ObserverList::Round> round_;
    std::vector<std::shared_ptr<Observer>> joined_;
  };

  // An announced change that is not finished: its thread, its old value and its observers.
  struct Pair {
    std::thread::id thread;
    std::optional<Value> before;
    Audience audience;
  };

  struct Property {
    const std::shared_ptr<detail::ObserverList> observers =
        std::make_shared<detail::ObserverList>();
    std::atomic<unsigned> wanted{0};  // all options that observers ever asked for
    Mutex mutex;
    std::vector<Pair> pairs OMBRIX_GUARDED_BY(mutex);  // in the order in which they began

    Options wantedOptions() const noexcept {
      return static_cast<Options>(wanted.load(std::memory_order_relaxed));
    }

    void add(const std::shared_ptr<Observer>& observer) {
      const LockGuard lock(mutex);
      observers->add(observer);
      if (!observer->wantsInitial()) return;
      for (auto& pair : pairs) pair.audience.join(observer);
    }

    /// The observers registered now; more may join the pair until it ends.
    Audience begin(std::optional<Value> before) {
      const LockGuard lock(mutex);
      const Audience audience(*observers);
      pairs.push_back({std::this_thread::get_id(), std::move(before), audience});
      return audience;
    }

    std::optional<Pair> end() {
      const LockGuard lock(mutex);
      for (auto it = pairs.rbegin(); it != pairs.rend(); ++it) {
        if (it->thread != std::this_thread::get_id()) continue;
        std::optional<Pair> pair(std::move(*it));
        pairs.erase(std::next(it).base());
        return pair;
      }
      return std::nullopt;
    }
  };

  static void announceComing(std::string_view key, Property& property,
                             const std::optional<Value>& before) {
    const auto audience = property.begin(before);
    if (!contains(property.wantedOptions(), Options::prior)) return;
    audience.send({key, true, before ? &*before : nullptr, nullptr});
  }

  static void announceDone(std::string_view key, const Pair& pair,
                           const std::optional<Value>& after) {
    pair.audience.send(
        {key, false, pair.before ? &*pair.before : nullptr, after ? &*after : nullptr});
  }

  struct KeyHash {
    using is_transparent = void;
    std::size_t operator()(std::string_view key) const noexcept {
      return std::hash<std::string_view>{}(key);
    }
  };

  std::shared_ptr<Property> propertyToObserve(std::string_view key) {
    const LockGuard lock(mutex_);
    auto it = properties_.find(key);
    if (it == properties_.end()) {
      it = properties_.emplace(std::string(key), std::make_shared<Property>()).first;
    }
    observed_.store(true, std::memory_order_release);
    return it->second;
  }

  std::shared_ptr<Property> observedProperty(std::string_view key) const {
    if (!observed_.load(std::memory_order_acquire)) return nullptr;
    const LockGuard lock(mutex_);
    const auto it = properties_.find(key);
    return it == properties_.end() ? nullptr : it->second;
  }

  static constexpr int kMostInitialCalls = 1000;
  mutable Mutex mutex_;
  std::atomic<bool> observed_{false};
  std::unordered_map<std::string, std::shared_ptr<Property>, KeyHash, std::equal_to<>> properties_
      OMBRIX_GUARDED_BY(mutex_);
};

}  // namespace ombrix::platform
