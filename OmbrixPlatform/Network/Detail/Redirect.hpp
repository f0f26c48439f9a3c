#pragma once

#include <optional>

#include "OmbrixPlatform/Network/URLRequest.hpp"
#include "OmbrixPlatform/Network/URLResponse.hpp"

namespace ombrix::platform::detail {

/// Whether an answer sends the client elsewhere: 301, 302, 303, 307 or 308 with a "Location".
[[nodiscard]] bool isRedirect(const HTTPURLResponse& response) noexcept;

/// The request that a redirect asks for instead of `request` (RFC 9110 section 15.4); nothing when
/// its "Location" is no URL. 303, and 301 and 302 after POST, become GET without a body; another
/// origin does not get "Authorization".
[[nodiscard]] std::optional<URLRequest> redirected(const URLRequest& request,
                                                   const HTTPURLResponse& response);

/// Whether both URLs have the same scheme, host and port.
[[nodiscard]] bool haveSameOrigin(const URL& a, const URL& b);

}  // namespace ombrix::platform::detail
