#pragma once

#include <source_location>
#include <string_view>

namespace ombrix::platform {

/// Stops the program deliberately, in every build type, because of a programming error.
///
/// Runs the hooks (log files are flushed), writes "Fatal error: <message> (<file>:<line>)" to
/// standard error and calls `abort()`. Any thread, also while holding locks; a second thread waits
/// some seconds for the hooks that the first one is running.
[[noreturn]] void fatalError(
    std::string_view message,
    std::source_location location = std::source_location::current()) noexcept;

/// Adds a function that `fatalError` runs before it aborts; at most 8, any more are ignored.
///
/// A hook must not wait for other threads. Hooks are never removed. Any thread.
void addFatalErrorHook(void (*hook)() noexcept) noexcept;

}  // namespace ombrix::platform
