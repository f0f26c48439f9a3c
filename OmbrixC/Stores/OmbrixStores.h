#ifndef OMBRIXC_STORES_OMBRIX_STORES_H
#define OMBRIXC_STORES_OMBRIX_STORES_H

#include <stdbool.h>

#include "OmbrixC/OmbrixError.h"
#include "OmbrixC/OmbrixTypes.h"

#ifdef __cplusplus
extern "C" {
#endif

/// Bytes in one file, coordinated with other processes where the app group shares it. Any thread.
/// What fails is logged.
typedef struct OmbrixFileStore OmbrixFileStore;

/// A store in the file of a file URL, which need not exist. NULL and an error, which names the
/// text, for one that is no file URL. The caller owns the store.
OmbrixFileStore* ombrix_FileStore_initWithUrl_error_(const char* url, OmbrixError** error);
/// Gives a store back; its file stays. NULL is allowed.
void ombrix_FileStore_release(OmbrixFileStore* self);

/// What the file holds, which the caller owns; without bytes where it is missing, larger than 1 GiB
/// or cannot be read.
OmbrixData ombrix_FileStore_value(const OmbrixFileStore* self);
/// Writes the file, making its folder where needed; `bytes` NULL removes it. They are borrowed for
/// the call.
void ombrix_FileStore_setValue_length_(OmbrixFileStore* self, const uint8_t* bytes, size_t length);
/// Whether the file is there.
bool ombrix_FileStore_exists(const OmbrixFileStore* self);
/// Bytes that it takes on disk; 0 where it is missing.
uint64_t ombrix_FileStore_size(const OmbrixFileStore* self);
/// Removes the file.
void ombrix_FileStore_purge(OmbrixFileStore* self);

/// Bytes by key, a file for each, in one folder. Keys are texts; what a file name cannot hold is
/// left out of them. Each function waits for the disk; not to be called on the main queue's thread
/// by those who must not wait. Any thread. What fails is logged.
typedef struct OmbrixKeyedStore OmbrixKeyedStore;

/// A store in the folder of a file URL, which the first write makes.
///
/// @param fileExtension Of every file, without "."; NULL for "data".
/// @return NULL and an error, which names the text, for one that is no file URL. The caller owns
/// the
///   store.
OmbrixKeyedStore* ombrix_KeyedStore_initWithUrl_fileExtension_error_(const char* url,
                                                                     const char* fileExtension,
                                                                     OmbrixError** error);
/// Gives a store back; its files stay. NULL is allowed.
void ombrix_KeyedStore_release(OmbrixKeyedStore* self);

/// What is stored under a key, which the caller owns; without bytes for nothing.
OmbrixData ombrix_KeyedStore_valueForKey_(const OmbrixKeyedStore* self, const char* key);
/// Stores bytes, borrowed for the call, under a key; `bytes` NULL removes what is there.
void ombrix_KeyedStore_storeValue_length_forKey_(OmbrixKeyedStore* self, const uint8_t* bytes,
                                                 size_t length, const char* key);
/// Whether something is stored under a key.
bool ombrix_KeyedStore_existsForKey_(const OmbrixKeyedStore* self, const char* key);
/// Seconds since it was stored; negative for nothing.
double ombrix_KeyedStore_ageForKey_(const OmbrixKeyedStore* self, const char* key);
/// Bytes that the folder's files take on disk.
uint64_t ombrix_KeyedStore_size(const OmbrixKeyedStore* self);

/// Told one key, borrowed for the call.
typedef void (*OmbrixKeyVisitor)(const char* key, void* context);
/// Calls the visitor once for each key, in no order, on the calling thread, before it returns.
void ombrix_KeyedStore_visitKeys_context_(const OmbrixKeyedStore* self, OmbrixKeyVisitor visitor,
                                          void* context);

/// Removes a key that this store has read or written.
void ombrix_KeyedStore_purgeForKey_(OmbrixKeyedStore* self, const char* key);
/// Removes the folder with all that is in it.
void ombrix_KeyedStore_purge(OmbrixKeyedStore* self);

#ifdef __cplusplus
}
#endif

#endif
