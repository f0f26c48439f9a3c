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

typedef struct OmbrixValue {
  OmbrixValueKind kind;
  union {
    bool boolean;
    int64_t integer;
    double real;
    const char* string;
    struct {
      const uint8_t* bytes;
      size_t length;
    } propertyList;
  };
} OmbrixValue;

/// The shared instance; borrowed, never released.
OmbrixSettings* ombrix_Settings_shared(void);

/// An instance of the caller's own. Making one empties the tables that all instances share.
OmbrixSettings* ombrix_Settings_init(void);
void ombrix_Settings_release(OmbrixSettings* self);

bool ombrix_Settings_hasSyncedToiCloudBefore(const OmbrixSettings* self);
void ombrix_Settings_disableSync(OmbrixSettings* self);
void ombrix_Settings_resetSynedPreferences(OmbrixSettings* self);
void ombrix_Settings_enableSyncWithBehavior_(OmbrixSettings* self, int behavior);

bool ombrix_Settings_automaticallyNotifiesObserversForKey_(const char* name);
bool ombrix_Settings_shouldSyncForKey_(const char* key);
char* ombrix_Settings_keyFromGetter_(const char* name);
/// Stops the program for a setter whose property is not mapped.
char* ombrix_Settings_keyFromSetter_(const char* name);
char* ombrix_Settings_setterFromKey_(const char* name);

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

void ombrix_Settings_saveBool_withKey_(OmbrixSettings* self, bool value, const char* key);
/// A value of no kind, or a string that is NULL, removes the key.
void ombrix_Settings_saveObject_withKey_(OmbrixSettings* self, OmbrixValue value, const char* key);

void ombrix_Settings_registerCoreSettings(OmbrixSettings* self);
/// `notification` is not used.
void ombrix_Settings_localeDidChange_(OmbrixSettings* self, const void* notification);

char* ombrix_Settings_metricType(const OmbrixSettings* self);
/// NULL removes the value, so that the default counts again.
void ombrix_Settings_setMetricType_(OmbrixSettings* self, const char* metricType);
bool ombrix_Settings_syncPreferences(const OmbrixSettings* self);
void ombrix_Settings_setSyncPreferences_(OmbrixSettings* self, bool syncPreferences);
bool ombrix_Settings_extraLogging(const OmbrixSettings* self);
void ombrix_Settings_setExtraLogging_(OmbrixSettings* self, bool extraLogging);

/// Has the unit system, and changes of all settings, come from the companion from now on.
void ombrix_Settings_maskViaWormhole(OmbrixSettings* self);

/// A channel to the companion; OmbrixPlatform/Messaging/MMWormhole.hpp says what each operation
/// does. Any thread.
typedef struct OmbrixMMWormhole OmbrixMMWormhole;

/// A new channel of the product's app group.
OmbrixMMWormhole* ombrix_MMWormhole_OmbrixWormhole(void);
void ombrix_MMWormhole_release(OmbrixMMWormhole* self);

/// Whether the message is on its way. Passes nothing, and false, for a value of no kind.
bool ombrix_MMWormhole_passMessageObject_identifier_(OmbrixMMWormhole* self, OmbrixValue message,
                                                     const char* identifier);
/// The last message as the bytes of a property list.
OmbrixData ombrix_MMWormhole_messageWithIdentifier_(const OmbrixMMWormhole* self,
                                                    const char* identifier);
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
