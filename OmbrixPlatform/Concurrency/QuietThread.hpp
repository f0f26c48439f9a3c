#pragma once

#include <functional>
#include <thread>

namespace ombrix::platform {

/// Starts a thread of the library's own, which handles no signals of the host's; not joinable when
/// the system has none left.
/// @param name At most 15 characters, as debuggers show it.
std::thread startQuietThread(const char* name, std::move_only_function<void()> run);

}  // namespace ombrix::platform
