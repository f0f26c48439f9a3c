#pragma once

#include <optional>

#include "OmbrixPlatform/Detail/Descriptor.hpp"

namespace ombrix::platform::detail {

/// Whether a default route leads over a link that is up, running and no loopback, by the kernel's
/// tables just now; nothing when it does not let itself be asked. About 0.1 ms; any thread.
[[nodiscard]] std::optional<bool> hasWayOut();

/// A socket that becomes readable when links, addresses or routes change; empty when there is none
/// to be had.
[[nodiscard]] Descriptor openRouteEvents();

/// Throws away what has come in; false when that was nothing. Lost events count as some.
bool drainRouteEvents(int socket);

}  // namespace ombrix::platform::detail
