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

/// The name of the app group.
char* ombrix_FileManager_OmbrixGroupName(void);

/// The product's own folders. Nothing is made.
char* ombrix_FileManager_cache(void);
char* ombrix_FileManager_applicationSupport(void);
char* ombrix_FileManager_temporary(void);

/// The user's own folders.
char* ombrix_FileManager_library(void);
char* ombrix_FileManager_documents(void);

/// The app group's folder and the product's folders in it; NULL when there is none.
char* ombrix_FileManager_groupContainer(void);
char* ombrix_FileManager_groupContainerApplicationSupport(void);
char* ombrix_FileManager_groupContainerCache(void);

/// Makes sure that the folder of a location exists: its own when it ends in "/", else the one
/// above. A failure is logged; text that is not a URL counts as one.
void ombrix_FileManager_touchWithUrl_(const char* url);

/// Puts the bytes that a file, or all files below a folder, take on the disk into `size`.
/// @return false, with the error, when nothing is there or `url` is not a file URL; `size` is then
/// 0.
bool ombrix_FileManager_allocatedSizeAt_error_(const char* url, uint64_t* size,
                                               OmbrixError** error);

// The bundle is that of the running program: its functions take no receiver, and any thread may
// call them. Texts are copies.

/// The version that users know the program by, as in "4.2"; empty when its bundle says none.
char* ombrix_Bundle_version(void);

/// The number of the build that the program comes from; empty when its bundle says none.
char* ombrix_Bundle_build(void);

#ifdef __cplusplus
}
#endif

#endif
