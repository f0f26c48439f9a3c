#ifndef OMBRIXC_OMBRIX_LIBRARY_H
#define OMBRIXC_OMBRIX_LIBRARY_H

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

/// The version of the library that is loaded, as in "0.1.0"; lives as long as the process.
const char* ombrix_Library_version(void);

/// How many handles, texts, blocks and lists of this interface the caller holds: those given out
/// and not yet released. Shared and borrowed objects do not count. It is 0 for a program that has
/// released everything.
size_t ombrix_Library_liveHandles(void);

/// States the program's identity if no Info.plist does: settings, caches and logs are named after
/// it. Call it before any other function of the library; names already in use stay.
/// @param identifier In reverse domain notation, as in "org.example.skier".
/// @param version, build Texts such as "2.1" and "77"; NULL when unknown.
void ombrix_Library_setIdentity(const char* identifier, const char* version, const char* build);

/// Ends the library's background work, for a host that is about to exit or to run a leak check:
/// cancels the requests of the shared client and waits until none runs, writes pending settings and
/// log lines, and closes the log files. Call it on the last thread that uses the library, not from
/// a callback, after releasing all handles. Memory that the library keeps for the whole process
/// stays reachable. A normal exit does not need it, and calling it twice is allowed.
void ombrix_Library_end(void);

#ifdef __cplusplus
}
#endif

#endif
