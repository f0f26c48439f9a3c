#pragma once

#include <concepts>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>

#include "OmbrixCore/Settings/OmbrixSettings.hpp"
#include "OmbrixPlatform/Defaults/UserDefaults.hpp"

namespace ombrix {

/// Whether a setting is mirrored to the user's cloud store while sync is on.
enum class Synced : bool { no, yes };

/// A program's own setting, in addition to those of the library: a property of
/// `OmbrixSettings::shared()` with a type, a storage key and a default.
///
///     Setting<bool> showLifts{"showLifts", "app.showLifts", true, Synced::yes};
///
///     showLifts.set(false);
///     const auto token = showLifts.observe([](bool shows) { ... });
///
/// Made once for each name, after the shared settings exist; it registers name, key and default
/// when it is made, and may be made and used on any thread.
///
/// @tparam Value bool, std::int64_t, double or std::string. A stored value of another kind is read
///   as user defaults read it ("YES" is true, "12" is 12).
template <class Value>
  requires std::same_as<Value, bool> || std::same_as<Value, std::int64_t> ||
           std::same_as<Value, double> || std::same_as<Value, std::string>
class Setting {
 public:
  /// @param name The property's name, by which it is observed; an identifier.
  /// @param key The key under which the value is stored.
  Setting(std::string name, std::string key, Value defaultValue, Synced synced = Synced::no)
      : name_(std::move(name)), key_(std::move(key)) {
    auto& settings = OmbrixSettings::shared();
    settings.registerMappings({{name_, key_}});
    settings.registerDefaults({{key_, std::move(defaultValue)}});
    if (synced == Synced::yes && !OmbrixSettings::shouldSyncForKey(key_)) {
      settings.registerSyncedPreferenceKeys({key_});
    }
  }

  [[nodiscard]] const std::string& name() const noexcept { return name_; }
  [[nodiscard]] const std::string& key() const noexcept { return key_; }

  /// The stored value, otherwise the default.
  [[nodiscard]] Value get() const {
    const auto& defaults = platform::UserDefaults::standardUserDefaults();
    if constexpr (std::same_as<Value, bool>) return defaults.boolForKey(key_);
    if constexpr (std::same_as<Value, std::int64_t>) return defaults.integerForKey(key_);
    if constexpr (std::same_as<Value, double>) return defaults.doubleForKey(key_);
    if constexpr (std::same_as<Value, std::string>) {
      return defaults.stringForKey(key_).value_or(std::string());
    }
  }

  /// Stores a value and, while sync is on, sends it to the cloud; observers are told before this
  /// returns.
  void set(Value value) { OmbrixSettings::shared().saveObject(std::move(value), key_); }

  /// Removes the stored value, so that the default counts again.
  void reset() { OmbrixSettings::shared().saveObject(std::nullopt, key_); }

  /// From now on calls the handler with the new value after each change by anyone, until the token
  /// ends.
  template <std::invocable<Value> Handler>
  [[nodiscard]] platform::ObservationToken observe(Handler handler) const {
    // This observes the key: the settings begin to observe a new name only a moment later, on a
    // queue.
    return platform::UserDefaults::standardUserDefaults().observe(
        key_, platform::KeyValueObservingOptions::none,
        [self = *this, handler = std::move(handler)](const auto&) mutable { handler(self.get()); });
  }

 private:
  std::string name_, key_;
};

}  // namespace ombrix
