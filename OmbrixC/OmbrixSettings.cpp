#include "OmbrixC/OmbrixSettings.h"

#include "OmbrixC/Detail/Copies.hpp"
#include "OmbrixC/Detail/ErrorOut.hpp"
#include "OmbrixC/Detail/Handle.hpp"
#include "OmbrixC/Detail/Observation.hpp"
#include "OmbrixCore/Settings/MMWormhole+Ombrix.hpp"
#include "OmbrixCore/Settings/OmbrixSettings.hpp"
#include "OmbrixPlatform/Coding/PropertyListSerialization.hpp"

struct OmbrixMMWormhole {
  std::shared_ptr<ombrix::platform::MMWormhole> channel;
  ombrix::c::Handle handle = {};
};

namespace {

using Settings = ombrix::OmbrixSettings;
using ombrix::c::catching;
using ombrix::c::copied;
using ombrix::c::textFrom;
using ombrix::platform::PropertyList;
using ombrix::platform::PropertyListSerialization;

Settings& from(OmbrixSettings* self) { return *reinterpret_cast<Settings*>(self); }
const Settings& from(const OmbrixSettings* self) {
  return *reinterpret_cast<const Settings*>(self);
}

char* text(std::string_view value) { return copied(value); }

/// Throws for bytes that are not a property list.
std::optional<PropertyList> from(const OmbrixValue& value) {
  switch (value.kind) {
    case OmbrixValueBoolean:
      return PropertyList(value.boolean);
    case OmbrixValueInteger:
      return PropertyList(value.integer);
    case OmbrixValueReal:
      return PropertyList(value.real);
    case OmbrixValueString:
      if (value.string == nullptr) break;
      return PropertyList(textFrom(value.string));
    case OmbrixValuePropertyList:
      return PropertyListSerialization::read(
          std::as_bytes(std::span(value.propertyList.bytes, value.propertyList.length)));
    case OmbrixValueNone:
      break;
  }
  return std::nullopt;
}

}  // namespace

OmbrixSettings* ombrix_Settings_shared() {
  return reinterpret_cast<OmbrixSettings*>(&Settings::shared());
}

OmbrixSettings* ombrix_Settings_init() {
  return catching(
      nullptr, [] { return ombrix::c::counted(reinterpret_cast<OmbrixSettings*>(new Settings)); });
}

void ombrix_Settings_release(OmbrixSettings* self) {
  delete reinterpret_cast<Settings*>(ombrix::c::uncounted(self));
}

bool ombrix_Settings_hasSyncedToiCloudBefore(const OmbrixSettings* self) {
  return catching(nullptr, [&] { return from(self).hasSyncedToiCloudBefore(); });
}

void ombrix_Settings_disableSync(OmbrixSettings* self) {
  catching(nullptr, [&] { from(self).disableSync(); });
}

void ombrix_Settings_resetSynedPreferences(OmbrixSettings* self) {
  catching(nullptr, [&] { from(self).resetSynedPreferences(); });
}

void ombrix_Settings_enableSyncWithBehavior_(OmbrixSettings* self, int behavior) {
  catching(nullptr, [&] { from(self).enableSyncWithBehavior(behavior); });
}

bool ombrix_Settings_automaticallyNotifiesObserversForKey_(const char* name) {
  return catching(nullptr,
                  [&] { return Settings::automaticallyNotifiesObserversForKey(textFrom(name)); });
}

bool ombrix_Settings_shouldSyncForKey_(const char* key) {
  return catching(nullptr, [&] { return Settings::shouldSyncForKey(textFrom(key)); });
}

char* ombrix_Settings_keyFromGetter_(const char* name) {
  return catching(nullptr, [&] { return text(Settings::keyFromGetter(textFrom(name))); });
}

char* ombrix_Settings_keyFromSetter_(const char* name) {
  return catching(nullptr, [&] { return text(Settings::keyFromSetter(textFrom(name))); });
}

char* ombrix_Settings_setterFromKey_(const char* name) {
  return catching(nullptr, [&] { return text(Settings::setterFromKey(textFrom(name))); });
}

void ombrix_Settings_registerSyncedPreferenceKeys_(OmbrixSettings* self, const char* const* keys,
                                                   size_t count) {
  catching(nullptr, [&] { from(self).registerSyncedPreferenceKeys({keys, keys + count}); });
}

void ombrix_Settings_registerMappings_(OmbrixSettings* self, const char* const* names,
                                       const char* const* keys, size_t count) {
  catching(nullptr, [&] {
    std::vector<Settings::Mapping> mappings;
    for (size_t i = 0; i < count; ++i) mappings.emplace_back(names[i], keys[i]);
    from(self).registerMappings(mappings);
  });
}

void ombrix_Settings_registerDefaults_(OmbrixSettings* self, const char* const* keys,
                                       const OmbrixValue* values, size_t count) {
  catching(nullptr, [&] {
    PropertyList::Dictionary defaults;
    for (size_t i = 0; i < count; ++i) {
      if (auto value = from(values[i])) defaults.set(keys[i], std::move(*value));
    }
    from(self).registerDefaults(defaults);
  });
}

void ombrix_Settings_observeValueForKeyPath_ofObject_change_context_(OmbrixSettings* self,
                                                                     const char* keyPath,
                                                                     const void*, bool isPrior,
                                                                     void*) {
  catching(nullptr, [&] {
    from(self).observeValueForKeyPath(textFrom(keyPath),
                                      {.key = textFrom(keyPath), .isPrior = isPrior});
  });
}

void ombrix_Settings_saveBool_withKey_(OmbrixSettings* self, bool value, const char* key) {
  catching(nullptr, [&] { from(self).saveBool(value, textFrom(key)); });
}

void ombrix_Settings_saveObject_withKey_(OmbrixSettings* self, OmbrixValue value, const char* key) {
  catching(nullptr, [&] { from(self).saveObject(from(value), textFrom(key)); });
}

void ombrix_Settings_registerCoreSettings(OmbrixSettings* self) {
  catching(nullptr, [&] { from(self).registerCoreSettings(); });
}

void ombrix_Settings_localeDidChange_(OmbrixSettings* self, const void*) {
  catching(nullptr, [&] { from(self).localeDidChange(); });
}

char* ombrix_Settings_metricType(const OmbrixSettings* self) {
  return catching(nullptr, [&] { return text(from(self).metricType()); });
}

void ombrix_Settings_setMetricType_(OmbrixSettings* self, const char* metricType) {
  catching(nullptr, [&] {
    from(self).setMetricType(metricType == nullptr ? std::nullopt
                                                   : std::optional(textFrom(metricType)));
  });
}

bool ombrix_Settings_syncPreferences(const OmbrixSettings* self) {
  return catching(nullptr, [&] { return from(self).syncPreferences(); });
}

void ombrix_Settings_setSyncPreferences_(OmbrixSettings* self, bool syncPreferences) {
  catching(nullptr, [&] { from(self).setSyncPreferences(syncPreferences); });
}

bool ombrix_Settings_extraLogging(const OmbrixSettings* self) {
  return catching(nullptr, [&] { return from(self).extraLogging(); });
}

void ombrix_Settings_setExtraLogging_(OmbrixSettings* self, bool extraLogging) {
  catching(nullptr, [&] { from(self).setExtraLogging(extraLogging); });
}

void ombrix_Settings_maskViaWormhole(OmbrixSettings* self) {
  catching(nullptr, [&] { from(self).maskViaWormhole(); });
}

OmbrixMMWormhole* ombrix_MMWormhole_OmbrixWormhole() {
  return catching(nullptr, [] { return new OmbrixMMWormhole{ombrix::OmbrixWormhole()}; });
}

void ombrix_MMWormhole_release(OmbrixMMWormhole* self) { delete self; }

bool ombrix_MMWormhole_passMessageObject_identifier_(OmbrixMMWormhole* self, OmbrixValue message,
                                                     const char* identifier) {
  return catching(nullptr, [&] {
    const auto value = from(message);
    return value && self->channel->passMessageObject(*value, textFrom(identifier));
  });
}

OmbrixData ombrix_MMWormhole_messageWithIdentifier_(const OmbrixMMWormhole* self,
                                                    const char* identifier) {
  return catching(nullptr, [&] {
    const auto message = self->channel->messageWithIdentifier(textFrom(identifier));
    return copied(message ? std::optional(PropertyListSerialization::write(*message))
                          : std::nullopt);
  });
}

void ombrix_MMWormhole_clearMessageContentsForIdentifier_(OmbrixMMWormhole* self,
                                                          const char* identifier) {
  catching(nullptr,
           [&] { self->channel->clearMessageContentsForIdentifier(textFrom(identifier)); });
}

OmbrixObservation* ombrix_Settings_addObserver_forKeyPath_context_(OmbrixSettings* self,
                                                                   OmbrixObserver observer,
                                                                   const char* keyPath,
                                                                   void* context) {
  return ombrix::c::observe(from(self), keyPath, observer, context);
}

void ombrix_Observation_release(OmbrixObservation* observation) { delete observation; }
