#include "OmbrixCore/Settings/OmbrixSettings.hpp"

#include <algorithm>
#include <vector>

#include "OmbrixCore/Extensions/Logging/Log.hpp"
#include "OmbrixCore/Settings/SettingsRegistrations.hpp"
#include "OmbrixCore/Settings/SettingsTables.hpp"
#include "OmbrixCore/Settings/ToldOnce.hpp"
#include "OmbrixPlatform/Concurrency/DispatchQueue.hpp"
#include "OmbrixPlatform/Defaults/NSUbiquitousKeyValueStore.hpp"
#include "OmbrixPlatform/Defaults/UserDefaults.hpp"
#include "OmbrixPlatform/Values/FatalError.hpp"

namespace ombrix {
namespace {

using platform::DispatchQueue;
using platform::NSUbiquitousKeyValueStore;
using platform::PropertyList;
using platform::UserDefaults;

constexpr std::string_view kHasSyncedKey = "iCloudSyncHasBeenOn";
constexpr std::string_view kUnmappedKey = "--";
constexpr std::size_t kSetPrefixLength = 3;

SettingsTables& tables() { return SettingsTables::shared(); }
UserDefaults& defaults() { return UserDefaults::standardUserDefaults(); }
NSUbiquitousKeyValueStore& cloud() { return NSUbiquitousKeyValueStore::defaultStore(); }

// Property names are identifiers, so they begin with an ASCII letter.
constexpr char lowered(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; }
constexpr char raised(char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 32) : c; }

}  // namespace

OmbrixSettings& OmbrixSettings::shared() {
  if (auto* standIn = substitute().load(std::memory_order_acquire)) return *standIn;
  static OmbrixSettings& instance = *new OmbrixSettings;
  return instance;
}

/// Tests' replacement of the shared instance.
std::atomic<OmbrixSettings*>& OmbrixSettings::substitute() {
  static constinit std::atomic<OmbrixSettings*> instance{nullptr};
  return instance;
}

OmbrixSettings::OmbrixSettings() : registrations_(std::make_shared<Registrations>()) {
  SettingsTables::Contents previous;  // its channel ends outside the lock
  tables().change([&](SettingsTables::Contents& contents) { std::swap(contents, previous); });
}

OmbrixSettings::~OmbrixSettings() { registrations_->end(); }

bool OmbrixSettings::hasSyncedToiCloudBefore() const { return cloud().boolForKey(kHasSyncedKey); }

void OmbrixSettings::disableSync() { setSyncPreferences(false); }

void OmbrixSettings::resetSynedPreferences() {
  for (const auto& key : tables().syncedPreferenceKeys()) cloud().removeObjectForKey(key);
  cloud().synchronize();
}

void OmbrixSettings::enableSyncWithBehavior(int behavior) {
  const auto keys = tables().syncedPreferenceKeys();
  if (behavior == 1) {
    for (const auto& key : keys) {
      if (auto value = defaults().objectForKey(key)) cloud().setObject(std::move(*value), key);
    }
  } else if (behavior == 0) {
    for (const auto& key : keys) {
      auto value = cloud().objectForKey(key);
      if (!value) continue;
      // Kept: announces the storage key, not the property; observers of the property are told by
      // the change of the defaults. Announcing the property here would tell them twice.
      willChangeValueForKey(key);
      defaults().setObject(std::move(*value), key);
      didChangeValueForKey(key);
    }
  }
  setSyncPreferences(true);
  cloud().setObject(true, kHasSyncedKey);
}

bool OmbrixSettings::shouldSyncForKey(std::string_view key) {
  return tables().read([&](const SettingsTables::Contents& contents) {
    return std::ranges::find(contents.syncedPreferenceKeys, key) !=
           contents.syncedPreferenceKeys.end();
  });
}

bool OmbrixSettings::automaticallyNotifiesObserversForKey(std::string_view name) {
  return !tables().keyOf(name);
}

std::string OmbrixSettings::keyFromGetter(std::string_view name) {
  return tables().keyOf(name).value_or(std::string(kUnmappedKey));
}

std::string OmbrixSettings::keyFromSetter(std::string_view name) {
  std::string property(name.substr(std::min(kSetPrefixLength, name.size())));
  if (!property.empty()) property[0] = lowered(property[0]);
  std::erase(property, ':');
  auto key = tables().keyOf(property);
  if (!key) {
    platform::fatalError(
        "Assertion failed: (key != NULL), function +[OmbrixSettings keyFromSetter:], "
        "file OmbrixSettings, line 127.");
  }
  return *std::move(key);
}

std::string OmbrixSettings::setterFromKey(std::string_view name) {
  std::string setter = "set" + std::string(name) + ":";
  if (!name.empty()) setter[kSetPrefixLength] = raised(name[0]);
  return setter;
}

void OmbrixSettings::registerSyncedPreferenceKeys(const std::vector<std::string>& keys) {
  tables().change([&](SettingsTables::Contents& contents) {
    // Kept: duplicates stay. The list is what was registered, in that order.
    contents.syncedPreferenceKeys.insert(contents.syncedPreferenceKeys.end(), keys.begin(),
                                         keys.end());
  });
}

void OmbrixSettings::registerMappings(const std::vector<Mapping>& mappings) {
  std::vector<std::string> keys;
  tables().change([&](SettingsTables::Contents& contents) {
    for (const auto& [property, key] : mappings) {
      contents.settingsMappings[property] = key;
      contents.reverseSettingsMappings[key] = property;
      keys.push_back(key);
    }
  });
  if (!registrations_->begin()) return;
  DispatchQueue::global(platform::DispatchPriority::low)
      .async([this, registrations = registrations_, keys = std::move(keys)] {
        using enum platform::KeyValueObservingOptions;
        for (const auto& key : keys) {
          registrations->add(defaults().observe(key, newValue | prior, [this](const auto& change) {
            observeValueForKeyPath(change.key, change);
          }));
        }
        registrations->finish();
      });
}

void OmbrixSettings::registerDefaults(const PropertyList::Dictionary& values) {
  defaults().registerDefaults(values);
}

void OmbrixSettings::observeValueForKeyPath(std::string_view keyPath,
                                            const platform::KeyValueChange<PropertyList>& change) {
  const auto property = tables().propertyOf(keyPath);
  if (!property) return;
  if (change.isPrior) {
    willChangeValueForKey(*property);
  } else {
    didChangeValueForKey(*property);
  }
}

void OmbrixSettings::saveBool(bool value, std::string_view key) { save(PropertyList(value), key); }

void OmbrixSettings::saveObject(std::optional<PropertyList> value, std::string_view key) {
  save(value, key);
}

void OmbrixSettings::save(const std::optional<PropertyList>& value, std::string_view key) {
  const auto write = [&](auto& store) {
    if (value) {
      store.setObject(*value, key);
    } else {
      store.removeObjectForKey(key);
    }
  };
  write(defaults());
  // Kept: the cloud store is not told to synchronize. It does that in its own time; a round trip
  // for each change would hold up the caller.
  if (shared().syncPreferences() && shouldSyncForKey(key)) write(cloud());
}

void OmbrixSettings::willObserve(std::string_view key) {
  if (tables().keyOf(key) || tables().propertyOf(key)) return;
  static ToldOnce& told = *new ToldOnce;
  if (!told.isNews(key)) return;
  logWarning(
      {"OmbrixCore/Settings/OmbrixSettings", "willObserve(key:)"},
      "Data: Nothing is registered as the setting \"" + std::string(key) + "\", which is observed");
}

std::optional<PropertyList> OmbrixSettings::valueForKey(std::string_view key) const {
  if (key == "metricType") return metricType();
  return defaults().objectForKey(keyFromGetter(key));
}

}  // namespace ombrix
