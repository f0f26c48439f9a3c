#pragma once

// What a lock guards and what a function needs, for clang's -Wthread-safety to check; other
// compilers see nothing. The checker looks at one function at a time: what a function that is
// called needs stands at its declaration. Constructors and destructors are not checked.

#if defined(__clang__)
#define OMBRIX_THREAD_SAFETY(attribute) __attribute__((attribute))
#else
#define OMBRIX_THREAD_SAFETY(attribute)
#endif

/// A class whose objects are locks; the text names them in warnings.
#define OMBRIX_CAPABILITY(text) OMBRIX_THREAD_SAFETY(capability(text))
/// A class whose objects hold a lock as long as they live.
#define OMBRIX_SCOPED_CAPABILITY OMBRIX_THREAD_SAFETY(scoped_lockable)

/// Data that is read and written with the lock held only.
#define OMBRIX_GUARDED_BY(lock) OMBRIX_THREAD_SAFETY(guarded_by(lock))
/// The same of what a pointer, which is free itself, points to.
#define OMBRIX_PT_GUARDED_BY(lock) OMBRIX_THREAD_SAFETY(pt_guarded_by(lock))

/// A function that is called with the locks held, and returns with them held.
#define OMBRIX_REQUIRES(...) OMBRIX_THREAD_SAFETY(requires_capability(__VA_ARGS__))
/// A function that takes the locks itself: called with one held, it would wait for ever.
#define OMBRIX_EXCLUDES(...) OMBRIX_THREAD_SAFETY(locks_excluded(__VA_ARGS__))
/// A function that returns with the locks held (by default with its own object's).
#define OMBRIX_ACQUIRE(...) OMBRIX_THREAD_SAFETY(acquire_capability(__VA_ARGS__))
/// The same where the function returns the first argument, true or false.
#define OMBRIX_TRY_ACQUIRE(...) OMBRIX_THREAD_SAFETY(try_acquire_capability(__VA_ARGS__))
/// A function that is called with the locks held and releases them.
#define OMBRIX_RELEASE(...) OMBRIX_THREAD_SAFETY(release_capability(__VA_ARGS__))
/// A function that tells which lock its result is.
#define OMBRIX_RETURN_CAPABILITY(lock) OMBRIX_THREAD_SAFETY(lock_returned(lock))

/// A function that is not checked; a comment beside it says why.
#define OMBRIX_NO_THREAD_SAFETY_ANALYSIS OMBRIX_THREAD_SAFETY(no_thread_safety_analysis)
