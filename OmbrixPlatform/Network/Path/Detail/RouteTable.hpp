#pragma once

#include <optional>

#include "OmbrixPlatform/Detail/Descriptor.hpp"

namespace ombrix::platform::detail {

/// Whether a default route leads over a link that is up, running and no loopback, by the kernel's
/// tables of this moment; empty when the kernel refuses to be asked. Takes about 0.1 ms; any
/// thread.
[[nodiscard]] std::optional<bool> hasWayOut();

/// A socket that becomes readable when links, addresses or routes change; empty when none can be
/// opened.
[[nodiscard]] Descriptor openRouteEvents();

/// Discards the events that have come in; false when there were none. Lost events count as events.
bool drainRouteEvents(int socket);

}  // namespace ombrix::platform::detail
