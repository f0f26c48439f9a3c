#pragma once

#include <optional>
#include <string_view>

#include "OmbrixPlatform/Network/URLRequest.hpp"
#include "OmbrixPlatform/Network/URLResponse.hpp"

namespace ombrix::platform::detail {

/// Whether an answer sends the client elsewhere: 301, 302, 303, 307 or 308 with a "Location".
[[nodiscard]] bool isRedirect(const HTTPURLResponse& response) noexcept;

/// The request that a redirect asks for instead of `request` (RFC 9110 section 15.4); nothing when
/// its "Location" is no URL. 303, and 301 and 302 after POST, become GET without a body; another
/// origin does not get what `isForOneOrigin`.
[[nodiscard]] std::optional<URLRequest> redirected(const URLRequest& request,
                                                   const HTTPURLResponse& response);

/// Whether a header field says who the client is, which no other origin may learn by a redirect.
[[nodiscard]] bool isForOneOrigin(std::string_view headerName) noexcept;

/// Whether both URLs have the same scheme, host and port.
[[nodiscard]] bool haveSameOrigin(const URL& a, const URL& b);

}  // namespace ombrix::platform::detail
