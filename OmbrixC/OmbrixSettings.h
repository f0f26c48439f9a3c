#ifndef OMBRIXC_OMBRIX_SETTINGS_H
#define OMBRIXC_OMBRIX_SETTINGS_H

#include <stdbool.h>

#include "OmbrixC/OmbrixObservation.h"
#include "OmbrixC/OmbrixTypes.h"

#ifdef __cplusplus
extern "C" {
#endif

/// The settings of the program; OmbrixCore/Settings/OmbrixSettings.hpp says what each operation
/// does. Any thread. Values and keys that are not UTF-8 are not stored.
typedef struct OmbrixSettings OmbrixSettings;

/// A value to store: of a simple kind, or the bytes of a property list, binary or XML.
typedef enum OmbrixValueKind {
  OmbrixValueNone,
  OmbrixValueBoolean,
  OmbrixValueInteger,
  OmbrixValueReal,
  OmbrixValueString,
  OmbrixValuePropertyList
} OmbrixValueKind;

/// Bytes of the caller's.
typedef struct OmbrixBytes {
  const uint8_t* bytes;
  size_t length;
} OmbrixBytes;

typedef struct OmbrixValue {
  OmbrixValueKind kind;
  union {
    bool boolean;
    int64_t integer;
    double real;
    const char* string;
    OmbrixBytes propertyList;
  };
} OmbrixValue;

/// The shared instance; borrowed, never released.
OmbrixSettings* ombrix_Settings_shared(void);

/// An instance of the caller's own, to be released. Making one empties the tables that all
/// instances share.
OmbrixSettings* ombrix_Settings_init(void);
/// Gives an instance of the caller's own back; NULL is allowed, the shared one is not.
void ombrix_Settings_release(OmbrixSettings* self);

/// Whether this user has ever turned sync on, on any device.
bool ombrix_Settings_hasSyncedToiCloudBefore(const OmbrixSettings* self);
/// Turns sync off; values in the cloud stay there.
void ombrix_Settings_disableSync(OmbrixSettings* self);
/// Removes every synced key from the cloud store; `syncPreferences` stays as it is.
void ombrix_Settings_resetSynedPreferences(OmbrixSettings* self);
/// Turns sync on. 1: local values win; 0: the cloud's values win; any other number: nothing is
/// copied.
void ombrix_Settings_enableSyncWithBehavior_(OmbrixSettings* self, int behavior);

/// False for mapped properties, whose changes are announced when their stored values change.
bool ombrix_Settings_automaticallyNotifiesObserversForKey_(const char* name);
/// Whether a storage key is mirrored to the cloud while sync is on.
bool ombrix_Settings_shouldSyncForKey_(const char* key);
/// The storage key of a property, "--" when it has none; the caller owns the copy.
char* ombrix_Settings_keyFromGetter_(const char* name);
/// The storage key of the property that a setter sets. Stops the program for a setter whose
/// property is not mapped. The caller owns the copy.
char* ombrix_Settings_keyFromSetter_(const char* name);
/// The setter of a property, "setMetricType:" for "metricType"; the caller owns the copy.
char* ombrix_Settings_setterFromKey_(const char* name);

/// Adds storage keys to those that are mirrored; they are copied.
void ombrix_Settings_registerSyncedPreferenceKeys_(OmbrixSettings* self, const char* const* keys,
                                                   size_t count);
/// Maps `names[i]` to `keys[i]`.
void ombrix_Settings_registerMappings_(OmbrixSettings* self, const char* const* names,
                                       const char* const* keys, size_t count);
/// Registers `values[i]` under `keys[i]`; entries of no kind are left out.
void ombrix_Settings_registerDefaults_(OmbrixSettings* self, const char* const* keys,
                                       const OmbrixValue* values, size_t count);

/// Announces a change of a storage key as one of its property; `object` and `context` are not used.
void ombrix_Settings_observeValueForKeyPath_ofObject_change_context_(OmbrixSettings* self,
                                                                     const char* keyPath,
                                                                     const void* object,
                                                                     bool isPrior, void* context);

/// Stores a truth value under a storage key, and in the cloud if the key is mirrored.
void ombrix_Settings_saveBool_withKey_(OmbrixSettings* self, bool value, const char* key);
/// A value of no kind, or a string that is NULL, removes the key.
void ombrix_Settings_saveObject_withKey_(OmbrixSettings* self, OmbrixValue value, const char* key);

/// Registers the three settings below with their defaults. To be called once, at start-up.
void ombrix_Settings_registerCoreSettings(OmbrixSettings* self);
/// Tells the settings that the user has changed the locale; `notification` is not used.
void ombrix_Settings_localeDidChange_(OmbrixSettings* self, const void* notification);

/// The unit system, "kilometers", "miles" or "british"; empty before `registerCoreSettings`.
/// The caller owns the copy.
char* ombrix_Settings_metricType(const OmbrixSettings* self);
/// NULL removes the value, so that the default counts again.
void ombrix_Settings_setMetricType_(OmbrixSettings* self, const char* metricType);
/// Whether changes of synced keys go to the cloud; true by default.
bool ombrix_Settings_syncPreferences(const OmbrixSettings* self);
/// Sets it.
void ombrix_Settings_setSyncPreferences_(OmbrixSettings* self, bool syncPreferences);
/// Whether more is logged; false by default.
bool ombrix_Settings_extraLogging(const OmbrixSettings* self);
/// Sets it.
void ombrix_Settings_setExtraLogging_(OmbrixSettings* self, bool extraLogging);

/// From now on takes the unit system, and changes of all settings, from the companion.
void ombrix_Settings_maskViaWormhole(OmbrixSettings* self);

/// A channel to the companion; OmbrixPlatform/Messaging/MMWormhole.hpp says what each operation
/// does. Any thread.
typedef struct OmbrixMMWormhole OmbrixMMWormhole;

/// A new channel of the product's app group, which the caller owns.
OmbrixMMWormhole* ombrix_MMWormhole_OmbrixWormhole(void);
/// Gives a channel back; NULL is allowed.
void ombrix_MMWormhole_release(OmbrixMMWormhole* self);

/// Passes a message on; true when it is on its way. A value of no kind passes nothing, and gives
/// false.
bool ombrix_MMWormhole_passMessageObject_identifier_(OmbrixMMWormhole* self, OmbrixValue message,
                                                     const char* identifier);
/// The last message of an identifier as the bytes of a property list, which the caller owns; no
/// bytes when there is none.
OmbrixData ombrix_MMWormhole_messageWithIdentifier_(const OmbrixMMWormhole* self,
                                                    const char* identifier);
/// Removes the last message of an identifier.
void ombrix_MMWormhole_clearMessageContentsForIdentifier_(OmbrixMMWormhole* self,
                                                          const char* identifier);

/// Calls the observer on every change of the property; the caller owns the result. NULL for an
/// observer that is NULL.
OmbrixObservation* ombrix_Settings_addObserver_forKeyPath_context_(OmbrixSettings* self,
                                                                   OmbrixObserver observer,
                                                                   const char* keyPath,
                                                                   void* context);

#ifdef __cplusplus
}
#endif

#endif
