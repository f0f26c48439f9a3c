#ifndef OMBRIXC_OMBRIX_LIBRARY_H
#define OMBRIXC_OMBRIX_LIBRARY_H

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

/// The version of the library that is loaded, as in "0.1.0"; lives as long as the process.
const char* ombrix_Library_version(void);

/// How many handles, texts, blocks and lists of this interface the caller holds: what was given out
/// and not released. Shared objects and what is borrowed do not count. A program that has released
/// everything finds 0.
size_t ombrix_Library_liveHandles(void);

/// Tells who the program is, where no Info.plist does: settings, caches and logs are named after
/// it. To be called before anything else of the library; what was named already stays so.
/// @param identifier In reverse domain notation, as in "org.example.skier".
/// @param version, build Texts such as "2.1" and "77"; NULL when unknown.
void ombrix_Library_setIdentity(const char* identifier, const char* version, const char* build);

/// Ends what the library does on its own, for a host that is about to exit or to be looked at by a
/// leak checker: cancels the requests of the shared client and waits until none runs, writes what
/// settings and logs have not written yet, and closes the log files. To be called by the last
/// thread that uses the library, not from a callback, when the caller's handles are released. What
/// the library keeps for the whole process stays reachable. Calling it is not needed for a normal
/// exit, and calling it twice is allowed.
void ombrix_Library_end(void);

#ifdef __cplusplus
}
#endif

#endif
