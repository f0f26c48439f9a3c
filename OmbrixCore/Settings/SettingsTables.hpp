#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "OmbrixPlatform/Locks/Mutex.hpp"
#include "OmbrixPlatform/Messaging/MessageChannel.hpp"

namespace ombrix {

/// The tables that all settings objects of the process share. Any thread: readers may come while
/// settings are still being registered.
class SettingsTables {
 public:
  struct NameHash {
    using is_transparent = void;
    std::size_t operator()(std::string_view name) const noexcept {
      return std::hash<std::string_view>{}(name);
    }
  };
  using Names = std::unordered_map<std::string, std::string, NameHash, std::equal_to<>>;

  struct Contents {
    Names settingsMappings;         // property to storage key
    Names reverseSettingsMappings;  // storage key to property
    std::vector<std::string> syncedPreferenceKeys;
    std::shared_ptr<platform::MessageChannel> wormhole;
  };

  static SettingsTables& shared();

  /// Runs a closure on the contents under the lock; it must not call out.
  template <class Closure>
  auto change(Closure&& closure) {
    const platform::LockGuard lock(mutex_);
    const Changed changed(contents_);
    return closure(contents_);
  }
  template <class Closure>
  auto read(Closure&& closure) const {
    const platform::LockGuard lock(mutex_);
    return closure(contents_);
  }

  [[nodiscard]] std::optional<std::string> keyOf(std::string_view property) const;
  [[nodiscard]] std::optional<std::string> propertyOf(std::string_view key) const;
  [[nodiscard]] std::vector<std::string> syncedPreferenceKeys() const;
  [[nodiscard]] std::shared_ptr<platform::MessageChannel> wormhole() const;

  /// Whether there is a channel, without a lock.
  [[nodiscard]] static bool hasWormhole() noexcept {
    return hasWormhole_.load(std::memory_order_acquire);
  }

  /// Changes with every change of the tables; without a lock.
  [[nodiscard]] static std::uint64_t revision() noexcept {
    return revision_.load(std::memory_order_acquire);
  }

 private:
  /// Publishes the parts that readers read without a lock, once the contents are final.
  struct Changed {
    explicit Changed(const Contents& changed) : contents(changed) {}
    ~Changed() {
      hasWormhole_.store(contents.wormhole != nullptr, std::memory_order_release);
      revision_.fetch_add(1, std::memory_order_release);
    }
    const Contents& contents;
  };

  mutable platform::Mutex mutex_;
  Contents contents_ OMBRIX_GUARDED_BY(mutex_);
  // The process has these tables only once, so readers find them without the instance.
  static constinit inline std::atomic<std::uint64_t> revision_{0};
  static constinit inline std::atomic<bool> hasWormhole_{false};
};

}  // namespace ombrix
