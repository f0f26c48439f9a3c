#pragma once

#include <functional>
#include <thread>

namespace ombrix::platform {

/// Starts a thread of the library that handles none of the host's signals; the result is not
/// joinable when the system has no thread left.
/// @param name At most 15 characters, as debuggers show it.
std::thread startQuietThread(const char* name, std::move_only_function<void()> run);

}  // namespace ombrix::platform
