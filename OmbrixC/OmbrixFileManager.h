#ifndef OMBRIXC_OMBRIX_FILE_MANAGER_H
#define OMBRIXC_OMBRIX_FILE_MANAGER_H

#include <stdbool.h>
#include <stdint.h>

#include "OmbrixC/OmbrixError.h"
#include "OmbrixC/OmbrixTypes.h"

#ifdef __cplusplus
extern "C" {
#endif

// The file manager is one shared object without state: its functions take no receiver, and any
// thread may call them. Locations are URL texts, such as "file:///home/me/a%20track.csv"; folders
// end in "/". The names of locations are copies, see OmbrixTypes.h.

/// The name of the app group. The caller owns this and the following copies.
char* ombrix_FileManager_OmbrixGroupName(void);

/// The product's cache folder. This function and the ones below make no folder.
char* ombrix_FileManager_cache(void);
/// The product's folder for files that it keeps.
char* ombrix_FileManager_applicationSupport(void);
/// The product's folder for files that may be removed at any time.
char* ombrix_FileManager_temporary(void);

/// The user's folder for programs' data.
char* ombrix_FileManager_library(void);
/// The user's documents.
char* ombrix_FileManager_documents(void);

/// The app group's folder; NULL when there is none.
char* ombrix_FileManager_groupContainer(void);
/// The product's folder for files that it keeps in the app group; NULL when there is none.
char* ombrix_FileManager_groupContainerApplicationSupport(void);
/// The product's cache in the app group; NULL when there is none.
char* ombrix_FileManager_groupContainerCache(void);

/// Makes sure that the folder of a location exists: its own when it ends in "/", else the one
/// above. A failure is logged; a text that is not a URL counts as a failure.
void ombrix_FileManager_touchWithUrl_(const char* url);

/// Puts the bytes that a file, or all files below a folder, take on the disk into `size`.
/// @return false, with the error, when nothing is there or `url` is not a file URL; `size` is then
/// 0.
bool ombrix_FileManager_allocatedSizeAt_error_(const char* url, uint64_t* size,
                                               OmbrixError** error);

// Paths and URLs. Any thread; the caller owns the copies.

/// The file URL of a path, as in "file:///home/me/a%20track.csv" for "/home/me/a track.csv": spaces
/// and all other characters that a URL does not allow are escaped. A path ending in "/" names a
/// folder; a relative one starts at the current folder. NULL for NULL.
char* ombrix_URL_fileURLWithPath_(const char* path);

/// The path of a file URL, with everything in it unescaped and without "/" at its end, unless it is
/// the root. NULL for a text that is not a file URL, or whose path holds a NUL.
char* ombrix_URL_path(const char* url);

// The bundle is that of the running program: its functions take no receiver, and any thread may
// call them. Texts are copies.

/// The version that users see, as in "4.2"; empty when the program's bundle states none.
char* ombrix_Bundle_version(void);

/// The number of the program's build; empty when its bundle states none.
char* ombrix_Bundle_build(void);

#ifdef __cplusplus
}
#endif

#endif
