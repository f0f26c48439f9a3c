#pragma once

#include <memory>
#include <optional>
#include <string_view>

#include "OmbrixPlatform/Network/URLOrigin.hpp"
#include "OmbrixPlatform/Network/URLRequest.hpp"
#include "OmbrixPlatform/Network/URLResponse.hpp"

namespace ombrix::platform::detail {

/// Whether an answer sends the client elsewhere: 301, 302, 303, 307 or 308 with a "Location".
[[nodiscard]] bool isRedirect(const HTTPURLResponse& response) noexcept;

/// The request that a redirect asks for instead of `request` (RFC 9110 section 15.4); nothing when
/// its "Location" is not a URL. 303, and 301 and 302 after POST, become GET without a body; another
/// origin does not get what `isForOneOrigin`. A name and password in "Location" are left out unless
/// they are those that the request has for the same origin: what a server writes there would log
/// the client in under a name of its choice.
[[nodiscard]] std::optional<URLRequest> redirected(const URLRequest& request,
                                                   const HTTPURLResponse& response);

/// Whether a header field says who the client is, which no other origin may learn by a redirect.
[[nodiscard]] bool isForOneOrigin(std::string_view headerName) noexcept;

/// Whether a redirect may be followed from one request to the next: a body that was sent encrypted
/// is not sent again in the clear. One that may not be is itself the answer.
[[nodiscard]] bool mayFollow(const URLRequest& request, const URLRequest& next);

/// The answer as its task may hand it over: what another origin than that of the original request
/// says in "Authorization" is left out.
[[nodiscard]] std::shared_ptr<const HTTPURLResponse> handedOver(
    std::shared_ptr<const HTTPURLResponse> response, const URL& original);

/// An answer with the "Authorization" of one that was passed over before it, where it has none of
/// its own and both come from one origin.
[[nodiscard]] std::shared_ptr<const HTTPURLResponse> withTokenOf(
    const HTTPURLResponse& passedOver, std::shared_ptr<const HTTPURLResponse> response);

}  // namespace ombrix::platform::detail
