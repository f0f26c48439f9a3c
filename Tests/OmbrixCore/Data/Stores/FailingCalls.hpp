#pragma once

#include <functional>

namespace ombrix::testing {

/// System calls that fail when a test wants them to: a program that is built with FailingCalls.cpp
/// has functions of its own in front of the C library's.
struct FailingCalls {
  int countdown = 0;        ///< The call that fails next, counted down to 0; 0 for none.
  bool lasts = false;       ///< All calls after that one fail, too.
  bool allFail = false;     ///< Each call fails.
  int code = 0;             ///< The errno of those that fail.
  bool hasChanged = false;  ///< Whether a call has changed a file's contents.
};

/// What is called by the next call of its kind, once.
struct CallHooks {
  std::function<void()> duringRead, beforeUnlink;
};

/// Those of this thread.
FailingCalls& failingCalls() noexcept;
CallHooks& callHooks();

/// Paths that hold this text cannot be looked at by any thread, with this errno; null for none.
void hidePaths(const char* part, int code) noexcept;

}  // namespace ombrix::testing
