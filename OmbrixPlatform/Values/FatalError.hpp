#pragma once

#include <source_location>
#include <string_view>

namespace ombrix::platform {

/// Stops the program deliberately, in every build type: a programming error was met.
///
/// Runs the hooks (log files are flushed), writes "Fatal error: <message> (<file>:<line>)" to
/// standard error and calls `abort()`. May be called from any thread, also while locks are held; a
/// second thread waits some seconds for the hooks that the first one runs.
[[noreturn]] void fatalError(
    std::string_view message,
    std::source_location location = std::source_location::current()) noexcept;

/// Adds a function that `fatalError` runs before it aborts; at most 8, further ones are dropped.
///
/// A hook must not wait for other threads. Hooks are never removed. Any thread.
void addFatalErrorHook(void (*hook)() noexcept) noexcept;

}  // namespace ombrix::platform
