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

/// The request that a redirect asks for instead of `request` (RFC 9110 section 15.4); empty when
/// its "Location" is not a URL. 303, and 301 and 302 after POST, become GET without a body; another
/// origin does not get the fields that `isForOneOrigin` names. A name and password in "Location"
/// are left out unless the request has the same ones for the same origin: otherwise a server could
/// log the client in under a name of the server's choice.
[[nodiscard]] std::optional<URLRequest> redirected(const URLRequest& request,
                                                   const HTTPURLResponse& response);

/// Whether a header field says who the client is, which no other origin may learn by a redirect.
[[nodiscard]] bool isForOneOrigin(std::string_view headerName) noexcept;

/// Whether a redirect may be followed: a body that was sent encrypted is not sent again in the
/// clear. A redirect that may not be followed is itself the answer.
[[nodiscard]] bool mayFollow(const URLRequest& request, const URLRequest& next);

/// The answer as its task may hand it over: without an "Authorization" from another origin than
/// that of the original request.
[[nodiscard]] std::shared_ptr<const HTTPURLResponse> handedOver(
    std::shared_ptr<const HTTPURLResponse> response, const URL& original);

/// The answer, with the "Authorization" of an answer that was skipped before it if it has none of
/// its own and both come from the same origin.
[[nodiscard]] std::shared_ptr<const HTTPURLResponse> withTokenOf(
    const HTTPURLResponse& passedOver, std::shared_ptr<const HTTPURLResponse> response);

}  // namespace ombrix::platform::detail
