#pragma once

#include <atomic>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "OmbrixPlatform/Coding/PropertyList.hpp"
#include "OmbrixPlatform/Messaging/MessageChannel.hpp"
#include "OmbrixPlatform/Observation/KeyValueObserving.hpp"

namespace ombrix::platform {
class Locale;
}
namespace ombrix::testing {
class ScopedSettings;
}

namespace ombrix {

/// The settings of the program and its extensions.
///
/// Each setting is a property with a name of its own; its value is stored in the standard user
/// defaults under a storage key; chosen storage keys are mirrored to the user's cloud store while
/// sync is on. Observers watch properties by name (`observe`): every change of a stored value, from
/// any writer, reaches them once as a will/did pair, on the thread that changed the defaults.
/// Observing a name that is not registered is logged, once for each name.
///
/// The settings below are the library's own; a program adds its own with `Setting`.
///
/// Any thread may use the settings; registering is meant to happen once, at start-up.
class OmbrixSettings final : public platform::KeyValueObserving<platform::PropertyList> {
 public:
  /// A property name and its storage key.
  using Mapping = std::pair<std::string, std::string>;

  /// The one instance, made on first use.
  static OmbrixSettings& shared();

  // Kept: every instance starts with empty tables, and the tables belong to the process: making a
  // second instance wipes what was registered on the first. The tables outlive their instance.
  OmbrixSettings();
  ~OmbrixSettings() override;

  /// @name Sync
  /// @{

  /// Whether this user has ever turned sync on, on any device.
  // Kept: spelled so, with "Toi". Callers, also those of the C interface, know it by this name.
  [[nodiscard]] bool hasSyncedToiCloudBefore() const;

  /// Turns sync off; values in the cloud stay there.
  void disableSync();

  /// Removes every synced key from the cloud store and has it synchronize; `syncPreferences` stays
  /// as it is.
  // Kept: spelled so. Callers know it by this name.
  void resetSynedPreferences();

  /// Turns sync on and marks the cloud store as used.
  ///
  /// @param behavior 1: local values win, every synced key that has a value here (registered
  ///   defaults count) is written to the cloud. 0: cloud values win, every synced key that the
  ///   cloud has is written here. Any other value: nothing is copied.
  void enableSyncWithBehavior(int behavior);

  /// Whether the storage key is mirrored to the cloud while sync is on.
  static bool shouldSyncForKey(std::string_view key);

  /// @}
  /// @name Names
  /// @{

  /// False for mapped properties: their changes are announced when the defaults change.
  static bool automaticallyNotifiesObserversForKey(std::string_view name);

  /// The storage key of a property; "--", under which nothing is stored, when it has none.
  static std::string keyFromGetter(std::string_view name);

  /// The storage key of the property that a setter such as "setMetricType:" sets. Stops the
  /// program when there is none: writing an unmapped setting is a programming error.
  static std::string keyFromSetter(std::string_view name);

  /// The setter of a property: "setMetricType:" for "metricType". Nothing is looked up.
  static std::string setterFromKey(std::string_view name);

  /// @}
  /// @name Registering
  /// @{

  /// Adds storage keys to those that are mirrored; a key may be added more than once.
  void registerSyncedPreferenceKeys(const std::vector<std::string>& keys);

  /// Maps properties to storage keys, at once, and observes the keys in the standard user
  /// defaults, later, on the global queue of low priority: changes before that are not announced.
  void registerMappings(const std::vector<Mapping>& mappings);

  /// Adds default values by storage key.
  void registerDefaults(const platform::PropertyList::Dictionary& defaults);

  /// @}
  /// @name Writing
  /// @{

  /// Writes to the standard user defaults and, while sync is on and the key is a synced one, to
  /// the cloud store, which is not told to synchronize.
  void saveBool(bool value, std::string_view key);

  /// The same for any value; without a value it removes the key.
  void saveObject(std::optional<platform::PropertyList> value, std::string_view key);

  /// Announces a change of the storage key `keyPath` as one of its property, before or after the
  /// fact; does nothing for keys that no property has.
  void observeValueForKeyPath(std::string_view keyPath,
                              const platform::KeyValueChange<platform::PropertyList>& change);

  /// @}
  /// @name The core settings
  /// @{

  /// Registers the three settings below, their defaults and the synced key, follows changes of the
  /// locale, and logs failures of the user defaults. Call it once, at start-up.
  ///
  /// The default unit system is the one for the current locale.
  void registerCoreSettings();

  /// The unit system of a locale: "british" for "en_GB", otherwise "kilometers" or "miles",
  /// depending on how the locale measures.
  static std::string unitSystemForLocale(const platform::Locale& locale);

  /// For the host to call when the user has changed the locale: the locale service reads it again
  /// and tells its observers (`LocaleService::localeDidChange`); observers of the unit system read
  /// it again, unless one is stored.
  void localeDidChange();

  /// From now on prefers the companion's unit system to the stored one, and tells observers of
  /// every mapped property when the companion sends a value, on one of the channel's threads. This
  /// cannot be undone. The channel is `OmbrixWormhole()`.
  void maskViaWormhole();

  /// The unit system, "kilometers", "miles" or "british": the companion's where `maskViaWormhole`
  /// was called and the companion has sent one, else the stored one, else the default; empty before
  /// `registerCoreSettings`. Cheap enough to call for every formatted value. Another unit system is
  /// logged, once, and measures like "kilometers".
  [[nodiscard]] std::string metricType() const;
  /// Without a value the default counts again.
  void setMetricType(std::optional<std::string_view> metricType);

  /// Whether changes of synced keys go to the cloud; true by default.
  [[nodiscard]] bool syncPreferences() const;
  void setSyncPreferences(bool syncPreferences);

  /// Whether more is logged; false by default.
  [[nodiscard]] bool extraLogging() const;
  void setExtraLogging(bool extraLogging);

  /// @}

 protected:
  std::optional<platform::PropertyList> valueForKey(std::string_view key) const override;
  void willObserve(std::string_view key) override;

 private:
  friend class testing::ScopedSettings;
  struct Registrations;

  static std::atomic<OmbrixSettings*>& substitute();
  void announceLocale();
  void maskVia(std::shared_ptr<platform::MessageChannel> channel);
  void save(const std::optional<platform::PropertyList>& value, std::string_view key);

  const std::shared_ptr<Registrations> registrations_;
};

}  // namespace ombrix
